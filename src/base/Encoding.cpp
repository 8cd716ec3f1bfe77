// UTF-8 <-> wide text and bytes <-> hexadecimal text.
#include <cstring>
#include <vector>

#include "libfilter/SystemBase.h"

namespace SystemBase {

namespace {

constexpr unsigned kMaxCodePoint = 0x1FFFFF;  // the largest value four UTF-8 bytes can hold
// What the counting functions charge for an undecodable unit: more than any real sequence,
// so buffers sized from the counts always suffice.
constexpr size_t kInvalidUnitCost = 6;

unsigned char Byte(const char* s, size_t i) {
    return static_cast<unsigned char>(s[i]);
}

bool IsContinuation(unsigned char b) {
    return (b & 0xC0) == 0x80;
}

// Lead-byte payload masks for sequences of 1 to 4 bytes.
constexpr unsigned char kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};

// Hex digit of either case, or -1.
int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The byte spelled by two hex digits, or -1.
int HexPair(const char* pair) {
    const int high = HexValue(pair[0]);
    const int low = high < 0 ? -1 : HexValue(pair[1]);
    return low < 0 ? -1 : (high << 4) | low;
}

}  // namespace

unsigned u8len(const char* s, size_t n) {
    if (s == nullptr || n == 0 || s[0] == '\0') return 0;
    const unsigned char lead = Byte(s, 0);
    if (lead < 0x80) return 1;
    if ((lead & 0xE0) == 0xC0) return 2;
    if ((lead & 0xF0) == 0xE0) return 3;
    if ((lead & 0xF8) == 0xF0) return 4;
    return kNotFound;
}

unsigned u8towc(wchar_t* out, const char* s, size_t /*n*/) {
    if (out == nullptr) return kNotFound;
    const unsigned length = u8len(s, 1);
    if (length == 0 || length == kNotFound) return length;
    unsigned code = Byte(s, 0) & kLeadMask[length];
    for (unsigned i = 1; i < length; ++i) {
        // Checked byte by byte, so a terminating zero ends the read.
        if (!IsContinuation(Byte(s, i))) return kNotFound;
        code = (code << 6) | (Byte(s, i) & 0x3F);
    }
    *out = static_cast<wchar_t>(code);
    return length;
}

unsigned wcu8len(wchar_t c) {
    const auto code = static_cast<unsigned>(c);
    if (code < 0x80) return 1;
    if (code < 0x800) return 2;
    if (code <= 0xFFFF) return 3;
    if (code <= kMaxCodePoint) return 4;
    return kNotFound;
}

unsigned wctou8(char* out, wchar_t c) {
    const unsigned length = wcu8len(c);
    if (out == nullptr || length == kNotFound) return kNotFound;
    static constexpr unsigned char kLeadBits[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    auto code = static_cast<unsigned>(c);
    for (unsigned i = length - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (code & 0x3F));
        code >>= 6;
    }
    out[0] = static_cast<char>(kLeadBits[length] | code);
    out[length] = '\0';
    return length;
}

size_t u8swcslen(const char* s) {
    if (s == nullptr) return 0;
    size_t count = 0;
    while (*s != '\0') {
        const unsigned length = u8len(s, 1);
        if (length == kNotFound) {
            count += kInvalidUnitCost;
            ++s;
            continue;
        }
        ++count;
        // Skip what the lead byte announces, but never past the terminator.
        ++s;
        for (unsigned i = 1; i < length && *s != '\0'; ++i)
            ++s;
    }
    return count;
}

size_t wcsu8slen(const wchar_t* s) {
    if (s == nullptr) return 0;
    size_t count = 0;
    for (; *s != 0; ++s) {
        const unsigned length = wcu8len(*s);
        count += length == kNotFound ? kInvalidUnitCost : length;
    }
    return count;
}

size_t u8stowcs(wchar_t* out, const char* s, size_t capacity) {
    if (out == nullptr) return u8swcslen(s);
    size_t written = 0;
    if (s != nullptr) {
        while (written < capacity) {
            wchar_t c = 0;
            const unsigned used = u8towc(&c, s, 4);
            if (used == 0 || used == kNotFound) break;
            out[written++] = c;
            s += used;
        }
    }
    if (written < capacity) out[written] = 0;
    return written;
}

size_t wcstou8s(char* out, const wchar_t* s, size_t capacity) {
    if (out == nullptr) return wcsu8slen(s);
    size_t written = 0;
    for (; s != nullptr && *s != 0; ++s) {
        char sequence[5];
        const unsigned length = wctou8(sequence, *s);
        if (length == kNotFound || written + length > capacity) break;
        std::memcpy(out + written, sequence, length);
        written += length;
    }
    if (written < capacity) out[written] = '\0';
    return written;
}

std::wstring utf8_to_wide(const char* text) {
    if (text == nullptr) return std::wstring();
    std::vector<wchar_t> buffer(u8swcslen(text) + 1);
    const size_t count = u8stowcs(buffer.data(), text, buffer.size());
    return std::wstring(buffer.data(), count);
}

std::string wide_to_utf8(const wchar_t* text) {
    if (text == nullptr) return std::string();
    std::vector<char> buffer(wcsu8slen(text) + 1);
    const size_t length = wcstou8s(buffer.data(), text, buffer.size());
    return std::string(buffer.data(), length);
}

std::string local_to_utf8(const char* text) {
    return text != nullptr ? text : "";
}

std::string utf8_to_local(const char* text) {
    return text != nullptr ? text : "";
}

unsigned char chr2hex(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned char>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned char>(c - 'a' + 10);
    return 255;
}

size_t hex2bin(const char* hex, size_t length, unsigned char* out, size_t capacity) {
    if (hex == nullptr || out == nullptr) return 0;
    size_t written = 0;
    for (size_t i = 0; i + 1 < length && written < capacity; i += 2) {
        const int byte = HexPair(hex + i);
        if (byte < 0) break;
        out[written++] = static_cast<unsigned char>(byte);
    }
    return written;
}

std::string GStringFormat::BinToHex(void* data, unsigned length, std::string separator) {
    if (data == nullptr) return std::string();
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::string text;
    for (unsigned i = 0; i < length; ++i)
        text += Format("%02X%s", bytes[i], separator.c_str());
    return text;
}

std::string GStringFormat::DataToHex(const std::string& data) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(data.size() * 2);
    for (const char c : data) {
        const auto byte = static_cast<unsigned char>(c);
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0x0F]);
    }
    return text;
}

std::string GStringFormat::HexToData(const std::string& hex) {
    std::string data(hex.size() / 2, '\0');
    const size_t length =
        hex2bin(hex.data(), hex.size(), reinterpret_cast<unsigned char*>(data.data()), data.size());
    data.resize(length);
    return data;
}

unsigned GStringFormat::HexToBin(const std::string& hex, void* data, unsigned capacity,
                                 const std::string& separator) {
    if (data == nullptr) return 0;
    auto* out = static_cast<unsigned char*>(data);
    unsigned written = 0;
    size_t pos = 0;
    while (written < capacity && pos + 2 <= hex.size()) {
        const int byte = HexPair(hex.data() + pos);
        if (byte < 0) break;
        out[written++] = static_cast<unsigned char>(byte);
        pos += 2;
        if (pos == hex.size()) break;
        if (hex.compare(pos, separator.size(), separator) != 0) break;
        pos += separator.size();
    }
    return written;
}

}  // namespace SystemBase
