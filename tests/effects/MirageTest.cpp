// Mirage: worked weights and positions, and repeated chroma blending.
#include <gtest/gtest.h>

#include <algorithm>

#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

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

// In range, and past it only in width, the ghost shows on every format it reads.
TEST(Mirage, ChangesEveryFormat) {
    FactoryEffect effect(new CMirageVideoImageEffect());
    for (auto [width, alpha] :
         {std::pair{10u, 10u}, {37u, 0u}, {1u, 100u}, {300u, 55u}, {5000u, 70u}}) {
        ASSERT_TRUE(effect.Set(Settings(width, alpha)));
        for (int format : {30, 0, 4, 6, 7, 12, 13, 35, 90}) {
            TestImage image({format, 33, 9, 3}, 5);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            EXPECT_NE(image.Snapshot(), before) << format << " " << width << " " << alpha;
        }
    }
}
