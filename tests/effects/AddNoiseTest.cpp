// Add noise: the drawn pattern and its reuse, level changes, formats, a plain model with its
// own generator, vector forms against the scalar rule, and the shared generator under threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <thread>

#include "core/NoiseRandom.h"
#include "core/Planes.h"
#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 35, 90};

// The documented rule, written plainly, with its own copy of the portable generator.
struct GrainModel {
    explicit GrainModel(uint32_t seed = 1, unsigned level_shift = 8)
        : state(seed), shift(level_shift) {}
    uint32_t state;
    unsigned shift;
    std::vector<unsigned> pattern;
    bool drawn = false;

    unsigned Rand() {
        state = state * 1103515245u + 12345u;
        return (state / 65536) % 32768;
    }
    void Process(GVideoFrame& frame) {
        const int format = frame.GetPixelFormat();
        const bool packed = format == PIXFMT_BGRA32;
        const bool planar = IsPlanarYuv(format);
        const Plane p = packed ? GetPackedPlane(&frame) : GetPlane(&frame, 0);
        const size_t w = packed ? p.rowBytes / 4 : p.rowBytes;
        const size_t needed = w * p.rows * (packed ? 3 : 1);
        if ((packed || planar) && (!drawn || pattern.size() < needed)) {
            pattern.clear();
            for (size_t i = 0; i < needed; ++i)
                pattern.push_back(Rand() >> (shift & 31));
        }
        drawn = true;
        if (!packed && !planar) return;
        const uint32_t gain = 40 + 20 * shift;
        size_t k = 0;
        for (unsigned y = 0; y < p.rows; ++y) {
            for (size_t x = 0; x < w; ++x) {
                uint8_t* s = packed ? p.Row(y) + 4 * x : p.Row(y) + x;
                for (int c = packed ? 2 : 0; c >= 0; --c, ++k)
                    s[c] = static_cast<uint8_t>(std::min(255u, ((s[c] * gain) >> 8) + pattern[k]));
            }
        }
    }
};

FactoryEffect Noise() {
    return FactoryEffect(new CAddNoiseVideoImageEffect());
}

// Runs effect and model over the same frames in turn; the generator starts at `seed`.
void ExpectModel(FactoryEffect& effect, GrainModel& model, const std::vector<FrameShape>& shapes,
                 uint32_t seed) {
    NoiseRandom::Seed(seed);
    model.state = seed;
    uint32_t frameSeed = 40;
    for (const FrameShape& shape : shapes) {
        TestImage image(shape, frameSeed), expected(shape, frameSeed++);
        effect.Run(image.Frame());
        model.Process(expected.Frame());
        ASSERT_EQ(image.Snapshot(), expected.Snapshot()) << ShapeName(shape);
    }
}

}  // namespace

TEST(AddNoise, DrawsOnceAndAddsTheSamePatternToLaterFrames) {
    for (int format : kFormats) {
        FactoryEffect effect = Noise();
        GrainModel model;  // a new effect works at shift 8 although its level reads "2"
        const FrameShape shape{format, 11, 5, 2, format == 4};
        ExpectModel(effect, model, {shape, shape, shape}, 7 + format);
    }
}

TEST(AddNoise, LevelChangesRedrawAndReseedOnlyWhenTheShiftChanges) {
    FactoryEffect effect = Noise();
    GrainModel model;
    ExpectModel(effect, model, {{30, 6, 3}}, 99);
    // Level 4 is shift 8, the current one: no reseed, no redraw.
    ASSERT_TRUE(effect.Set({{"addnoise_level", "4"}}));
    ExpectModel(effect, model, {{30, 6, 3}}, 12345);
    // Level 2 reseeds from the clock and redraws at shift 10.
    std::time_t before;
    for (;;) {
        before = std::time(nullptr);
        ASSERT_TRUE(effect.Set({{"addnoise_level", "2"}}));
        if (std::time(nullptr) == before) break;
        ASSERT_TRUE(effect.Set({{"addnoise_level", "4"}}));  // a second passed; again
    }
    TestImage image({0, 8, 2}, 5), expected({0, 8, 2}, 5);
    effect.Run(image.Frame());
    GrainModel clock{static_cast<uint32_t>(before), 10};
    clock.Process(expected.Frame());
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
}

TEST(AddNoise, Level13ShiftsEveryValueOutAndDarkensTo20Of256) {
    TestImage image({0, 16, 1}, 4);
    const std::vector<uint8_t> row(image.Row(0, 0), image.Row(0, 0) + 16);
    FactoryEffect(new CAddNoiseVideoImageEffect(), {{"addnoise_level", "13"}}).Run(image.Frame());
    for (unsigned x = 0; x < 16; ++x)
        EXPECT_EQ(image.Row(0, 0)[x], row[x] * 20 >> 8);
}

TEST(AddNoise, UnsupportedOrSmallerFirstFramesNeverLeaveAPatternTooShort) {
    FactoryEffect effect = Noise();
    GrainModel model;
    // Unsupported first: marked drawn, so the next frame must still get a pattern first; a
    // larger frame later draws a longer one; a smaller one reuses the start of it.
    ExpectModel(effect, model,
                {{8, 10, 4}, {30, 4, 2}, {30, 9, 5, 3}, {0, 7, 3, 1, true}, {30, 2, 2}}, 2024);
}

// Each frame it is handed, from the same generator state, gets a newly drawn pattern and then
// the pattern again, so every instruction-set level both draws and reuses.
struct FreshGrain : CAddNoiseVideoImageEffect {
    const char* level;
    uint32_t seed;
    FreshGrain(const char* l, uint32_t s) : level(l), seed(s) {}
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override {
        SetProperty("addnoise_level", "99");
        SetProperty("addnoise_level", level);  // a changed level draws anew at the next frame
        NoiseRandom::Seed(seed);
        CAddNoiseVideoImageEffect::ProcFrameInner(position, n, frame);
        return CAddNoiseVideoImageEffect::ProcFrameInner(position, n, frame);
    }
};

TEST(AddNoise, MatchesTheRuleAndScalarRulesAtEveryShift) {
    // The default shift; shift -1 (no noise, gain 20); shift 32 (all 15 bits of noise, gain
    // 680); a gain that saturates alone; one past the vector forms' gain limit.
    for (const char* level : {"4", "13", "-20", "-1000", "-1700"}) {
        FreshGrain effect(level, 5);
        auto* video = static_cast<GVideoProcessor*>(&effect);
        EXPECT_EQ(FirstShapeDiffering(video, KernelShapes({30, 0, 35, 90})), "") << level;
        for (int format : {30, 0}) {
            TestImage image({format, 37, 3, 2}, 6), expected({format, 37, 3, 2}, 6);
            ImagePostion position{};
            video->ProcFrameInPlace(&position, 0, &image.Frame());
            GrainModel grain(5, 12 - std::atoi(level));
            grain.Process(expected.Frame());
            grain.Process(expected.Frame());
            EXPECT_EQ(image.Snapshot(), expected.Snapshot()) << level;
        }
    }
}

TEST(NoiseRandom, ThreadsDrawingAtOnceShareOneUnbrokenSequence) {
    constexpr int kThreads = 4, kRuns = 500, kRun = 37;
    NoiseRandom::Seed(77);
    std::vector<std::vector<unsigned>> drawn(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int r = 0; r < kRuns; ++r)
                NoiseRandom::Draw(kRun, [&](unsigned v) { drawn[t].push_back(v); });
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    // Together the threads took the first values of the sequence, each exactly once.
    std::vector<unsigned> all, expected;
    for (const auto& values : drawn)
        all.insert(all.end(), values.begin(), values.end());
    GrainModel model{77};
    for (size_t i = 0; i < all.size(); ++i)
        expected.push_back(model.Rand());
    std::sort(all.begin(), all.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(all, expected);
    NoiseRandom::Draw(1, [&](unsigned v) { EXPECT_EQ(v, model.Rand()); });
}
