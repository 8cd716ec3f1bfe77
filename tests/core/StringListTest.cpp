// The string list a host receives from GetPropertyNames.
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "base/GStringList.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::ReportWatch;

namespace {

struct ListFixture : testing::Test {
    GStringList* list = new CGStringList();
    ~ListFixture() override { list->Free(); }
    std::string At(unsigned i) { return list->GetAt(i)->GetString(); }
};

}  // namespace

TEST_F(ListFixture, AppendInsertFindRemoveAndFailures) {
    EXPECT_EQ(list->Append("b"), 0u);
    EXPECT_EQ(list->Append("d"), 1u);
    EXPECT_EQ(list->Insert(0u, "a"), 0u);
    EXPECT_EQ(list->Insert(2, new CGString("c")), 2u);
    EXPECT_EQ(list->GetCount(), 4u);
    EXPECT_EQ(At(0) + At(1) + At(2) + At(3), "abcd");
    EXPECT_EQ(list->Find("c"), 2u);

    // Find by object matches by text, not identity.
    CGString probe("d");
    EXPECT_EQ(list->Find(&probe), 3u);

    EXPECT_TRUE(list->Remove(0));
    EXPECT_EQ(list->Find("b"), 0u);
    EXPECT_EQ(list->GetAt(3), nullptr);
    list->Clear();
    EXPECT_EQ(list->GetCount(), 0u);
    // Failures report once and answer no position.
    list->Append("x");
    GString* held = list->GetAt(0);
    const struct {
        std::function<unsigned()> call;
        const char* message;
    } cases[] = {
        {[&] { return list->Append(static_cast<const char*>(nullptr)); },
         "fatal error:null pointer"},
        {[&] { return list->Insert(0, static_cast<GString*>(nullptr)); },
         "fatal error:null pointer"},
        {[&] { return list->Insert(-1, held); }, "error index:"},
        {[&] { return list->Insert(2, held); }, "error index:"},
        {[&] { return list->Insert(0, held); }, "Insert the same string:x, at the postion is 0"},
        {[&] { return list->Find("nope"); }, "Cant't find string:nope"},
        {[&] { return list->Find(static_cast<const char*>(nullptr)); }, "fatal error:null pointer"},
        {[&] { return list->Find(static_cast<GString*>(nullptr)); }, "fatal error:null pointer"},
        {[&] { return list->Remove(1) ? 0u : kNoPosition; }, "error index:"},
    };
    for (const auto& c : cases) {
        ReportWatch watch;
        EXPECT_EQ(c.call(), kNoPosition) << c.message;
        EXPECT_EQ(std::make_tuple(watch.Count(), watch.LastMessage(), watch.LastFile()),
                  std::make_tuple(1u, std::string(c.message), std::string("../MyBase/GString")));
    }
    EXPECT_EQ(list->GetCount(), 1u);
}
