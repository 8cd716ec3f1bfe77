// Transparency: worked factors, the compounding conversion, and vector forms against the scalar
// rule.
#include <gtest/gtest.h>

#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

FactoryEffect Transparency(const PropertyList& settings = {}) {
    return FactoryEffect(new CTransparencyAjustEffect(), settings);
}

}  // namespace

TEST(Transparency, WorkedFactorsOnAlpha) {
    struct Case {
        const char* scale;
        uint8_t alpha, expected;
    };
    for (const Case& c :
         {Case{"100", 200, 200}, Case{"50", 255, 127}, Case{"200", 200, 144}, Case{"0", 99, 99}}) {
        // Packed alpha is byte 3 of a pixel; planar alpha the fourth plane.
        for (const auto& [format, plane, at] : {std::tuple{30, 0u, 3}, {90, 3u, 0}, {35, 3u, 1}}) {
            TestImage image({format, 3, 2, 2}, 5);
            image.Row(plane, 0)[at] = c.alpha;
            const std::vector<uint8_t> colour(image.Row(0, 0), image.Row(0, 0) + 3);
            Transparency({{"transparency_scale", c.scale}}).Run(image.Frame());
            EXPECT_EQ(image.Row(plane, 0)[at], c.expected) << c.scale << " " << format;
            if (plane == 0) EXPECT_TRUE(std::equal(colour.begin(), colour.end(), image.Row(0, 0)));
        }
    }
}

TEST(Transparency, EverySetConvertsTheFactorAgain) {
    TestImage image({PIXFMT_BGRA32, 1, 1}, 1);
    image.Row(0, 0)[3] = 100;
    // 50 makes 128; setting the duration converts that again, to 327.
    Transparency({{"transparency_scale", "50"}, {"duration", "3"}}).Run(image.Frame());
    EXPECT_EQ(image.Row(0, 0)[3], (100 * 327 >> 8) & 0xFF);
    // A fresh effect's factor is 0 until a set.
    const auto before = image.Snapshot();
    Transparency().Run(image.Frame());
    EXPECT_EQ(image.Snapshot(), before);
}

// Each further set converts the factor again: from 77, 504 wraps alphas above 127; from 100,
// 256, 655, ... 71969, until the factor's bits above 16 are in play and must not matter.
TEST(Transparency, MatchesTheScalarRuleOnEveryFormat) {
    for (uint32_t scale : {77u, 100u}) {
        FactoryEffect effect = Transparency({{"transparency_scale", std::to_string(scale)}});
        uint32_t factor = (scale << 8) / 100;
        for (int round = 0; round < 7; ++round) {
            EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes({30, 35, 90, 0, 4, 6, 7, 12, 13})),
                      "")
                << "factor " << factor;
            ASSERT_TRUE(effect.Set({{"duration", "1"}}));
            factor = (factor << 8) / 100;
        }
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
}
