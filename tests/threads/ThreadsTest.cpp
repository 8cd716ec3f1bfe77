// Effects side by side on many threads, one effect object per thread, as a host with a worker
// per stream drives them: the same effect and different ones at once; the grain's shared
// generator; and the clock's first reading taken by many threads at once. Built alone with
// ThreadSanitizer by `scripts/test --tsan`.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "core/NoiseRandom.h"
#include "libfilter/SystemBase.h"
#include "support/TestFrame.h"

namespace {

using namespace MediaCore;
using namespace testing_support;

constexpr unsigned kThreads = 8;
constexpr int kFrames = 3;

const FrameShape kShapes[] = {
    {PIXFMT_BGRA32, 67, 21, 12, true},
    {PIXFMT_YUV420P, 66, 20, 5, false},
    {PIXFMT_YUVA420P, 33, 9, 0, false},
};

// Runs work(t) on `count` threads that all start together, so their work overlaps.
template <class Work>
void OnThreads(unsigned count, Work work) {
    std::atomic<unsigned> waiting{count};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < count; ++t)
        threads.emplace_back([&, t] {
            for (--waiting; waiting.load() > 0;)
                std::this_thread::yield();
            work(t);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// A fresh effect, set up as a host would (every property written once), run on one frame:
// in place, then on copies. Answers the frame's bytes, or empty when a guard was hit.
std::vector<uint8_t> RunEffect(const ServedEffect& served, const FrameShape& shape) {
    GVideoProcessor* effect = served.Create();
    if (effect == nullptr) return {};
    for (const auto& [name, value] :
         catalogue::Showcase(*served.description, shape.width, shape.height))
        effect->SetProperty(name.c_str(), value.c_str());
    TestImage image(shape, 7);
    ImagePostion position{};
    for (int i = 0; i < kFrames; ++i) {
        effect->ProcFrameInPlace(&position, i, &image.Frame());
        effect->ProcFrame(&position, i, &image.Frame());
    }
    effect->Free();
    return image.GuardsIntact() ? image.Snapshot() : std::vector<uint8_t>{};
}

// Thread t runs every effect in turn from effect t / 2 on, so each effect runs on two threads
// at once beside three others, and on every thread in the end.
TEST(Threads, EveryEffectOnEightThreadsAtOnce) {
    SilentSink sink;  // the stereo and rotation effects report without converters
    const std::vector<ServedEffect>& served = ServedEffects();
    ASSERT_FALSE(served.empty());
    for (const FrameShape& shape : kShapes) {
        SCOPED_TRACE(ShapeName(shape));
        // Effects that draw random numbers differ from run to run; the others must give
        // every thread the bytes a lone run gives.
        std::vector<std::vector<uint8_t>> alone;
        std::vector<bool> repeatable;
        for (const ServedEffect& effect : served) {
            alone.push_back(RunEffect(effect, shape));
            ASSERT_FALSE(alone.back().empty()) << effect.name;
            repeatable.push_back(RunEffect(effect, shape) == alone.back());
        }
        std::vector<std::vector<std::vector<uint8_t>>> results(kThreads);
        OnThreads(kThreads, [&](unsigned t) {
            results[t].resize(served.size());
            for (size_t k = 0; k < served.size(); ++k) {
                const size_t e = (t / 2 + k) % served.size();
                results[t][e] = RunEffect(served[e], shape);
            }
        });
        for (unsigned t = 0; t < kThreads; ++t) {
            for (size_t e = 0; e < served.size(); ++e) {
                ASSERT_FALSE(results[t][e].empty()) << served[e].name;
                if (repeatable[e]) {
                    EXPECT_EQ(results[t][e], alone[e]) << served[e].name << " thread " << t;
                }
            }
        }
    }
}

// Under ctest each test is its own process, so these are the clock's first readings. Threads
// racing for them share one start, so none sees time run backwards. Meanwhile threads drawing
// from the grain's shared generator take its next values, each exactly once, and a later draw
// goes on after all of them.
TEST(Threads, ClockAndGrainGeneratorAreSharedSafely) {
    constexpr unsigned kReaders = 16;
    std::vector<uint64_t> first(kReaders);
    std::vector<int> backwards(kReaders, 0);
    std::vector<std::vector<unsigned>> drawn(kReaders);
    NoiseRandom::Seed(77);
    OnThreads(kReaders, [&](unsigned t) {
        uint64_t last = first[t] = SystemBase::get_system_time();
        for (int i = 0; i < 2000; ++i) {
            const uint64_t now = SystemBase::get_system_time();
            backwards[t] += now < last;
            last = now;
            if (i % 16 == 0) NoiseRandom::Draw(37, [&](unsigned v) { drawn[t].push_back(v); });
        }
    });
    for (unsigned t = 0; t < kReaders; ++t)
        EXPECT_LT(first[t], 5000u);  // counted from one start, not from the epoch
    EXPECT_EQ(backwards, std::vector<int>(kReaders, 0));
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

}  // namespace
