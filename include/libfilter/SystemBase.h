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

    // Each byte as two uppercase digits followed by `separator` (after the last byte too).
    // Empty for null data.
    static std::string BinToHex(void* data, unsigned length, std::string separator);
    // Each byte as two uppercase digits, no separator.
    static std::string DataToHex(const std::string& data);
    // The inverse of DataToHex. Digits of either case are read a pair at a time, high digit
    // first; decoding stops at the first pair that is not two hex digits, and a lone last
    // digit is ignored, so the result holds the bytes read up to there.
    static std::string HexToData(const std::string& hex);
    // The inverse of BinToHex: reads pairs of hex digits (either case), each followed by
    // `separator` (optional after the last pair), into at most `capacity` bytes of `data`.
    // Stops at the first malformed pair or missing separator. Answers the bytes written;
    // 0 for null data.
    static unsigned HexToBin(const std::string& hex, void* data, unsigned capacity,
                             const std::string& separator);
};

// ---- UTF-8 and wide text (one code point per wchar_t) ----

// Length announced by the lead byte: 1 to 4; 0 for null s, n of 0 or a zero byte;
// kNotFound for any other lead byte (a continuation byte included).
unsigned u8len(const char* s, size_t n);
// Decodes one sequence into *out and answers the bytes used. kNotFound for null out or a
// continuation byte that is not 10xxxxxx; 0 for null s or a zero byte. Reads no further than
// the first byte that breaks the sequence, so a terminated text is never overrun. n is not
// consulted; overlong forms and surrogates are accepted.
unsigned u8towc(wchar_t* out, const char* s, size_t n);
// Encodes c (up to 0x1FFFFF, beyond Unicode's range too) followed by a zero byte; out needs
// 5 bytes. Answers the bytes of the sequence; kNotFound above 0x1FFFFF or for null out.
unsigned wctou8(char* out, wchar_t c);
// Bytes wctou8 writes for c (1 to 4), kNotFound above 0x1FFFFF.
unsigned wcu8len(wchar_t c);
// Characters in a UTF-8 text. An invalid lead byte skips one byte but counts 6, so that a
// buffer sized from the count is always large enough. 0 for null.
size_t u8swcslen(const char* s);
// UTF-8 bytes a wide text needs; a code point at or above 0x200000 counts 6. 0 for null.
size_t wcsu8slen(const wchar_t* s);
// Decodes into out, at most `capacity` characters, zero-terminated when room remains; stops
// at the first invalid sequence. Answers the characters written; with null out, u8swcslen(s).
size_t u8stowcs(wchar_t* out, const char* s, size_t capacity);
// Encodes into out, never splitting a character past `capacity` bytes, zero-terminated when
// room remains; stops at the first code point above 0x1FFFFF. Answers the bytes written; with
// null out, wcsu8slen(s).
size_t wcstou8s(char* out, const wchar_t* s, size_t capacity);

// Whole texts; decoding stops at the first invalid sequence. Null gives an empty text.
std::wstring utf8_to_wide(const char* text);
std::string wide_to_utf8(const wchar_t* text);
// The system's local encoding is UTF-8: both answer the text unchanged.
std::string local_to_utf8(const char* text);
std::string utf8_to_local(const char* text);

// ---- Hexadecimal ----

// "0"-"9" give 0-9 and "a"-"f" give 10-15; anything else, uppercase included, gives 255.
unsigned char chr2hex(char c);
// Decodes `length` characters of hex digits (either case), two per byte, into at most
// `capacity` bytes of out. Stops at the first pair that is not two hex digits; a lone last
// digit is ignored. Answers the bytes written; 0 when hex or out is null.
size_t hex2bin(const char* hex, size_t length, unsigned char* out, size_t capacity);

// ---- Base64 ----

class ZBase64 {
public:
    // The standard alphabet with "=" padding. With lineBreaks, "\r\n" follows every 76
    // characters of full groups; the padded tail never triggers a break. Empty for null data
    // or a length of 0 or less.
    static std::string Encode(const unsigned char* data, int length, bool lineBreaks);
    // Appends the bytes of the first `length` characters of text to out and answers a copy of
    // out. "\r" and "\n" between groups are skipped; characters outside the alphabet decode as
    // 0, without error. A group cut short by `length` counts its missing characters as "="
    // (a single left-over character gives nothing). Null text leaves out as it is.
    static std::string Decode(const char* text, int length, std::string& out);
};

// ---- System services ----

bool set_environment_variable(const std::string& name, const std::string& value);
// False, value untouched, when the variable is unset.
bool get_environment_variable(const std::string& name, std::string& value);
bool delete_environment_variable(const std::string& name);  // always true
std::string get_home_path();                                // $HOME, empty when unset

// Milliseconds since the first call in the process, from the monotonic clock. Should the
// clock's timebase be unavailable, logs the failure and answers the wall clock instead.
uint64_t get_system_time();
// Processors online; 1 when the system cannot say.
unsigned get_cpu_count();
// A fresh random UUID in its 36-character text form, between "{" and "}" with braces.
std::string generate_guid(bool braces);
void system_sleep(unsigned ms);
double angle_to_radian(double degrees);

// dlopen(path, RTLD_LAZY) / dlsym / dlclose. Null arguments answer null or do nothing (a
// null handle is not taken as "search every loaded library").
void* load_dll(const char* path);
void* get_proc_addr(void* handle, const char* name);
void free_dll(void* handle);
// Appends ":" and directory to LD_LIBRARY_PATH unless it is listed already. The colon goes in
// even when the variable was unset or empty, leaving a leading ":".
void set_dll_load_path(const std::string& directory);

class SystemUtils {
public:
    // Always false: callers have long relied on that answer.
    static bool OSIs64Bit();
    // Free space of the file system holding `path`, in KiB, counting blocks reserved for the
    // superuser; 0 when the path cannot be examined.
    static uint64_t GetDiskFreeSpaceByPath(const std::string& path);
};

}  // namespace SystemBase
