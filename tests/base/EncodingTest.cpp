#include <gtest/gtest.h>

#include <random>
#include <string>

#include "libfilter/SystemBase.h"

using namespace SystemBase;

namespace {

std::string RandomBytes(std::mt19937& rng, size_t length) {
    std::string data(length, '\0');
    for (char& c : data)
        c = static_cast<char>(rng());
    return data;
}

}  // namespace

TEST(Utf8, SingleCharacters) {
    struct Case {
        const char* text;
        unsigned length, used, code;  // u8len, then u8towc's bytes and code point
    };
    const Case cases[] = {{"\xC3\xA9", 2, 2, 0xE9},
                          {"\xF7\xBF\xBF\xBF", 4, 4, 0x1FFFFF},
                          {"\xC0\x80", 2, 2, 0},           // overlong forms are accepted
                          {"\xED\xA0\x80", 3, 3, 0xD800},  // so are surrogates
                          {"\xC3\x41", 2, kNotFound, 0},   // continuation byte not 10xxxxxx
                          {"\xE2\x82", 3, kNotFound, 0},   // cut short by the terminator
                          {"\x80", kNotFound, kNotFound, 0},
                          {"\xF8", kNotFound, kNotFound, 0},
                          {"", 0, 0, 0},
                          {nullptr, 0, 0, 0}};
    for (const Case& c : cases) {
        wchar_t out = 0;
        EXPECT_EQ(u8len(c.text, 1), c.length);
        EXPECT_EQ(u8towc(&out, c.text, 0), c.used);
        EXPECT_EQ(static_cast<unsigned>(out), c.code);
    }
    EXPECT_EQ(u8len("A", 0), 0u);
    EXPECT_EQ(u8towc(nullptr, "A", 1), kNotFound);

    const unsigned bounds[][2] = {{0x7F, 1},   {0x80, 2},    {0x7FF, 2},    {0x800, 3},
                                  {0xFFFF, 3}, {0x10000, 4}, {0x1FFFFF, 4}, {0x200000, kNotFound}};
    for (const auto& [code, length] : bounds) {
        char out[5] = "xxxx";
        EXPECT_EQ(wcu8len(static_cast<wchar_t>(code)), length);
        EXPECT_EQ(wctou8(out, static_cast<wchar_t>(code)), length);
        // The terminator follows the sequence; nothing at all is written for a bad value.
        EXPECT_EQ(out[length == kNotFound ? 0 : length], length == kNotFound ? 'x' : '\0');
    }
    EXPECT_EQ(wctou8(nullptr, L'a'), kNotFound);
}

TEST(Utf8, CountsChargeSixForWhatCannotBeEncodedAndBoundsHoldTheirCapacity) {
    EXPECT_EQ(u8swcslen("\xFF"), 6u);
    EXPECT_EQ(u8swcslen("a\x80"
                        "b\xE2\x82\xAC"),
              1u + 6u + 1u + 1u);
    EXPECT_EQ(u8swcslen("\xE2"), 1u);  // announced length cut short by the terminator
    const wchar_t wide[] = {L'a', 0xE9, 0x20AC, 0x1F600, 0x200000, 0};
    EXPECT_EQ(wcsu8slen(wide), 1u + 2u + 3u + 4u + 6u);
    EXPECT_EQ(u8stowcs(nullptr, "\xFFx", 0), 7u);
    EXPECT_EQ(wcstou8s(nullptr, wide, 0), 16u);
    EXPECT_EQ(u8swcslen(nullptr) + wcsu8slen(nullptr), 0u);
    // Bounded conversions respect their capacity.
    wchar_t out[4] = {9, 9, 9, 9};
    EXPECT_EQ(u8stowcs(out, "a\xC3\xA9z", 2), 2u);
    EXPECT_EQ(out[2], 9);  // no room: not terminated
    EXPECT_EQ(u8stowcs(out, "a\xC3\xA9z", 4), 3u);
    EXPECT_EQ(out[3], 0);
    char bytes[5] = "####";
    const wchar_t euro[] = {L'a', 0x20AC, 0};
    EXPECT_EQ(wcstou8s(bytes, euro, 3), 1u);  // the euro sign is never split
    EXPECT_EQ(std::string(bytes), "a");
}

// Every value the four-byte form holds, beyond Unicode's range too, survives a round trip,
// character by character and as one whole text.
TEST(Utf8, RoundTripsTheWholeCodeSpace) {
    std::wstring all;
    for (unsigned code = 1; code <= 0x1FFFFF; ++code) {
        char bytes[5];
        wchar_t back = 0;
        const unsigned length = wctou8(bytes, static_cast<wchar_t>(code));
        ASSERT_EQ(u8towc(&back, bytes, length), length) << std::hex << code;
        ASSERT_EQ(static_cast<unsigned>(back), code);
        all.push_back(static_cast<wchar_t>(code));
    }
    const std::string utf8 = wide_to_utf8(all.c_str());
    EXPECT_EQ(utf8.size(), wcsu8slen(all.c_str()));
    EXPECT_EQ(utf8_to_wide(utf8.c_str()), all);
}

TEST(Utf8, WholeTextsStopAtTheFirstInvalidUnit) {
    EXPECT_EQ(utf8_to_wide("ab\xFF"
                           "cd"),
              L"ab");
    EXPECT_EQ(utf8_to_wide("x\xE2\x82"), L"x");
    const wchar_t tooLarge[] = {L'o', L'k', 0x200000, L'!', 0};
    EXPECT_EQ(wide_to_utf8(tooLarge), "ok");
    EXPECT_EQ(utf8_to_wide(nullptr) + L"|" + utf8_to_wide(""), L"|");
    EXPECT_EQ(wide_to_utf8(nullptr) + local_to_utf8(nullptr) + utf8_to_local(nullptr), "");
    EXPECT_EQ(local_to_utf8("\xC3\xA9t\xE9"), "\xC3\xA9t\xE9");
}

TEST(Hex, DigitsPairsAndSeparators) {
    const std::pair<char, int> digits[] = {{'0', 0},   {'9', 9},   {'a', 10},  {'f', 15},
                                           {'A', 255}, {'g', 255}, {'\0', 255}};
    for (const auto& [c, value] : digits)
        EXPECT_EQ(chr2hex(c), value) << c;

    unsigned char bytes[] = {0x00, 0xFF, 0x1A};
    EXPECT_EQ(GStringFormat::BinToHex(bytes, 3, " "), "00 FF 1A ");
    EXPECT_EQ(GStringFormat::BinToHex(nullptr, 3, " "), "");
    EXPECT_EQ(GStringFormat::DataToHex(std::string("\x00\xFF\x1A", 3)), "00FF1A");
    EXPECT_EQ(GStringFormat::HexToData("00ff1A"), std::string("\x00\xFF\x1A", 3));
    EXPECT_EQ(GStringFormat::HexToData("41zz42"), "A");  // stops at the first bad pair
    EXPECT_EQ(GStringFormat::HexToData("414"), "A");     // a lone last digit is ignored

    unsigned char out[4] = {};
    EXPECT_EQ(hex2bin("DEADbeef", 8, out, 4), 4u);
    EXPECT_EQ(out[3], 0xEF);
    EXPECT_EQ(hex2bin("0102", 4, out, 1), 1u);
    EXPECT_EQ(hex2bin(nullptr, 4, out, 4) + hex2bin("01", 2, nullptr, 4), 0u);
    EXPECT_EQ(GStringFormat::HexToBin("DE-AD", out, 4, "-"), 2u);
    EXPECT_EQ(GStringFormat::HexToBin("DE+AD", out, 4, "-"), 1u);
    EXPECT_EQ(GStringFormat::HexToBin("DEAD", nullptr, 4, ""), 0u);
}

TEST(Hex, RandomDataRoundTrips) {
    std::mt19937 rng(7);
    for (unsigned length : {0u, 1u, 17u, 1000u}) {
        std::string data = RandomBytes(rng, length);
        EXPECT_EQ(GStringFormat::HexToData(GStringFormat::DataToHex(data)), data);
        std::string back(length, '\0');
        const std::string spaced = GStringFormat::BinToHex(&data[0], length, ", ");
        EXPECT_EQ(GStringFormat::HexToBin(spaced, &back[0], length, ", "), length);
        EXPECT_EQ(back, data);
    }
}

namespace {

std::string Encode(const std::string& data, bool lineBreaks) {
    return ZBase64::Encode(reinterpret_cast<const unsigned char*>(data.data()),
                           static_cast<int>(data.size()), lineBreaks);
}

std::string Decode(const std::string& text) {
    std::string out;
    return ZBase64::Decode(text.data(), static_cast<int>(text.size()), out);
}

}  // namespace

TEST(Base64, KnownTextsAndLineBreaks) {
    const std::pair<const char*, const char*> known[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
    for (const auto& [data, text] : known) {
        EXPECT_EQ(Encode(data, true), text);
        EXPECT_EQ(Decode(text), data);
    }
    const auto x = [](size_t n) { return std::string(n, 'x'); };
    EXPECT_EQ(Encode(x(57), true), Encode(x(57), false) + "\r\n");  // breaks at exactly 76
    EXPECT_EQ(Encode(x(57), false).size(), 76u);
    EXPECT_EQ(Encode(x(56), true).find('\r'), std::string::npos);  // a padded tail never breaks
    EXPECT_EQ(Encode(x(58), true), Encode(x(57), false) + "\r\neA==");
    EXPECT_EQ(Encode(x(114), true).size(), 76u + 2u + 76u + 2u);
}

TEST(Base64, RandomDataRoundTripsWithAndWithoutBreaks) {
    std::mt19937 rng(11);
    for (size_t length = 0; length < 400; length += 7) {
        const std::string data = RandomBytes(rng, length);
        EXPECT_EQ(Decode(Encode(data, true)), data) << length;
        EXPECT_EQ(Decode(Encode(data, false)), data) << length;
    }
}

TEST(Base64, DecodeAppendsNeverFailsAndStaysWithinLength) {
    std::string out = "pre";
    EXPECT_EQ(ZBase64::Decode("Zm9v", 4, out), "prefoo");
    EXPECT_EQ(out, "prefoo");
    EXPECT_EQ(Decode("!!!!"), std::string(3, '\0'));  // outside the alphabet reads as 0
    EXPECT_EQ(Decode("\r\nZg==\n"), "f");
    EXPECT_EQ(ZBase64::Decode(nullptr, 4, out), "prefoo");
    // A length ending inside a group reads no further; the rest counts as padding.
    const char text[] = {'Z', 'm', '9', 'v'};
    const std::pair<int, const char*> cut[] = {{-1, ""}, {1, ""}, {2, "f"}, {3, "fo"}};
    for (const auto& [length, expected] : cut) {
        std::string bytes;
        EXPECT_EQ(ZBase64::Decode(text, length, bytes), expected) << length;
    }
    EXPECT_EQ(ZBase64::Encode(nullptr, 5, true), "");
}
