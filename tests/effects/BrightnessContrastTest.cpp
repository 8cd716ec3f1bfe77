// Brightness, contrast and saturation: properties and clamps, worked values, a plain model on
// random frames of every format, and vector forms against the scalar rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "core/Planes.h"
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

// ---- The plain model, straight from the formulas ----

double Level(const char* text) {
    double v = 0.0;
    std::sscanf(text, "%lf", &v);
    return std::isnan(v) ? 0.0 : std::clamp(v, -100.0, 100.0);
}
// value moved from centre by scale/256 of its distance, rounded down, then clamped to a byte.
uint8_t Step(int value, int centre, int scale, int offset) {
    const int moved = static_cast<int>(std::floor((value - centre) * scale / 256.0)) + offset;
    return static_cast<uint8_t>(std::clamp(moved, 0, 255));
}

template <class Fn>
void EachByte(GVideoFrame* frame, unsigned plane, unsigned step, Fn&& fn) {
    const Plane p = GetPlane(frame, plane);
    const unsigned width = step == 4 ? p.rowBytes & ~3u : p.rowBytes;
    for (unsigned y = 0; p.data != nullptr && y < p.rows; ++y) {
        for (unsigned x = 0; x < width; x += step)
            fn(p.Row(y) + x);
    }
}

void Model(GVideoFrame& frame, const Texts& texts) {
    const double b = Level(texts[0]), c = Level(texts[1]), s = Level(texts[2]);
    const bool active = b != 0.0 || c != 0.0;
    const int k = static_cast<int>((c / 100.0 + 1.0) * 256.0);
    const int table = static_cast<int>(b * 255.0 / 100.0) + 127;
    const int luma = static_cast<int>(b * 1.27) + 127;
    const int sat = static_cast<int>((s + 100.0) * 5.12);
    if (frame.GetPixelFormat() == PIXFMT_BGRA32) {
        if (s == 0.0 && !active) return;
        EachByte(&frame, 0, 4, [&](uint8_t* px) {
            const int l[3] = {Step(px[0], 127, k, table), Step(px[1], 127, k, table),
                              Step(px[2], 127, k, table)};
            const int mean = (l[0] + l[1] + l[2]) / 3;
            for (int i = 0; i < 3; ++i)
                px[i] = s == 0.0 ? l[i] : Step(l[i], mean, sat, mean);
        });
        return;
    }
    if (active) EachByte(&frame, 0, 1, [&](uint8_t* y) { *y = Step(*y, 127, k, luma); });
    for (unsigned plane : {1u, 2u}) {
        if (s != 0.0) EachByte(&frame, plane, 1, [&](uint8_t* v) { *v = Step(*v, 127, sat, 127); });
    }
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
    EXPECT_EQ(FirstShapeDiffering(reset.p, KernelShapes(kSupported), [](auto&) {}), "");
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

TEST(BrightnessContrast, MatchesItsModelAndScalarRulesOnEveryFormat) {
    for (const Texts& texts : kSettings) {
        FactoryEffect effect = Effect(texts);
        auto model = [&](GVideoFrame& frame) { Model(frame, texts); };
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kSupported), model), "")
            << texts[0] << "/" << texts[1] << "/" << texts[2];
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
}
