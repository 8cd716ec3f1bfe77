#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "libfilter/SystemBase.h"

using SystemBase::GStringFormat;
using SystemBase::kNotFound;
using Strings = std::vector<std::string>;

TEST(GStringFormat, FormatRefusesTextsThatDoNotFit) {
    EXPECT_EQ(GStringFormat::Format("No the effect=%d", 14), "No the effect=14");
    EXPECT_EQ(GStringFormat::Format("%s", std::string(4095, 'x').c_str()), std::string(4095, 'x'));
    for (size_t length : {4096, 100000}) {
        EXPECT_EQ(GStringFormat::Format("%s", std::string(length, 'x').c_str()),
                  "<formatting error or buffer exceeded>");
    }
}

TEST(GStringFormat, SplitTreatsDelimitersAsASet) {
    const std::tuple<const char*, const char*, bool, Strings> cases[] = {
        {"a,,b,", ",", false, {"a", "b"}},
        {"a,,b,", ",", true, {"a", "", "b", ""}},
        {",,a", ",", false, {"a"}},
        {"", ",", false, {}},
        {"", ",", true, {""}},
        {"a b;c", "; ", false, {"a", "b", "c"}},
        {"a,b", "", false, {"a,b"}}};
    for (const auto& [text, delimiters, keepEmpty, expected] : cases)
        EXPECT_EQ(GStringFormat::Split(text, delimiters, keepEmpty), expected) << text;
    EXPECT_EQ(GStringFormat::WStrSplit(L"x::y", L":", true),
              (std::vector<std::wstring>{L"x", L"", L"y"}));
}

TEST(GStringFormat, SearchingAndCutting) {
    const std::pair<unsigned, unsigned> positions[] = {
        {GStringFormat::StrPos("abcabc", 2, "bc"), 4},
        {GStringFormat::StrPos("abcabc", 0, ""), kNotFound},
        {GStringFormat::StrPos("abcabc", 6, "c"), kNotFound},
        {GStringFormat::StrRPos("abcabc", 100, "bc"), 4},  // start clamped
        {GStringFormat::StrRPos("abcabc", 3, "bc"), 1},
        {GStringFormat::StrRPos("abcabc", 0, "bc"), kNotFound},
        {GStringFormat::StrRPos("", 0, "a"), kNotFound}};
    for (const auto& p : positions)
        EXPECT_EQ(p.first, p.second) << "case " << &p - positions;

    const std::pair<std::string, std::string> texts[] = {
        {GStringFormat::StrTrim(" \t x \t", " \t"), "x \t"},
        {GStringFormat::StrRTrim(" \t x \t", "\t "), " \t x"},
        {GStringFormat::TrimLR("----", "-"), ""},
        {GStringFormat::TrimLR(" x ", ""), " x "},
        {GStringFormat::LeftStr("hello", 2), "he"},
        {GStringFormat::LeftStr("hello", 9), "hello"},
        {GStringFormat::RightStr("hello", 3), "llo"},
        {GStringFormat::SubStr("hello", 1, 3), "ell"},
        {GStringFormat::SubStr("hello", 5, 3), ""},
        {GStringFormat::SubStr(std::string("ab\0cd", 5), 1, 4), "b"},  // ends at a zero byte
        {GStringFormat::ToUpper("aZ\xe9-q"), "AZ\xe9-Q"},
        {GStringFormat::ToLower("Az\xc9-Q"), "az\xc9-q"},
        {GStringFormat::Replace("aaa", "a", "aa"), "aaaaaa"},  // inserted text not searched
        {GStringFormat::Replace("xyx", "x", ""), "y"},
        {GStringFormat::Replace("abc", "", "x"), "abc"}};
    for (const auto& t : texts)
        EXPECT_EQ(t.first, t.second) << "case " << &t - texts;
}

TEST(GStringFormat, MatchWildcards) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"ABC", "a?c", true},   {"anything", "*", true}, {"", "?", false},
        {"", "*", true},        {"a", "", false},        {"abc", "ab", false},
        {"abcbc", "*bc", true}, {"abcbd", "*bc", false}, {"ab", "a**b", true},
        {"ab", "*?*?*", true},  {"a", "*?*?*", false},   {"x.TXT", "*.txt", true},
        {nullptr, "*", false},  {"a", nullptr, false}};
    for (const auto& [text, pattern, matches] : cases)
        EXPECT_EQ(GStringFormat::Match(text, pattern), matches) << (text ? text : "null");
    // Many stars over a long text must not take exponential time.
    EXPECT_FALSE(GStringFormat::Match(std::string(20000, 'a').c_str(), "*a*a*a*a*a*a*b"));
    EXPECT_EQ(GStringFormat::StrCaseCmp("Hello", "hELLO"), 0);
    EXPECT_EQ(GStringFormat::StrNCaseCmp("abcX", "ABCy", 3), 0);
    EXPECT_GT(GStringFormat::StrCaseCmp("a", nullptr), 0);  // null reads as empty
}

TEST(GStringFormat, NumbersAndText) {
    EXPECT_EQ(GStringFormat::Int64ToStr(-9000000000LL), "-9000000000");
    EXPECT_EQ(GStringFormat::DoubleToStr(1234567.0), "1.23457e+06");
    EXPECT_EQ(GStringFormat::DoubleToStr(0.1), "0.1");
    const std::tuple<int, int, char, bool, const char*> cases[] = {
        {5, 3, '0', false, "005"},   {255, 4, ' ', true, "  ff"}, {-5, 4, '0', false, "-005"},
        {123, 2, '0', false, "123"}, {42, 0, 'x', false, "42"},   {-1, 0, ' ', true, "ffffffff"}};
    for (const auto& [value, width, fill, hex, expected] : cases)
        EXPECT_EQ(GStringFormat::IntToFixStr(value, width, fill, hex), expected);
    EXPECT_EQ(GStringFormat::StrToInt("12abc", false), 12);
    EXPECT_EQ(GStringFormat::StrToInt("abc", false), 0);
    EXPECT_EQ(GStringFormat::StrToInt("ff", true), 255);
    EXPECT_EQ(GStringFormat::StrToInt64("9000000000"), 9000000000LL);
    EXPECT_EQ(GStringFormat::StrToInt64(nullptr), 0);
    EXPECT_DOUBLE_EQ(GStringFormat::StrToDouble("n/a"), 0.0);
}

TEST(GStringFormat, GetNameValueSplitsAtTheFirstSeparator) {
    // Name and value are left as they were ("-") on failure.
    const std::tuple<const char*, const char*, bool, const char*, const char*> cases[] = {
        {"a=b", "=", true, "a", "b"},         {"a=", "=", true, "a", ""},
        {"k::v::w", "::", true, "k", "v::w"}, {"=x", "=", false, "-", "-"},
        {"ab", "", false, "-", "-"},          {"a", "==", false, "-", "-"},
        {"abc", ":", false, "-", "-"}};
    for (const auto& [text, separator, ok, wantName, wantValue] : cases) {
        std::string name = "-", value = "-";
        EXPECT_EQ(GStringFormat::GetNameValue(text, separator, name, value), ok) << text;
        EXPECT_EQ(name + "|" + value, std::string(wantName) + "|" + wantValue);
    }
}
