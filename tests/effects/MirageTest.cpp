// Mirage: worked weights and positions, repeated chroma blending, settings that keep the frame,
// and vector forms against the scalar rule.
#include <gtest/gtest.h>

#include <algorithm>

#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 35, 90};

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
// frame; vector forms give the scalar rule's bytes.
TEST(Mirage, KeptFramesAndScalarRulesOnEveryFormat) {
    FactoryEffect effect(new CMirageVideoImageEffect());
    for (auto [width, alpha, keeps] : {std::tuple{10u, 10u, false},
                                       {37u, 0u, false},
                                       {1u, 100u, false},
                                       {300u, 55u, false},
                                       {5000u, 70u, false},
                                       {10u, 101u, true},
                                       {0u, 10u, true},
                                       {unsigned(-5), 10u, true},
                                       {65436u, 10u, true}}) {
        ASSERT_TRUE(effect.Set(Settings(width, alpha)));
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kFormats)), "")
            << int(width) << " " << alpha;
        for (int format : kFormats) {
            TestImage image({format, 33, 9, 3}, 5);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            EXPECT_EQ(image.Snapshot() == before, keeps) << format << " " << int(width);
        }
    }
    EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
}
