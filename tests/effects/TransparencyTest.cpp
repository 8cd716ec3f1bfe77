// Transparency: worked factors, the compounding conversion, and a plain model on random frames
// against the effect and its vector forms.
#include <gtest/gtest.h>

#include "core/Planes.h"
#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

FactoryEffect Transparency(const PropertyList& settings = {}) {
    return FactoryEffect(new CTransparencyAjustEffect(), settings);
}

// The documented rule, written plainly: alpha = low byte of (alpha * factor) >> 8.
void ScaleAlphaModel(GVideoFrame& frame, uint32_t factor) {
    const int format = frame.GetPixelFormat();
    const bool packed = format == PIXFMT_BGRA32;
    if (factor == 0 || (!packed && format != 35 && format != 90)) return;
    const Plane p = packed ? GetPackedPlane(&frame) : GetPlane(&frame, 3);
    for (unsigned y = 0; y < p.rows; ++y) {
        for (unsigned x = packed ? 3 : 0; x < p.rowBytes; x += packed ? 4 : 1) {
            p.Row(y)[x] = static_cast<uint8_t>((p.Row(y)[x] * factor) >> 8);
        }
    }
}

}  // namespace

TEST(Transparency, WorkedFactorsOnPackedAlpha) {
    struct Case {
        const char* scale;
        uint8_t alpha, expected;
    };
    for (const Case& c :
         {Case{"100", 200, 200}, Case{"50", 255, 127}, Case{"200", 200, 144}, Case{"0", 99, 99}}) {
        TestImage image({PIXFMT_BGRA32, 3, 1, 2}, 5);
        image.Row(0, 0)[3] = c.alpha;
        const uint8_t colour[3] = {image.Row(0, 0)[0], image.Row(0, 0)[1], image.Row(0, 0)[2]};
        Transparency({{"transparency_scale", c.scale}}).Run(image.Frame());
        EXPECT_EQ(image.Row(0, 0)[3], c.expected) << c.scale;
        EXPECT_TRUE(std::equal(colour, colour + 3, image.Row(0, 0))) << c.scale;
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
TEST(Transparency, MatchesTheModelAndScalarRulesOnEveryFormat) {
    for (uint32_t scale : {77u, 100u}) {
        FactoryEffect effect = Transparency({{"transparency_scale", std::to_string(scale)}});
        uint32_t factor = (scale << 8) / 100;
        for (int round = 0; round < 7; ++round) {
            auto model = [&](GVideoFrame& frame) { ScaleAlphaModel(frame, factor); };
            EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes({30, 35, 90, 0, 4, 6, 7, 12, 13}),
                                          model),
                      "")
                << "factor " << factor;
            ASSERT_TRUE(effect.Set({{"duration", "1"}}));
            factor = (factor << 8) / 100;
        }
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
}
