// General utilities: text formatting and parsing, encodings and system services.
//
// Texts are byte strings compared as unsigned characters, without locale. Positions and
// lengths are unsigned 32-bit; kNotFound (0xFFFFFFFF) marks a failed search or an invalid
// UTF-8 sequence. Null pointer arguments never crash: each function states what it answers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace SystemBase {

constexpr unsigned kNotFound = 0xFFFFFFFFu;

class GStringFormat {
public:
    // printf-style formatting; a text that does not fit 4096 bytes (or a formatting error)
    // gives "<formatting error or buffer exceeded>" instead of a silently cut text.
    static std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // Every byte of `delimiters` delimits on its own. Empty tokens are kept only with
    // keepEmpty, the last one included: "a,,b," gives a,b or a,"",b,"".
    static std::vector<std::string> Split(const std::string& text, const std::string& delimiters,
                                          bool keepEmpty);
    static std::vector<std::wstring> WStrSplit(const std::wstring& text,
                                               const std::wstring& delimiters, bool keepEmpty);

    // ASCII letters only; every other byte is kept.
    static std::string ToUpper(const std::string& text);
    static std::string ToLower(const std::string& text);

    // First occurrence of `sub` at or after `start`; kNotFound when start is past the text,
    // sub is empty or there is none.
    static unsigned StrPos(const std::string& text, unsigned start, const std::string& sub);
    // Last occurrence beginning at or before `start` (clamped to the last byte); kNotFound
    // for an empty text or sub, or when there is none.
    static unsigned StrRPos(const std::string& text, unsigned start, const std::string& sub);

    // `chars` is a set of bytes to drop from the left, the right or both ends.
    static std::string StrTrim(const std::string& text, const std::string& chars);
    static std::string StrRTrim(const std::string& text, const std::string& chars);
    static std::string TrimLR(const std::string& text, const std::string& chars);

    // The first or last n bytes, or the whole text when n is not below its length. They
    // report "malloc memory failed" and answer an empty text if their buffer cannot be had.
    static std::string LeftStr(const std::string& text, unsigned n);
    static std::string RightStr(const std::string& text, unsigned n);
    // Up to n bytes from `start`, ending early at a zero byte; empty when start is past the end.
    static std::string SubStr(const std::string& text, unsigned start, unsigned n);

    // Replaces every occurrence of `from`; inserted text is never searched again.
    static std::string Replace(const std::string& text, const std::string& from,
                               const std::string& to);

    // Case-insensitive wildcard match of the whole text: "*" any run, "?" one byte.
    // False when either pointer is null.
    static bool Match(const char* text, const char* pattern);

    // strcasecmp / strncasecmp; a null pointer compares as an empty text.
    static int StrCaseCmp(const char* a, const char* b);
    static int StrNCaseCmp(const char* a, const char* b, unsigned n);

    // As a standard output stream writes them (DoubleToStr: 6 significant digits).
    static std::string IntToStr(int value);
    static std::string Int64ToStr(long long value);
    static std::string DoubleToStr(double value);
    // Right-aligned in `width` bytes of `fill` when width > 0, lowercase hex without prefix
    // when `hex`. A negative decimal keeps its sign ahead of the fill: -5, 4, '0' gives -005.
    static std::string IntToFixStr(int value, int width, char fill, bool hex);

    // sscanf conversions; 0 when nothing can be read (and for a null or empty StrToInt64 text).
    static int StrToInt(const std::string& text, bool hex);
    static long long StrToInt64(const char* text);
    static double StrToDouble(const std::string& text);

    // Splits "name<separator>value" at the first separator. False, with name and value
    // untouched, when the separator is empty, longer than the text, absent or at position 0.
    static bool GetNameValue(std::string text, std::string separator, std::string& name,
                             std::string& value);
};

}  // namespace SystemBase
