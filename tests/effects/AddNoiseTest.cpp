// Add noise: one drawn pattern reused on later frames, level changes, frames the pattern must
// still fit, vector forms drawing and reusing, and the shared generator under threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <thread>

#include "core/NoiseRandom.h"
#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 35, 90};

FactoryEffect Noise(const PropertyList& settings = {}) {
    return FactoryEffect(new CAddNoiseVideoImageEffect(), settings);
}

// The bytes of a frame of `shape` after `effect`, the generator first seeded with `seed`.
std::vector<uint8_t> After(FactoryEffect& effect, const FrameShape& shape, uint32_t seed,
                           uint32_t frameSeed = 40) {
    if (seed != 0) NoiseRandom::Seed(seed);
    TestImage image(shape, frameSeed);
    effect.Run(image.Frame());
    EXPECT_TRUE(image.GuardsIntact());
    return image.Snapshot();
}

}  // namespace

// The pattern is drawn at the first frame and then added again, whatever the generator does
// meanwhile; a later, larger frame draws a longer one; a frame after an unsupported first one
// still gets a pattern first. A new effect works at shift 8 although its level reads "2".
TEST(AddNoise, OnePatternForLaterFramesDrawnWhereItMustBe) {
    for (int format : kFormats) {
        const FrameShape shape{format, 11, 5, 2, format == 4};
        FactoryEffect effect = Noise(), level4 = Noise({{"addnoise_level", "4"}});
        const auto first = After(effect, shape, 7);
        EXPECT_EQ(After(effect, shape, 99), first) << format;
        EXPECT_EQ(After(level4, shape, 7), first) << format;
        FactoryEffect other = Noise();
        EXPECT_NE(After(level4, shape, 8, 41), After(other, shape, 9, 41)) << format;
    }
    FactoryEffect effect = Noise(), fresh = Noise();
    After(effect, {8, 10, 4}, 2024);
    EXPECT_EQ(After(effect, {30, 4, 2}, 5), After(fresh, {30, 4, 2}, 5));
    const auto larger = After(effect, {30, 9, 5, 3}, 6);
    FactoryEffect other = Noise();
    EXPECT_EQ(larger, After(other, {30, 9, 5, 3}, 6));
    After(effect, {0, 7, 3, 1, true}, 0);
    After(effect, {30, 2, 2}, 0);
}

// Level 4 is shift 8, the current one: no reseed, no redraw. Level 2 reseeds from the clock and
// redraws at shift 10, so two effects set within one second add the same noise.
TEST(AddNoise, LevelChangesRedrawAndReseedOnlyWhenTheShiftChanges) {
    FactoryEffect effect = Noise();
    const auto first = After(effect, {30, 6, 3}, 99);
    ASSERT_TRUE(effect.Set({{"addnoise_level", "4"}}));
    EXPECT_EQ(After(effect, {30, 6, 3}, 12345), first);
    for (;;) {
        FactoryEffect a = Noise(), b = Noise();
        const std::time_t before = std::time(nullptr);
        a.Set({{"addnoise_level", "2"}});
        const auto fromA = After(a, {0, 8, 2}, 0, 5);
        b.Set({{"addnoise_level", "2"}});
        const auto fromB = After(b, {0, 8, 2}, 0, 5);
        if (std::time(nullptr) != before) continue;  // a second passed; again
        EXPECT_EQ(fromA, fromB);
        EXPECT_NE(fromA, After(effect, {0, 8, 2}, 0, 5));
        break;
    }
}

// Level 13 is shift 2^32 - 1, of which only 31 counts: every noise value is 0, and the gain is
// 20 of 256. Chroma gets no noise.
TEST(AddNoise, Level13ShiftsEveryValueOutAndDarkensTo20Of256) {
    TestImage image({0, 4, 2}, 4), original({0, 4, 2}, 4);
    const uint8_t luma[] = {0, 13, 255, 100};
    std::copy_n(luma, 4, image.Row(0, 0));
    Noise({{"addnoise_level", "13"}}).Run(image.Frame());
    EXPECT_EQ(std::vector<uint8_t>(image.Row(0, 0), image.Row(0, 0) + 4),
              std::vector<uint8_t>({0, 1, 19, 7}));
    for (unsigned p : {1u, 2u})
        EXPECT_EQ(image.Row(p, 0)[0], original.Row(p, 0)[0]);
}

// Each frame it is handed, from the same generator state, gets a newly drawn pattern and then
// the pattern again, so every instruction-set level both draws and reuses.
struct FreshGrain : CAddNoiseVideoImageEffect {
    const char* level;
    FreshGrain(const char* l) : level(l) {}
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override {
        SetProperty("addnoise_level", "99");
        SetProperty("addnoise_level", level);  // a changed level draws anew at the next frame
        NoiseRandom::Seed(5);
        CAddNoiseVideoImageEffect::ProcFrameInner(position, n, frame);
        return CAddNoiseVideoImageEffect::ProcFrameInner(position, n, frame);
    }
};

TEST(AddNoise, VectorFormsMatchTheScalarRuleAtEveryShift) {
    // The default shift; shift -1 (no noise, gain 20); shift 32 (all 15 bits of noise, gain
    // 680); a gain that saturates alone; one past the vector forms' gain limit.
    for (const char* level : {"4", "13", "-20", "-1000", "-1700"}) {
        FreshGrain effect(level);
        GVideoProcessor* video = &effect;
        EXPECT_EQ(FirstShapeDiffering(video, KernelShapes({30, 0, 35, 90})), "") << level;
    }
}

// The C library's portable generator: from seed 1 it gives 16838, 5758, 10113, 17515, 31051.
// Threads drawing at once together take the sequence's first values, each exactly once, and the
// next draw gets the value after them.
TEST(NoiseRandom, ThePortableSequenceSharedByThreads) {
    std::vector<unsigned> first;
    NoiseRandom::Seed(1);
    NoiseRandom::Draw(5, [&](unsigned v) { first.push_back(v); });
    EXPECT_EQ(first, std::vector<unsigned>({16838, 5758, 10113, 17515, 31051}));
    NoiseRandom::Seed(77);
    std::vector<std::vector<unsigned>> drawn(4);
    std::vector<std::thread> threads;
    for (auto& values : drawn) {
        threads.emplace_back([&values] {
            for (int r = 0; r < 500; ++r)
                NoiseRandom::Draw(37, [&](unsigned v) { values.push_back(v); });
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::vector<unsigned> all, expected;
    for (const auto& values : drawn)
        all.insert(all.end(), values.begin(), values.end());
    NoiseRandom::Draw(1, [&](unsigned v) { all.push_back(v); });
    NoiseRandom::Seed(77);
    NoiseRandom::Draw(all.size(), [&](unsigned v) { expected.push_back(v); });
    EXPECT_EQ(all.back(), expected.back());
    std::sort(all.begin(), all.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(all, expected);
}
