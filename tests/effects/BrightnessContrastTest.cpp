// Brightness, contrast and saturation: properties and clamps, worked values, neutral settings,
// and vector forms against the scalar rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kSupported = {0, 4, 6, 7, 12, 13, 35, 90, PIXFMT_BGRA32};

// Property texts: brightness, contrast, saturation.
using Texts = std::array<const char*, 3>;
const char* const kNames[] = {"brightness", "contrast", "saturation"};

const Texts kSettings[] = {
    {"0", "0", "0"},        {"30", "20", "40"},      {"150", "0", "0"},
    {"0", "-100", "0"},     {"0", "0", "-50"},       {"0", "0", "-100"},
    {"-100", "100", "100"}, {"100", "-100", "-100"}, {"-37.5", "63.2", "-71.9"},
    {"12", "-45", "0"},     {"nan", "inf", "-inf"},  {"-0.4", "0.3", "99.9"},
};

FactoryEffect Effect(const Texts& t) {
    return FactoryEffect(AVPROCESSOR_BRIGHTNESS_CONTRAST,
                         {{kNames[0], t[0]}, {kNames[1], t[1]}, {kNames[2], t[2]}});
}

}  // namespace

TEST(BrightnessContrast, TextsAreKeptAndOnlyTheirValuesClamped) {
    FactoryEffect effect = Effect({"150", "0", "0"});
    EXPECT_STREQ(effect.p->GetProperty("brightness", nullptr), "150");
    EXPECT_TRUE(effect.p->SetProperty("duration", "1000"));
    EXPECT_EQ(effect.p->GetDuration(), 1000u);
    // A text that does not parse keeps the value before it: still 100, every colour 255.
    EXPECT_TRUE(effect.p->SetProperty("brightness", "bright"));
    TestImage image({PIXFMT_BGRA32, 4, 1}, 3);
    std::vector<uint8_t> expected = image.Snapshot();
    for (unsigned x = 0; x < 16; ++x) {
        if (x % 4 != 3) expected[TestImage::kGuard + x] = 255;
    }
    effect.Run(image.Frame());
    EXPECT_EQ(image.Snapshot(), expected);
    // Saturation set back to 0 skips its step again.
    FactoryEffect reset = Effect({"0", "0", "-100"});
    reset.Set({{"saturation", "0"}});
    for (int format : kSupported) {
        TestImage frame({format, 9, 3, 1}, 2);
        const std::vector<uint8_t> bytes = frame.Snapshot();
        reset.Run(frame.Frame());
        EXPECT_EQ(frame.Snapshot(), bytes) << format;
    }
}

TEST(BrightnessContrast, WorkedValues) {
    struct Case {
        Texts texts;
        std::array<uint8_t, 4> pixel, packed;
        std::array<uint8_t, 3> luma;  // of luma bytes 0, 100 and 200
        uint8_t chroma;               // of chroma bytes 200
    };
    const Case cases[] = {
        {{"150", "0", "0"}, {0, 100, 200, 7}, {255, 255, 255, 7}, {127, 227, 255}, 200},
        {{"0", "-100", "0"}, {0, 100, 200, 7}, {127, 127, 127, 7}, {127, 127, 127}, 200},
        {{"50", "-100", "0"}, {0, 100, 200, 7}, {254, 254, 254, 7}, {190, 190, 190}, 200},
        {{"0", "0", "-50"}, {0, 100, 200, 7}, {0, 100, 200, 7}, {0, 100, 200}, 200},
        {{"0", "0", "-100"}, {0, 100, 200, 7}, {100, 100, 100, 7}, {0, 100, 200}, 127},
        {{"0", "0", "-100"}, {255, 255, 254, 1}, {254, 254, 254, 1}, {0, 100, 200}, 127},
        {{"0", "0", "100"}, {100, 110, 120, 9}, {70, 110, 150, 9}, {0, 100, 200}, 255},
        // Infinities are out of range like any other value: held to 100 or -100.
        {{"inf", "0", "0"}, {0, 100, 200, 7}, {255, 255, 255, 7}, {127, 227, 255}, 200},
        {{"0", "-1e999", "0"}, {0, 100, 200, 7}, {127, 127, 127, 7}, {127, 127, 127}, 200},
        {{"0", "0", "-inf"}, {0, 100, 200, 7}, {100, 100, 100, 7}, {0, 100, 200}, 127},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.texts[0]) + "/" + c.texts[1] + "/" + c.texts[2]);
        FactoryEffect effect = Effect(c.texts);
        TestImage packed({PIXFMT_BGRA32, 1, 1}, 1);
        std::copy(c.pixel.begin(), c.pixel.end(), packed.Row(0, 0));
        effect.Run(packed.Frame());
        EXPECT_TRUE(std::equal(c.packed.begin(), c.packed.end(), packed.Row(0, 0)));
        // Four full-size planes: luma, two chroma planes and an alpha plane never touched.
        TestImage planar({PIXFMT_PLANAR4_FULL, 3, 1}, 1);
        const uint8_t luma[] = {0, 100, 200};
        std::copy(luma, luma + 3, planar.Row(0, 0));
        for (unsigned p : {1u, 2u, 3u})
            std::fill_n(planar.Row(p, 0), 3, 200);
        effect.Run(planar.Frame());
        EXPECT_TRUE(std::equal(c.luma.begin(), c.luma.end(), planar.Row(0, 0)));
        for (unsigned p : {1u, 2u, 3u}) {
            const uint8_t want = p == 3 ? 200 : c.chroma;
            EXPECT_EQ(std::count(planar.Row(p, 0), planar.Row(p, 0) + 3, want), 3) << p;
        }
    }
}

// All three at 0, and saturation at -50 (a scale of exactly 1), leave every format as it was;
// every setting's vector forms give the scalar rule's bytes.
TEST(BrightnessContrast, NeutralSettingsAndScalarRulesOnEveryFormat) {
    for (const Texts& texts : kSettings) {
        FactoryEffect effect = Effect(texts);
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kSupported)), "")
            << texts[0] << "/" << texts[1] << "/" << texts[2];
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
    for (const Texts& neutral : {Texts{"0", "0", "0"}, Texts{"0", "0", "-50"}}) {
        FactoryEffect effect = Effect(neutral);
        for (int format : kSupported) {
            TestImage image({format, 37, 5, 3, true}, 8);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            EXPECT_EQ(image.Snapshot(), before) << format << " " << neutral[2];
        }
    }
}
