// Colour key: worked values on packed and planar frames, a plain model on random frames and
// vector forms against the scalar rule.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/Planes.h"
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

uint8_t Trunc(double v) {
    return static_cast<uint8_t>(static_cast<int>(v));
}

// The documented rules, written plainly.
void KeyModel(GVideoFrame& frame, unsigned scope, unsigned colour) {
    const int format = frame.GetPixelFormat();
    if (format == PIXFMT_BGRA32) {
        const uint32_t c = colour & 0xFFFFFF, spread = scope | scope << 8 | scope << 16;
        const uint32_t hi = std::min<uint32_t>(spread + c, 0xFFFFFF), lo = c - spread;
        const Plane p = GetPackedPlane(&frame);
        for (unsigned y = 0; y < p.rows; ++y) {
            for (uint8_t* px = p.Row(y); px < p.Row(y) + p.rowBytes; px += 4) {
                const uint32_t value = px[0] | px[1] << 8 | px[2] << 16;
                if (lo <= value && value <= hi) px[3] = 0;
            }
        }
        return;
    }
    if (format != 35 && format != 90) return;
    const double r = colour >> 16 & 0xFF, g = colour >> 8 & 0xFF, b = colour & 0xFF;
    const uint8_t key[3] = {Trunc(0.257 * r + 0.504 * g + 0.098 * b + 16.0),
                            Trunc(-0.148 * r - 0.291 * g + 0.439 * b + 128.0),
                            Trunc(0.439 * r - 0.368 * g - 0.071 * b + 128.0)};
    Plane p[4];
    for (unsigned i = 0; i < 4; ++i) {
        p[i] = GetPlane(&frame, i);
        if (p[i].Empty()) return;  // nothing to compare with or to key
    }
    const unsigned s = format == 35 ? 1 : 0;
    for (unsigned y = 0; y < p[0].rows; ++y) {
        for (unsigned x = 0; x < p[0].rowBytes; ++x) {
            // Chroma and alpha past their plane's end read the last sample.
            const unsigned cx = std::min(x >> s, p[1].rowBytes - 1);
            const unsigned cy = std::min(y >> s, p[1].rows - 1);
            const uint8_t sample[3] = {p[0].Row(y)[x], p[1].Row(cy)[cx], p[2].Row(cy)[cx]};
            bool keyed = true;
            for (int c = 0; c < 3; ++c) {
                const int lo = std::max(0, static_cast<int>(key[c] - scope));
                const int hi = std::min(255, static_cast<int>(key[c] + scope));
                keyed = keyed && uint8_t(lo) <= sample[c] && sample[c] <= uint8_t(hi);
            }
            if (keyed) p[3].Row(std::min(y, p[3].rows - 1))[std::min(x, p[3].rowBytes - 1)] = 0;
        }
    }
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

// Scopes past a byte either way; wide keys catch a good share of random pixels.
TEST(ColorFilter, MatchesTheModelAndScalarRulesOnEveryFormat) {
    const int keys[][2] = {{0, 0},           {60, 0x808080},   {0x40, 0x408020},
                           {0x40, 0x808080}, {-300, 0x123456}, {300, 7}};
    for (const auto& [scope, colour] : keys) {
        FactoryEffect effect = Key(scope, colour);
        auto model = [&, scope = scope, colour = colour](GVideoFrame& frame) {
            KeyModel(frame, static_cast<unsigned>(scope), static_cast<unsigned>(colour));
        };
        EXPECT_EQ(
            FirstShapeDiffering(effect.p, KernelShapes({30, 35, 90, 0, 4, 6, 7, 12, 13}), model),
            "")
            << "scope " << scope << " colour " << colour;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
}
