// The two effects that change only alpha: the colour key and transparency.
#include <gtest/gtest.h>

#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

FactoryEffect Key(int scope, int colour) {
    return FactoryEffect(new CColorFilterEffect(), {{"filter_scope", std::to_string(scope)},
                                                    {"filter_color", std::to_string(colour)}});
}

}  // namespace

// Packed keys compare the whole 24-bit number; planar ones each channel with the key's YUV (red's
// is Y 81, U 90, V 239; black's 16, 128, 128). A keyed pixel's alpha becomes 0.
TEST(ColorFilter, WorkedKeys) {
    const struct {
        int scope, colour;
        uint8_t b, g, r;  // packed; planar: y, u, v
        bool planar, keyed;
    } cases[] = {
        // clang-format off
        {0, 0x00FF00, 0, 255, 0, false, true},     {0, 0x00FF00, 1, 255, 0, false, false},
        {1, 0x000000, 0, 0, 0, false, false},      {1, 0x808080, 0xFF, 0xFF, 0x7F, false, true},
        {1, 0x808080, 0x80, 0x80, 0x82, false, false}, {256, 0x000100, 0, 0, 0, false, false},
        {0, 0xFF0000, 81, 90, 239, true, true},    {0, 0xFF0000, 82, 90, 239, true, false},
        {1, 0xFF0000, 80, 91, 240, true, true},    {1, 0x000000, 17, 127, 129, true, true},
        {1, 0x000000, 16, 128, 130, true, false},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.scope << " " << c.colour << " " << int(c.b));
        for (int format : c.planar ? std::vector<int>{35, 90} : std::vector<int>{30}) {
            TestImage image({format, 2, 2}, 4);
            if (c.planar) {
                const uint8_t samples[] = {c.b, c.g, c.r, 99};
                for (unsigned p = 0; p < 4; ++p)
                    image.Row(p, 0)[0] = samples[p];
                Key(c.scope, c.colour).Run(image.Frame());
                EXPECT_EQ(image.Row(3, 0)[0], c.keyed ? 0 : 99) << format;
                continue;
            }
            uint8_t* px = image.Row(0, 0);
            px[0] = c.b, px[1] = c.g, px[2] = c.r, px[3] = 200;
            // The same colour 64 red steps away keeps its alpha.
            px[4] = c.b, px[5] = c.g, px[6] = c.r ^ 0x40, px[7] = 201;
            Key(c.scope, c.colour).Run(image.Frame());
            EXPECT_EQ(px[3], c.keyed ? 0 : 200);
            EXPECT_EQ(px[7], 201);
            EXPECT_EQ(px[0], c.b);
        }
    }
}

// A key only ever clears alpha: every byte it changes becomes 0, even for keys that catch a good
// share of random pixels.
TEST(ColorFilter, OnlyClearsAlpha) {
    for (const auto& [scope, colour] :
         {std::pair{60, 0x808080}, {0x40, 0x408020}, {0x40, 0x808080}}) {
        FactoryEffect effect = Key(scope, colour);
        for (int format : {30, 35, 90}) {
            TestImage image({format, 19, 7, 2}, 6);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            const std::vector<uint8_t> after = image.Snapshot();
            EXPECT_NE(after, before) << format;
            for (size_t i = 0; i < after.size(); ++i)
                ASSERT_TRUE(after[i] == before[i] || after[i] == 0) << format << " byte " << i;
        }
    }
}

// Packed alpha is byte 3 of a pixel, planar alpha the fourth plane; colour stays. A scale of 50 is
// a factor of 128, 200 one of 512 (alphas wrap: 200 becomes 144); setting any other property
// converts the factor again: 50 makes 128, then 327, and alpha 100 becomes 127.
TEST(Transparency, WorkedFactorsOnAlpha) {
    const struct {
        PropertyList settings;
        uint8_t alpha, expected;
    } cases[] = {
        {{{"transparency_scale", "100"}}, 200, 200},
        {{{"transparency_scale", "50"}}, 255, 127},
        {{{"transparency_scale", "200"}}, 200, 144},
        {{{"transparency_scale", "0"}}, 99, 99},
        {{{"transparency_scale", "50"}, {"duration", "3"}}, 100, 127},
    };
    for (const auto& c : cases) {
        for (const auto& [format, plane, at] : {std::tuple{30, 0u, 3}, {90, 3u, 0}, {35, 3u, 1}}) {
            TestImage image({format, 3, 2, 2}, 5);
            image.Row(plane, 0)[at] = c.alpha;
            const std::vector<uint8_t> colour(image.Row(0, 0), image.Row(0, 0) + 3);
            FactoryEffect(new CTransparencyAjustEffect(), c.settings).Run(image.Frame());
            EXPECT_EQ(image.Row(plane, 0)[at], c.expected)
                << c.settings.back().second << " " << format;
            EXPECT_TRUE(std::equal(colour.begin(), colour.end(), image.Row(0, 0)));
        }
    }
}
