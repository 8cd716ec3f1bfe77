// The GStringFormat text helpers on arbitrary texts, positions and counts, with the results
// checked where a rule fixes them: splitting keeps every byte that is not a delimiter, searches
// answer real occurrences, wildcard matching agrees with a plain recursive reading of "*" and
// "?", and formatting either gives the text or says it could not.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "libfilter/SystemBase.h"

using SystemBase::GStringFormat;
using SystemBase::kNotFound;

namespace {

void Require(bool condition) {
    if (!condition) __builtin_trap();
}

bool SameLetter(char a, char b) {
    return std::toupper(static_cast<unsigned char>(a)) ==
           std::toupper(static_cast<unsigned char>(b));
}

// The wildcard rule read plainly: fits[i][j] tells whether text from i matches pattern from j.
bool Matches(const std::string& text, const std::string& pattern) {
    std::vector<std::vector<char>> fits(text.size() + 1, std::vector<char>(pattern.size() + 1));
    fits[text.size()][pattern.size()] = 1;
    for (size_t i = text.size() + 1; i-- > 0;) {
        for (size_t j = pattern.size(); j-- > 0;) {
            const bool more = i < text.size();
            if (pattern[j] == '*') {
                fits[i][j] = fits[i][j + 1] || (more && fits[i + 1][j]);
            } else {
                fits[i][j] = more && (pattern[j] == '?' || SameLetter(pattern[j], text[i])) &&
                             fits[i + 1][j + 1];
            }
        }
    }
    return fits[0][0];
}

void Splits(const std::string& text, const std::string& delimiters) {
    std::string kept;
    size_t cuts = 0;
    for (char c : text) {
        if (delimiters.find(c) == std::string::npos)
            kept += c;
        else
            ++cuts;
    }
    const auto all = GStringFormat::Split(text, delimiters, true);
    std::string joined;
    for (const std::string& token : all)
        joined += token;
    Require(joined == kept);
    Require(all.size() == (text.empty() ? 1 : cuts + 1));
    for (const std::string& token : GStringFormat::Split(text, delimiters, false))
        Require(!token.empty());
    const std::wstring wide(text.begin(), text.end()),
        wideDelimiters(delimiters.begin(), delimiters.end());
    Require(GStringFormat::WStrSplit(wide, wideDelimiters, true).size() == all.size());
}

void Searches(const std::string& text, const std::string& sub, unsigned start) {
    const unsigned first = GStringFormat::StrPos(text, start, sub);
    Require(first == kNotFound || (first >= start && text.compare(first, sub.size(), sub) == 0));
    const unsigned last = GStringFormat::StrRPos(text, start, sub);
    Require(last == kNotFound || text.compare(last, sub.size(), sub) == 0);
    if (!sub.empty()) Require(GStringFormat::Replace(text, sub, sub) == text);
    Require(GStringFormat::LeftStr(text, start).size() == std::min<size_t>(start, text.size()));
    Require(GStringFormat::RightStr(text, start).size() == std::min<size_t>(start, text.size()));
    GStringFormat::SubStr(text, start, static_cast<unsigned>(sub.size()));
    GStringFormat::TrimLR(text, sub);
    std::string name = "unset", value = "unset";
    if (GStringFormat::GetNameValue(text, sub, name, value)) {
        Require(name + sub + value == text);
    }
}

void Conversions(FuzzedDataProvider& input, const std::string& text) {
    GStringFormat::StrToInt(text, input.ConsumeBool());
    GStringFormat::StrToInt64(input.ConsumeBool() ? text.c_str() : nullptr);
    GStringFormat::StrToDouble(text);
    GStringFormat::IntToStr(input.ConsumeIntegral<int>());
    GStringFormat::Int64ToStr(input.ConsumeIntegral<long long>());
    GStringFormat::DoubleToStr(input.ConsumeFloatingPoint<double>());
    const int width = input.ConsumeIntegralInRange(-4, 64);
    const std::string fixed = GStringFormat::IntToFixStr(
        input.ConsumeIntegral<int>(), width, input.ConsumeIntegral<char>(), input.ConsumeBool());
    Require(fixed.size() >= static_cast<size_t>(std::max(width, 1)));
    Require(GStringFormat::ToUpper(text).size() == text.size());
    Require(GStringFormat::ToLower(text).size() == text.size());
    GStringFormat::StrCaseCmp(input.ConsumeBool() ? text.c_str() : nullptr, text.c_str());
    GStringFormat::StrNCaseCmp(text.c_str(), nullptr, input.ConsumeIntegral<unsigned>());
}

void Formats(FuzzedDataProvider& input, const std::string& text) {
    // Texts past the 4096-byte buffer must give the fixed failure text, never a cut one.
    std::string long_text;
    for (int i = input.ConsumeIntegralInRange(1, 40); i > 0; --i)
        long_text += text;
    const std::string c_text = long_text.c_str();
    const std::string formatted = GStringFormat::Format("%s", c_text.c_str());
    Require(formatted == (c_text.size() < 4096 ? c_text : "<formatting error or buffer exceeded>"));
    GStringFormat::Format("%d:%.*s", input.ConsumeIntegral<int>(),
                          input.ConsumeIntegralInRange(0, 5000), c_text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string text = input.ConsumeRandomLengthString(128);
    const std::string other = input.ConsumeRandomLengthString(16);
    const unsigned start = input.ConsumeIntegralInRange<unsigned>(0, 140);
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            Splits(text, other);
            break;
        case 1:
            Searches(text, other, start);
            break;
        case 2:
            Require(GStringFormat::Match(text.c_str(), other.c_str()) ==
                    Matches(text.c_str(), other.c_str()));
            break;
        case 3:
            Conversions(input, text);
            break;
        default:
            Formats(input, text);
            break;
    }
    return 0;
}
