// Colour key: worked values on packed and planar frames, what a key may change, and vector
// forms against the scalar rule.
#include <gtest/gtest.h>

#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// A colour key set through the effect's properties.
FactoryEffect Key(int scope, int colour) {
    return FactoryEffect(new CColorFilterEffect(), {{"filter_scope", std::to_string(scope)},
                                                    {"filter_color", std::to_string(colour)}});
}

}  // namespace

TEST(ColorFilter, PackedComparesTheWhole24BitNumber) {
    struct Case {
        int scope, colour;
        uint8_t b, g, r;
        bool keyed;
    };
    const Case cases[] = {
        {0, 0x00FF00, 0, 255, 0, true},         {0, 0x00FF00, 1, 255, 0, false},
        {1, 0x000000, 0, 0, 0, false},          {1, 0x808080, 0xFF, 0xFF, 0x7F, true},
        {1, 0x808080, 0x80, 0x80, 0x82, false}, {256, 0x000100, 0, 0, 0, false},
    };
    for (const Case& c : cases) {
        TestImage image({PIXFMT_BGRA32, 2, 1}, 3);
        uint8_t* px = image.Row(0, 0);
        px[0] = c.b, px[1] = c.g, px[2] = c.r, px[3] = 200;
        // The same colour 64 red steps away keeps its alpha.
        px[4] = c.b, px[5] = c.g, px[6] = c.r ^ 0x40, px[7] = 201;
        Key(c.scope, c.colour).Run(image.Frame());
        EXPECT_EQ(px[3], c.keyed ? 0 : 200) << c.scope << " " << c.colour;
        EXPECT_EQ(px[7], 201);
        EXPECT_EQ(px[0], c.b);
    }
}

TEST(ColorFilter, PlanarComparesEachChannelWithTheKeysYuv) {
    // Red's key is Y 81, U 90, V 239; black's is 16, 128, 128.
    struct Case {
        int scope, colour;
        uint8_t y, u, v;
        bool keyed;
    };
    const Case cases[] = {
        {0, 0xFF0000, 81, 90, 239, true},   {0, 0xFF0000, 82, 90, 239, false},
        {1, 0xFF0000, 80, 91, 240, true},   {1, 0x000000, 17, 127, 129, true},
        {1, 0x000000, 16, 128, 130, false},
    };
    for (int format : {35, 90}) {
        for (const Case& c : cases) {
            TestImage image({format, 2, 2}, 4);
            const uint8_t samples[] = {c.y, c.u, c.v, 99};
            for (unsigned p = 0; p < 4; ++p)
                image.Row(p, 0)[0] = samples[p];
            Key(c.scope, c.colour).Run(image.Frame());
            EXPECT_EQ(image.Row(3, 0)[0], c.keyed ? 0 : 99) << format << " " << int(c.y);
        }
    }
}

// Scopes past a byte either way; wide keys catch a good share of random pixels. A key only ever
// clears alpha: every byte it changes becomes 0. Vector forms give the scalar rule's bytes.
TEST(ColorFilter, OnlyClearsAlphaAndMatchesTheScalarRuleOnEveryFormat) {
    const int keys[][2] = {{0, 0},           {60, 0x808080},   {0x40, 0x408020},
                           {0x40, 0x808080}, {-300, 0x123456}, {300, 7}};
    for (const auto& [scope, colour] : keys) {
        FactoryEffect effect = Key(scope, colour);
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes({30, 35, 90, 0, 4, 6, 7, 12, 13})), "")
            << "scope " << scope << " colour " << colour;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
        for (int format : {30, 35, 90}) {
            TestImage image({format, 19, 7, 2}, 6);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            const std::vector<uint8_t> after = image.Snapshot();
            for (size_t i = 0; i < after.size(); ++i)
                ASSERT_TRUE(after[i] == before[i] || after[i] == 0) << format << " byte " << i;
        }
    }
}
