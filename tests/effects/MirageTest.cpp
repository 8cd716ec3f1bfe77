// Mirage: worked weights and positions, repeated chroma blending, and a plain two-pass model on
// random frames against the effect and its vector forms.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/Planes.h"
#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 35, 90};

// Magnify, then blend, as documented, on the frame's own planes and a copy of them.
void MirageModel(GVideoFrame& frame, unsigned width, unsigned alpha) {
    const int format = frame.GetPixelFormat();
    const bool packed = format == 30;
    int code = -1;
    for (auto [f, c] :
         {std::pair{0, 11}, {12, 11}, {35, 11}, {4, 10}, {13, 10}, {6, 22}, {7, 20}, {90, 0}})
        code = f == format ? c : code;
    if ((!packed && code < 0) || alpha > 100 || static_cast<int>(width) <= 0) return;
    const unsigned h = code / 10, v = code % 10, planes = packed ? 1 : 3;
    Plane d[3];
    std::vector<uint8_t> s[3];
    for (unsigned p = 0; p < planes; ++p) {
        d[p] = packed ? GetPackedPlane(&frame) : GetPlane(&frame, p);
        s[p].assign(d[p].data, d[p].data + size_t{d[p].rows} * d[p].pitch);
    }
    const uint32_t z = 200 + width, step = (200u << 16) / z, k = (z << 16) / 200;
    const uint32_t a = ((alpha << 7) + 5120) / 100;
    const uint32_t W = packed ? d[0].rowBytes / 4 : d[0].rowBytes, H = d[0].rows;
    const uint32_t x0 = ((((k * W) >> 16) - W) * step) >> 1;
    const uint32_t y0 = ((((k * H) >> 16) - H) * step) >> 1;
    auto sx = [&](uint32_t x) { return (x0 + x * step) >> 16; };
    auto sy = [&](uint32_t y) { return (y0 + y * step) >> 16; };
    for (uint32_t x = 0; x < W; ++x)  // a position leaving the row keeps the frame
        if (sx(x) >= W) return;
    for (uint32_t y = 0; y < H; ++y)
        if (sy(y) >= H) return;
    auto at = [&](unsigned p, uint32_t x, uint32_t y) -> size_t {
        if (p > 0) x = std::min(x >> h, d[p].rowBytes - 1), y = std::min(y >> v, d[p].rows - 1);
        return size_t{y} * d[p].pitch + x * (packed ? 4 : 1);
    };
    auto blend = [&](unsigned o, unsigned zv) { return uint8_t((o * (256 - a) + zv * a) >> 8); };
    for (int pass = 1; pass <= 2; ++pass) {
        for (uint32_t y = 0; y < H; ++y) {
            for (uint32_t x = 0; x < W; ++x) {
                for (unsigned p = 0; p < planes; ++p) {
                    if (d[p].Empty()) continue;
                    uint8_t* out = d[p].data + at(p, x, y);
                    for (unsigned c = 0; c < (packed ? 4u : 1u); ++c) {
                        if (pass == 1) {
                            out[c] = s[p][at(p, sx(x), sy(y)) + c];
                        } else if (c < 3) {
                            out[c] = blend(s[p][at(p, x, y) + c], out[c]);
                        }
                    }
                }
            }
        }
    }
}

PropertyList Settings(unsigned width, unsigned alpha) {
    return {{"mirage_width", std::to_string(int(width))},
            {"mirage_alpha", std::to_string(int(alpha))}};
}

}  // namespace

TEST(Mirage, WorkedWeightsAndPositionsOnAFullHdRow) {
    // Width 10 on 1920 columns: column 0 takes column 45, the last takes column 1872.
    for (auto [alpha, first, last] : {std::tuple{10u, 63, 191}, {0u, 50, 204}, {100u, 178, 76}}) {
        TestImage image({30, 1920, 1}, 1);
        uint8_t* row = image.Row(0, 0);
        std::fill(row, row + 4 * 1920, 0);
        std::fill(row + 4 * 1919, row + 4 * 1920, 255);
        std::fill(row + 4 * 45, row + 4 * 46, 255);
        row[4 * 45 + 3] = 9;
        FactoryEffect(new CMirageVideoImageEffect(), Settings(10, alpha)).Run(image.Frame());
        EXPECT_EQ(row[0], first) << alpha;
        EXPECT_EQ(row[3], 9);  // the magnified copy's alpha
        EXPECT_EQ(row[4 * 1919], last) << alpha;
    }
}

TEST(Mirage, SubsampledChromaIsBlendedOncePerLumaPixel) {
    FactoryEffect effect(new CMirageVideoImageEffect(), Settings(10, 100));
    // A chroma column of 255 magnifies one column to the right: 255 blended toward 0 four
    // times in 4:2:0 (178, 124, 86, 60), once in 4:4:4.
    for (auto [format, column, expected] : {std::tuple{0, 18u, 60}, {90, 37u, 178}}) {
        TestImage image({format, 40, 40}, 2);
        const unsigned size = image.RowBytes(1);
        for (unsigned y = 0; y < image.Rows(1); ++y) {
            std::fill(image.Row(1, y), image.Row(1, y) + size, 0);
            image.Row(1, y)[column] = 255;
        }
        effect.Run(image.Frame());
        EXPECT_EQ(image.Row(1, image.Rows(1) - 1)[size - 1], expected) << format;
    }
}

// One effect through every setting, as it keeps no state between frames. Weights over 100 and
// widths at or below 0 or leaving the row (65436 wraps the 32-bit offset far past it) keep the
// frame.
TEST(Mirage, MatchesTheTwoPassModelAndScalarRulesOnEveryFormat) {
    FactoryEffect effect(new CMirageVideoImageEffect());
    for (auto [width, alpha] : {std::pair{10u, 10u},
                                {37u, 0u},
                                {1u, 100u},
                                {300u, 55u},
                                {5000u, 70u},
                                {123u, 90u},
                                {10u, 101u},
                                {0u, 10u},
                                {unsigned(-5), 10u},
                                {unsigned(-200), 50u},
                                {65436u, 10u}}) {
        ASSERT_TRUE(effect.Set(Settings(width, alpha)));
        auto model = [&, width = width, alpha = alpha](GVideoFrame& frame) {
            MirageModel(frame, width, alpha);
        };
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kFormats), model), "")
            << int(width) << " " << alpha;
    }
    EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
}
