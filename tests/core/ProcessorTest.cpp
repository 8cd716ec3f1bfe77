// The property and interface machinery, driven through the GProcessor face as a host does.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "libfilter/CProcessor.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::ReportWatch;

namespace {

// A processor with one property of each tag, and a record of what OnSetProperty saw.
class ProbeProcessor final : public CProcessor {
public:
    ProbeProcessor() : CProcessor(AVPROCESSOR_GRAY, 7, 9) {
        AddProperty("size", PropertyNode::Int32(3));
        AddProperty("size", PropertyNode::Int32(99));  // the first registration wins
        AddProperty("ratio", PropertyNode::Double(0.5, "0.5"));
        PropertyNode big;
        big.value = "0";
        big.type = PROPERTY_INT64;
        AddProperty("big", big);
        PropertyNode small;
        small.value = "0";
        small.type = PROPERTY_INT16;
        AddProperty("small", small);
        PropertyNode text;
        text.value = "hello";
        text.type = PROPERTY_TEXT;
        AddProperty("label", text);
        AddProperty("duration", PropertyNode::Int32(1));
        AddInterface("probe", this);
        AddInterface("probe", nullptr);
    }
    int OnSetProperty(const std::string& name, PropertyNode& node) override {
        lastName = name;
        ++calls;
        return CProcessor::OnSetProperty(name, node);
    }
    const PropertyNode& Node(const char* name) {
        return *CProcessor::GetProperty(std::string(name));
    }

    std::string lastName;
    int calls = 0;
};

struct ProcessorFixture : testing::Test {
    std::unique_ptr<ProbeProcessor> owner = std::make_unique<ProbeProcessor>();
    ProbeProcessor& probe = *owner;
    GProcessor* face = owner.get();
};

}  // namespace

TEST_F(ProcessorFixture, IdentityAndInterfaces) {
    EXPECT_EQ(face->GetID(), 8u);
    EXPECT_EQ(face->GetType(), 7u);
    EXPECT_EQ(face->GetSubType(), 9u);
    EXPECT_EQ(face->GetInterface("probe"), &probe);  // first pointer kept

    ReportWatch watch;
    EXPECT_EQ(face->GetInterface("nothing"), nullptr);
    EXPECT_EQ(watch.LastMessage(), "No the interface:nothing");
    EXPECT_EQ(watch.LastFile(), "../libcore/libcore_srcutils/CProcessor");
    EXPECT_EQ(face->GetInterface(nullptr), nullptr);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
    EXPECT_EQ(watch.Count(), 2u);
}

struct IntCase {
    const char* property;
    const char* text;
    int64_t expected;
};

void PrintTo(const IntCase& c, std::ostream* os) {
    *os << c.property << "=" << c.text;
}

class IntegerParsing : public ProcessorFixture, public testing::WithParamInterface<IntCase> {};

TEST_P(IntegerParsing, StoresTextAndParsedValue) {
    const IntCase& c = GetParam();
    ASSERT_TRUE(face->SetProperty(c.property, c.text));
    EXPECT_STREQ(face->GetProperty(c.property, nullptr), c.text);
    const auto& node = probe.Node(c.property);
    const int64_t parsed = node.type == PROPERTY_INT64   ? node.parsed.i64
                           : node.type == PROPERTY_INT16 ? node.parsed.i16
                                                         : node.parsed.i32;
    EXPECT_EQ(parsed, c.expected);
    EXPECT_EQ(probe.lastName, c.property);
}

INSTANTIATE_TEST_SUITE_P(
    Tags, IntegerParsing,
    testing::Values(IntCase{"size", "42", 42}, IntCase{"size", "abc", 0},
                    IntCase{"size", "12.7", 12}, IntCase{"size", "-7x", -7}, IntCase{"size", "", 0},
                    IntCase{"big", "9000000000", 9000000000LL}, IntCase{"big", "-5", -5},
                    IntCase{"small", "70000", 4464}, IntCase{"small", "-3", -3}),
    [](const testing::TestParamInfo<IntCase>& info) {
        return std::string(info.param.property) + "_" + std::to_string(info.index);
    });

TEST_F(ProcessorFixture, DoubleKeepsPreviousValueOnText) {
    ASSERT_TRUE(face->SetProperty("ratio", "2.25"));
    EXPECT_DOUBLE_EQ(probe.Node("ratio").parsed.d, 2.25);
    ASSERT_TRUE(face->SetProperty("ratio", "abc"));
    EXPECT_DOUBLE_EQ(probe.Node("ratio").parsed.d, 2.25);
    EXPECT_STREQ(face->GetProperty("ratio", nullptr), "abc");
}

TEST_F(ProcessorFixture, TextPropertyPointsAtItsOwnText) {
    const auto& node = probe.Node("label");
    EXPECT_EQ(node.parsed.text, node.value.c_str());
    ASSERT_TRUE(face->SetProperty("label", "world"));
    EXPECT_EQ(node.parsed.text, node.value.c_str());
    EXPECT_STREQ(node.parsed.text, "world");
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
    EXPECT_EQ(face->GetProperty("xyz", &type), nullptr);
    EXPECT_EQ(type, 77);
    EXPECT_EQ(face->GetProperty(nullptr, &type), nullptr);
    EXPECT_EQ(watch.Count(), 5u);
}

TEST_F(ProcessorFixture, GetPropertyReportsTag) {
    int type = -1;
    EXPECT_STREQ(face->GetProperty("ratio", &type), "0.5");
    EXPECT_EQ(type, int{PROPERTY_DOUBLE});
}

TEST_F(ProcessorFixture, PropertyNamesInByteOrder) {
    GStringList* names = face->GetPropertyNames();
    ASSERT_NE(names, nullptr);
    std::vector<std::string> got;
    for (unsigned i = 0; i < names->GetCount(); ++i)
        got.push_back(names->GetAt(i)->GetString());
    names->Free();
    EXPECT_EQ(got,
              (std::vector<std::string>{"big", "duration", "label", "ratio", "size", "small"}));
}
