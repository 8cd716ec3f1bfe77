// UTF-8 and wide text, hexadecimal and Base64 on arbitrary bytes. Texts sit in heap blocks of
// exactly their length (plus the terminator where the function reads one), outputs in blocks
// of exactly the capacity given, so any overrun faults. Round trips that must hold are checked.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "libfilter/SystemBase.h"

using namespace SystemBase;

namespace {

// A heap block of exactly `count` elements, released on scope exit.
template <class T>
class Exact {
public:
    explicit Exact(size_t count) : data_(static_cast<T*>(std::malloc(count * sizeof(T)))) {}
    ~Exact() { std::free(data_); }
    Exact(const Exact&) = delete;
    Exact& operator=(const Exact&) = delete;
    T* Get() { return data_; }

private:
    T* data_;
};

void Require(bool condition) {
    if (!condition) __builtin_trap();
}

void Utf8(const std::string& bytes, FuzzedDataProvider& input) {
    Exact<char> text(bytes.size() + 1);
    std::memcpy(text.Get(), bytes.c_str(), bytes.size() + 1);
    const char* s = text.Get();
    u8len(s, input.ConsumeIntegralInRange<size_t>(0, 8));
    // Walk the text one sequence at a time, as a caller decoding by hand would.
    for (const char* p = s; *p != '\0';) {
        wchar_t c = 0;
        const unsigned used = u8towc(&c, p, 4);
        if (used == 0 || used == kNotFound) break;
        p += used;
    }
    const size_t characters = u8swcslen(s);
    const size_t capacity = input.ConsumeIntegralInRange<size_t>(0, characters + 1);
    Exact<wchar_t> wide(capacity);
    Require(u8stowcs(wide.Get(), s, capacity) <= capacity);
    const std::wstring decoded = utf8_to_wide(s);
    Require(decoded.size() <= characters);
    wide_to_utf8(decoded.c_str());
}

void Wide(FuzzedDataProvider& input) {
    std::vector<wchar_t> code;
    const size_t count = input.ConsumeIntegralInRange<size_t>(0, 32);
    for (size_t i = 0; i < count; ++i) {
        const auto c = static_cast<wchar_t>(input.ConsumeIntegral<uint32_t>());
        code.push_back(c == 0 ? L'x' : c);
        char out[5];
        const unsigned length = wctou8(out, c);
        Require(length == wcu8len(c));
    }
    code.push_back(0);
    const size_t bytes = wcsu8slen(code.data());
    const size_t capacity = input.ConsumeIntegralInRange<size_t>(0, bytes + 1);
    Exact<char> out(capacity);
    Require(wcstou8s(out.Get(), code.data(), capacity) <= capacity);
    const std::string utf8 = wide_to_utf8(code.data());
    Require(utf8.size() <= bytes);
}

void Hex(const std::string& bytes, FuzzedDataProvider& input) {
    for (char c : bytes)
        chr2hex(c);
    const std::string separator = input.ConsumeRandomLengthString(3);
    const std::string hex = GStringFormat::DataToHex(bytes);
    Require(GStringFormat::HexToData(hex) == bytes);
    std::string copy = bytes;
    const std::string spaced = GStringFormat::BinToHex(copy.data(), copy.size(), separator);
    // Decoding arbitrary text into exact buffers.
    const unsigned capacity = input.ConsumeIntegralInRange<unsigned>(0, bytes.size() + 2);
    Exact<unsigned char> out(capacity);
    Require(GStringFormat::HexToBin(bytes, out.Get(), capacity, separator) <= capacity);
    Require(GStringFormat::HexToBin(spaced, out.Get(), capacity, separator) <= capacity);
    Exact<char> text(bytes.size());
    std::memcpy(text.Get(), bytes.data(), bytes.size());
    Require(hex2bin(text.Get(), bytes.size(), out.Get(), capacity) <= capacity);
    GStringFormat::HexToData(bytes);
}

void Base64(const std::string& bytes, FuzzedDataProvider& input) {
    const bool lineBreaks = input.ConsumeBool();
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::string text = ZBase64::Encode(data, static_cast<int>(bytes.size()), lineBreaks);
    std::string decoded;
    ZBase64::Decode(text.data(), static_cast<int>(text.size()), decoded);
    Require(decoded == bytes);
    // Arbitrary text without a terminator, decoded up to a length within it.
    Exact<char> raw(bytes.size());
    std::memcpy(raw.Get(), bytes.data(), bytes.size());
    std::string out;
    ZBase64::Decode(raw.Get(), input.ConsumeIntegralInRange<int>(-1, bytes.size()), out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string bytes = input.ConsumeRandomLengthString(256);
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            Utf8(bytes, input);
            break;
        case 1:
            Wide(input);
            break;
        case 2:
            Hex(bytes, input);
            break;
        default:
            Base64(bytes, input);
            break;
    }
    return 0;
}
