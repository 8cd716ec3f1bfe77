#include <gtest/gtest.h>

#include <random>
#include <string>

#include "libfilter/SystemBase.h"

using SystemBase::ZBase64;

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
        std::string data(length, '\0');
        for (char& c : data)
            c = static_cast<char>(rng());
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
