#include <strings.h>
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <locale>
#include <memory>
#include <new>
#include <sstream>

#include "base/ErrorReport.h"
#include "libfilter/SystemBase.h"

namespace SystemBase {

namespace {

constexpr const char* kFile = MediaCore::ErrorFile::kGString;

unsigned ToPosition(size_t pos) {
    return pos == std::string::npos ? kNotFound : static_cast<unsigned>(pos);
}

template <class Text>
std::vector<Text> SplitText(const Text& text, const Text& delimiters, bool keepEmpty) {
    std::vector<Text> tokens;
    Text token;
    for (const auto c : text) {
        if (delimiters.find(c) == Text::npos) {
            token.push_back(c);
            continue;
        }
        if (!token.empty() || keepEmpty) tokens.push_back(token);
        token.clear();
    }
    if (!token.empty() || keepEmpty) tokens.push_back(token);
    return tokens;
}

// Streams write numbers the same way whatever locale the host has installed.
std::ostringstream ClassicStream() {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    return out;
}

template <class Value>
std::string StreamText(Value value) {
    std::ostringstream out = ClassicStream();
    out << value;
    return out.str();
}

// The first n bytes of `text`, through a heap buffer whose failure is reported, not thrown.
std::string CopyPrefix(const char* text, unsigned n) {
    return LF_GUARDED(kFile, [&] {
        std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t{n} + 1]);
        if (!buffer) LF_RAISE(kFile, MediaCore::ErrorText::kMallocFailed);
        std::memcpy(buffer.get(), text, n);
        buffer[n] = '\0';
        return std::string(buffer.get(), n);
    });
}

// Moves the 26 ASCII letters starting at `from` to those starting at `to`; other bytes stay.
std::string ShiftAsciiCase(std::string text, char from, char to) {
    for (char& c : text) {
        if (c >= from && c < from + 26) c = static_cast<char>(c - from + to);
    }
    return text;
}

int Upper(char c) {
    return std::toupper(static_cast<unsigned char>(c));
}

}  // namespace

std::string GStringFormat::Format(const char* format, ...) {
    constexpr unsigned kBufferSize = 4096;
    char buffer[kBufferSize];
    if (format == nullptr) return std::string();
    va_list args;
    va_start(args, format);
    const int count = std::vsnprintf(buffer, kBufferSize, format, args);
    va_end(args);
    // A negative count (an error) also fails the unsigned comparison.
    if (static_cast<unsigned>(count) < kBufferSize) return std::string(buffer, count);
    return "<formatting error or buffer exceeded>";
}

std::vector<std::string> GStringFormat::Split(const std::string& text,
                                              const std::string& delimiters, bool keepEmpty) {
    return SplitText(text, delimiters, keepEmpty);
}

std::vector<std::wstring> GStringFormat::WStrSplit(const std::wstring& text,
                                                   const std::wstring& delimiters, bool keepEmpty) {
    return SplitText(text, delimiters, keepEmpty);
}

std::string GStringFormat::ToUpper(const std::string& text) {
    return ShiftAsciiCase(text, 'a', 'A');
}

std::string GStringFormat::ToLower(const std::string& text) {
    return ShiftAsciiCase(text, 'A', 'a');
}

unsigned GStringFormat::StrPos(const std::string& text, unsigned start, const std::string& sub) {
    if (start >= text.size() || sub.empty()) return kNotFound;
    return ToPosition(text.find(sub, start));
}

unsigned GStringFormat::StrRPos(const std::string& text, unsigned start, const std::string& sub) {
    if (text.empty() || sub.empty()) return kNotFound;
    const size_t from = std::min<size_t>(start, text.size() - 1);
    return ToPosition(text.rfind(sub, from));
}

std::string GStringFormat::StrTrim(const std::string& text, const std::string& chars) {
    if (chars.empty()) return text;
    const size_t first = text.find_first_not_of(chars);
    return first == std::string::npos ? std::string() : text.substr(first);
}

std::string GStringFormat::StrRTrim(const std::string& text, const std::string& chars) {
    if (chars.empty()) return text;
    const size_t last = text.find_last_not_of(chars);
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

std::string GStringFormat::TrimLR(const std::string& text, const std::string& chars) {
    return StrRTrim(StrTrim(text, chars), chars);
}

std::string GStringFormat::LeftStr(const std::string& text, unsigned n) {
    if (n >= text.size()) return text;
    return CopyPrefix(text.data(), n);
}

std::string GStringFormat::RightStr(const std::string& text, unsigned n) {
    if (n >= text.size()) return text;
    return CopyPrefix(text.data() + (text.size() - n), n);
}

std::string GStringFormat::SubStr(const std::string& text, unsigned start, unsigned n) {
    if (start >= text.size()) return std::string();
    // The tail is read as a C text, so it ends at an embedded zero byte.
    return LeftStr(std::string(text.c_str() + start), n);
}

std::string GStringFormat::Replace(const std::string& text, const std::string& from,
                                   const std::string& to) {
    if (from.empty()) return text;
    std::string result = text;
    size_t pos = result.find(from);
    while (pos != std::string::npos) {
        result.replace(pos, from.size(), to);
        pos = result.find(from, pos + to.size());
    }
    return result;
}

// Greedy matching that returns to the last "*" on a mismatch and lets it swallow one more
// byte. This answers exactly what trying every skip shortest-first would, without recursion
// or exponential time on long texts.
bool GStringFormat::Match(const char* text, const char* pattern) {
    if (text == nullptr || pattern == nullptr) return false;
    const char* star = nullptr;  // the pattern just after the last "*" seen
    const char* resume = nullptr;
    while (*text != '\0') {
        if (*pattern == '*') {
            while (*pattern == '*')
                ++pattern;
            star = pattern;
            resume = text;
        } else if (*pattern != '\0' && (*pattern == '?' || Upper(*pattern) == Upper(*text))) {
            ++pattern;
            ++text;
        } else if (star != nullptr) {
            pattern = star;
            text = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

int GStringFormat::StrCaseCmp(const char* a, const char* b) {
    return strcasecmp(a != nullptr ? a : "", b != nullptr ? b : "");
}

int GStringFormat::StrNCaseCmp(const char* a, const char* b, unsigned n) {
    return strncasecmp(a != nullptr ? a : "", b != nullptr ? b : "", n);
}

std::string GStringFormat::IntToStr(int value) {
    return StreamText(value);
}

std::string GStringFormat::Int64ToStr(long long value) {
    return StreamText(value);
}

std::string GStringFormat::DoubleToStr(double value) {
    return StreamText(value);
}

std::string GStringFormat::IntToFixStr(int value, int width, char fill, bool hex) {
    std::ostringstream out = ClassicStream();
    if (width > 0) {
        // internal: fill goes between a sign and the digits, otherwise on the left.
        out << std::setw(width) << std::setfill(fill) << std::internal;
    }
    if (hex) out << std::hex;
    out << value;
    return out.str();
}

int GStringFormat::StrToInt(const std::string& text, bool hex) {
    if (hex) {
        unsigned value = 0;
        return std::sscanf(text.c_str(), "%x", &value) == 1 ? static_cast<int>(value) : 0;
    }
    int value = 0;
    return std::sscanf(text.c_str(), "%d", &value) == 1 ? value : 0;
}

long long GStringFormat::StrToInt64(const char* text) {
    if (text == nullptr || *text == '\0') return 0;
    long long value = 0;
    return std::sscanf(text, "%lld", &value) == 1 ? value : 0;
}

double GStringFormat::StrToDouble(const std::string& text) {
    double value = 0;
    return std::sscanf(text.c_str(), "%lf", &value) == 1 ? value : 0;
}

bool GStringFormat::GetNameValue(std::string text, std::string separator, std::string& name,
                                 std::string& value) {
    if (separator.empty() || separator.size() > text.size()) return false;
    const size_t at = text.find(separator);
    if (at == std::string::npos || at == 0) return false;
    name = text.substr(0, at);
    value = text.substr(at + separator.size());
    return true;
}

}  // namespace SystemBase
