// The property and interface machinery, driven through the GProcessor face as a host does.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <tuple>

#include "libfilter/CProcessor.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::ReportWatch;

namespace {

// A processor with one property of each tag, and a record of what OnSetProperty saw.
struct ProbeProcessor final : CProcessor {
    ProbeProcessor() : CProcessor(AVPROCESSOR_GRAY, 7, 9) {
        AddProperty("size", PropertyNode::Int32(3));
        AddProperty("size", PropertyNode::Int32(99));  // the first registration wins
        AddProperty("ratio", PropertyNode::Double(0.5, "0.5"));
        AddProperty("big", {"0", PROPERTY_INT64});
        AddProperty("small", {"0", PROPERTY_INT16});
        AddProperty("label", {"hello", PROPERTY_TEXT});
        AddProperty("duration", PropertyNode::Int32(1));
        AddInterface("probe", this);
        AddInterface("probe", nullptr);
    }
    int OnSetProperty(const std::string& name, PropertyNode& node) override {
        lastName = name;
        ++calls;
        return CProcessor::OnSetProperty(name, node);
    }
    const PropertyNode& Node(const char* name) { return *GetProperty(std::string(name)); }

    std::string lastName;
    int calls = 0;
};

struct ProcessorFixture : testing::Test {
    ProbeProcessor probe;
    GProcessor* face = &probe;
};

}  // namespace

TEST_F(ProcessorFixture, IdentityInterfacesAndNamesInByteOrder) {
    EXPECT_EQ(std::make_tuple(face->GetID(), face->GetType(), face->GetSubType()),
              std::make_tuple(8u, 7u, 9u));
    EXPECT_EQ(face->GetInterface("probe"), &probe);  // first pointer kept
    ReportWatch watch;
    EXPECT_EQ(face->GetInterface("nothing"), nullptr);
    EXPECT_EQ(watch.LastMessage() + " in " + watch.LastFile(),
              "No the interface:nothing in ../libcore/libcore_srcutils/CProcessor");
    EXPECT_EQ(face->GetInterface(nullptr), nullptr);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
    EXPECT_EQ(watch.Count(), 2u);

    GStringList* names = face->GetPropertyNames();
    ASSERT_NE(names, nullptr);
    std::vector<std::string> got;
    for (unsigned i = 0; i < names->GetCount(); ++i)
        got.push_back(names->GetAt(i)->GetString());
    names->Free();
    EXPECT_EQ(got,
              (std::vector<std::string>{"big", "duration", "label", "ratio", "size", "small"}));
}

TEST_F(ProcessorFixture, SetKeepsTheTextAndParsesItByTag) {
    const std::tuple<const char*, const char*, int64_t> cases[] = {
        {"size", "42", 42},  {"size", "abc", 0},       {"size", "12.7", 12},
        {"size", "-7x", -7}, {"size", "", 0},          {"big", "9000000000", 9000000000LL},
        {"big", "-5", -5},   {"small", "70000", 4464}, {"small", "-3", -3}};
    for (const auto& [property, text, expected] : cases) {
        ASSERT_TRUE(face->SetProperty(property, text));
        EXPECT_STREQ(face->GetProperty(property, nullptr), text);
        const auto& node = probe.Node(property);
        const int64_t parsed = node.type == PROPERTY_INT64   ? node.parsed.i64
                               : node.type == PROPERTY_INT16 ? node.parsed.i16
                                                             : node.parsed.i32;
        EXPECT_EQ(parsed, expected) << property << "=" << text;
        EXPECT_EQ(probe.lastName, property);
    }
    // A double keeps its value on a text that does not parse, and reports its tag.
    int type = -1;
    EXPECT_STREQ(face->GetProperty("ratio", &type), "0.5");
    EXPECT_EQ(type, int{PROPERTY_DOUBLE});
    ASSERT_TRUE(face->SetProperty("ratio", "2.25") && face->SetProperty("ratio", "abc"));
    EXPECT_DOUBLE_EQ(probe.Node("ratio").parsed.d, 2.25);
    EXPECT_STREQ(face->GetProperty("ratio", nullptr), "abc");
    // A text property's parsed form points at its own text.
    const auto& label = probe.Node("label");
    EXPECT_EQ(label.parsed.text, label.value.c_str());
    ASSERT_TRUE(face->SetProperty("label", "world"));
    EXPECT_EQ(label.parsed.text, label.value.c_str());
    EXPECT_STREQ(label.parsed.text, "world");
}

TEST_F(ProcessorFixture, FailuresReportOnceAndChangeNothing) {
    ReportWatch watch;
    EXPECT_FALSE(face->SetProperty("xyz", "1"));
    EXPECT_EQ(watch.LastMessage(), "Property with name(xyz) does not exist");
    EXPECT_FALSE(face->SetProperty("size", nullptr));
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
    EXPECT_FALSE(face->SetProperty(nullptr, "1"));
    EXPECT_EQ(watch.LastMessage(), "Property with name() does not exist");
    EXPECT_EQ(probe.calls, 0);
    EXPECT_STREQ(face->GetProperty("size", nullptr), "3");

    int type = 77;
    EXPECT_TRUE(face->GetProperty("xyz", &type) == nullptr && type == 77);
    EXPECT_EQ(face->GetProperty(nullptr, &type), nullptr);
    EXPECT_EQ(watch.Count(), 5u);
    // A host that releases through a null processor pointer calls the exported Free with a null
    // object; nothing may happen.
    using FreeFn = void (*)(void*);
    const auto free =
        reinterpret_cast<FreeFn>(dlsym(RTLD_DEFAULT, "_ZN9MediaCore10CProcessor4FreeEv"));
    ASSERT_NE(free, nullptr);
    free(nullptr);
}
