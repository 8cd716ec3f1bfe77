// Add noise: the portable generator, one worked level, and when a drawn pattern is reused and
// when it is drawn again.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "core/NoiseRandom.h"
#include "libfilter/DirectEffects.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

FactoryEffect Noise(const PropertyList& settings = {}) {
    return FactoryEffect(new CAddNoiseVideoImageEffect(), settings);
}

// The bytes of a frame of `shape` after `effect`, the generator first seeded with `seed` (0:
// as it stands).
std::vector<uint8_t> After(FactoryEffect& effect, const FrameShape& shape, uint32_t seed) {
    if (seed != 0) NoiseRandom::Seed(seed);
    TestImage image(shape, 40);
    effect.Run(image.Frame());
    EXPECT_TRUE(image.GuardsIntact());
    return image.Snapshot();
}

}  // namespace

// The C library's portable generator: from seed 1 it gives 16838, 5758, 10113, 17515, 31051,
// one draw carrying on where the last stopped.
TEST(NoiseRandom, ThePortableSequence) {
    std::vector<unsigned> drawn;
    NoiseRandom::Seed(1);
    NoiseRandom::Draw(2, [&](unsigned v) { drawn.push_back(v); });
    NoiseRandom::Draw(3, [&](unsigned v) { drawn.push_back(v); });
    EXPECT_EQ(drawn, std::vector<unsigned>({16838, 5758, 10113, 17515, 31051}));
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

// A new effect, set to `first`, runs a `prior` frame from seed 5, is set to `then`, and runs the
// later frame from seed 6. Reused: it adds the pattern drawn from seed 5; Drawn: one drawn from
// seed 6; Clock: neither, but the same from any seeds, the level's change having reseeded the
// generator from the clock (in seconds), which the later frame draws from unseeded.
TEST(AddNoise, PatternsAreReusedUntilTheShiftChangesOrTheFrameOutgrowsThem) {
    enum Expect { kReused, kDrawn, kClock };
    const struct {
        const char* name;
        const char *first, *then;
        int prior;  // a format, -1 for the row's, -2 for no prior frame
        unsigned width, height;
        Expect expect;
    } rows[] = {
        {"later frames reuse the pattern", nullptr, nullptr, -1, 11, 5, kReused},
        {"a new effect is at shift 8 though it reads 2", "4", nullptr, -2, 0, 0, kDrawn},
        {"level 4 is shift 8 already: no redraw", nullptr, "4", -1, 11, 5, kReused},
        {"level 2 is shift 10: reseed and redraw", nullptr, "2", -1, 11, 5, kClock},
        {"a frame after an unsupported one is the first", nullptr, nullptr, 8, 10, 4, kDrawn},
        {"a larger frame draws a longer pattern", nullptr, nullptr, -1, 4, 2, kDrawn},
    };
    for (int format : {30, 0, 4, 6, 7, 12, 13, 35, 90}) {
        const FrameShape later{format, 11, 5, 2, format == 4};
        FactoryEffect fromFive = Noise(), fromSix = Noise();
        const auto reused = After(fromFive, later, 5), drawn = After(fromSix, later, 6);
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << row.name << " on " << format);
            auto run = [&](uint32_t seed) {
                FactoryEffect effect = Noise();
                if (row.first != nullptr) effect.Set({{"addnoise_level", row.first}});
                if (row.prior != -2)
                    After(effect, {row.prior == -1 ? format : row.prior, row.width, row.height},
                          seed);
                if (row.then != nullptr) effect.Set({{"addnoise_level", row.then}});
                return After(effect, later, row.expect == kClock ? 0 : seed + 1);
            };
            const std::time_t before = std::time(nullptr);
            const auto got = run(5), again = run(50);
            if (row.expect == kClock && std::time(nullptr) != before) continue;  // a second passed
            EXPECT_EQ(got == reused, row.expect == kReused);
            EXPECT_EQ(got == drawn, row.expect == kDrawn);
            EXPECT_EQ(got == again, row.expect == kClock);
        }
    }
}
