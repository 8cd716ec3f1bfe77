// The colour effects: brightness, contrast and saturation; gray, flip colour, invert and aged
// film; the colour key and transparency, which change only alpha. Values worked by hand from the
// rules, texts and clamps, and the effects that undo themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

PropertyList Key(int scope, int colour) {
    return {{"filter_scope", std::to_string(scope)}, {"filter_color", std::to_string(colour)}};
}

}  // namespace

// One packed pixel and one planar column (luma 0, 100 and 200, chroma U 200 and V 50, alpha 9
// never touched). Brightness: packed table offset trunc(B x 2.55) + 127 against luma's
// trunc(B x 1.27) + 127; contrast scale trunc((C / 100 + 1) x 256); saturation scale
// trunc((S + 100) x 5.12) about the pixel's mean, or about 127 for chroma; all in 256ths.
TEST(ColourEffects, WorkedValues) {
    constexpr unsigned kBC = AVPROCESSOR_BRIGHTNESS_CONTRAST;
    const std::array<uint8_t, 4> P = {0, 100, 200, 7};  // the usual pixel
    const std::array<uint8_t, 3> L = {0, 100, 200};     // the luma, where it is kept
    const struct {
        unsigned id;
        PropertyList settings;
        std::array<uint8_t, 4> pixel, packed;
        std::array<uint8_t, 3> luma;
        uint8_t u, v;
    } cases[] = {
        // clang-format off
        // 150 is held to 100: b = 382 makes every colour 255; luma moves by 127. A text that does
        // not parse keeps the value before it.
        {kBC, {{"brightness", "150"}, {"brightness", "bright"}}, P, {255, 255, 255, 7},
         {127, 227, 255}, 200, 50},
        // Contrast -100 is scale 0: everything lands on the offset.
        {kBC, {{"brightness", "50"}, {"contrast", "-100"}}, P, {254, 254, 254, 7},
         {190, 190, 190}, 200, 50},
        // Saturation -100 is scale 0 (the truncated mean; chroma 127), 100 scale 1024.
        {kBC, {{"saturation", "-100"}}, {255, 255, 254, 1}, {254, 254, 254, 1}, L, 127, 127},
        {kBC, {{"saturation", "100"}}, {100, 110, 120, 9}, {70, 110, 150, 9}, L, 255, 0},
        // Infinities are out of range like any other value: held to 100 or -100.
        {kBC, {{"brightness", "inf"}, {"contrast", "-1e999"}, {"saturation", "-inf"}}, P,
         {255, 255, 255, 7}, {254, 254, 254}, 127, 127},
        // Gray's mean truncates; it and aged film fill chroma with their tint, 127 not 128.
        {AVPROCESSOR_GRAY, {}, {255, 255, 254, 9}, {254, 254, 254, 9}, L, 127, 127},
        // Aged film lifts every mean below 36 to 35: red 35, green 20, blue 0.
        {AVPROCESSOR_AGED_FILM, {}, {35, 36, 36, 5}, {0, 20, 35, 5}, L, 117, 136},
        {AVPROCESSOR_AGED_FILM, {}, {36, 36, 37, 5}, {1, 21, 36, 5}, L, 117, 136},
        {AVPROCESSOR_FLIP_COLOR, {}, {1, 2, 3, 4}, {3, 2, 1, 4}, L, 50, 200},
        {AVPROCESSOR_INVERT, {}, {10, 20, 30, 40}, {245, 235, 225, 40}, {255, 155, 55}, 55, 205},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.id << " " << testing::PrintToString(c.settings));
        FactoryEffect effect(c.id, c.settings);
        // A pixel and a 3-byte tail, then padding: only the whole pixel changes.
        TestImage packed({PIXFMT_BGRA32, 2, 1, 5}, 7);
        packed.Frame().GetBuffer(0u)->rowBytes = 7;
        std::copy(c.pixel.begin(), c.pixel.end(), packed.Row(0, 0));
        std::vector<uint8_t> expected = packed.Snapshot();
        std::copy(c.packed.begin(), c.packed.end(), expected.begin() + TestImage::kGuard);
        effect.Run(packed.Frame());
        EXPECT_EQ(packed.Snapshot(), expected);
        // Tints fill the chroma planes' padding too; every other effect leaves it.
        TestImage planar({PIXFMT_PLANAR4_FULL, 3, 1, 2}, 1);
        const uint8_t in[] = {0, 100, 200, 200, 200, 200, 50, 50, 50, 9, 9, 9};
        for (unsigned p = 0; p < 4; ++p)
            std::copy_n(in + 3 * p, 3, planar.Row(p, 0));
        std::vector<uint8_t> pad;  // the two padding bytes of each plane
        for (unsigned p = 0; p < 4; ++p)
            pad.insert(pad.end(), planar.Row(p, 0) + 3, planar.Row(p, 0) + 5);
        effect.Run(planar.Frame());
        const bool fills = c.id == AVPROCESSOR_GRAY || c.id == AVPROCESSOR_AGED_FILM;
        const std::vector<uint8_t> want[] = {
            {c.luma[0], c.luma[1], c.luma[2], pad[0], pad[1]},
            {c.u, c.u, c.u, fills ? c.u : pad[2], fills ? c.u : pad[3]},
            {c.v, c.v, c.v, fills ? c.v : pad[4], fills ? c.v : pad[5]},
            {9, 9, 9, pad[6], pad[7]}};
        for (unsigned p = 0; p < 4; ++p)
            EXPECT_EQ(std::vector<uint8_t>(planar.Row(p, 0), planar.Row(p, 0) + 5), want[p]) << p;
    }
}

// Gray and aged film fill subsampled chroma, padding included, with their tint. A one-plane
// frame posing as planar YUV has no chroma to change: only invert touches it.
TEST(ColourEffects, TintsFillSubsampledChromaAndLonePlanesKeepTheirs) {
    for (unsigned id :
         {AVPROCESSOR_GRAY, AVPROCESSOR_AGED_FILM, AVPROCESSOR_INVERT, AVPROCESSOR_FLIP_COLOR}) {
        FactoryEffect effect(id);
        TestImage image({0, 7, 5, 3, true}, 4);
        effect.Run(image.Frame());
        for (unsigned p = 1; p < 3 && id != AVPROCESSOR_INVERT && id != AVPROCESSOR_FLIP_COLOR;
             ++p) {
            const int tint = id == AVPROCESSOR_GRAY ? 127 : p == 1 ? 117 : 136;
            for (unsigned y = 0; y < image.Rows(p); ++y)
                EXPECT_EQ(std::count(image.Row(p, y), image.Row(p, y) + image.Pitch(p), tint),
                          image.Pitch(p));
        }
        std::vector<unsigned char> luma(32, 5);
        unsigned char* planes[] = {luma.data(), luma.data()};
        int pitches[] = {8, 0};
        HostFrame lone(false, 11, 8, 4, true);
        lone.SetBuffer(planes, pitches, nullptr);
        lone.posedFormat = PIXFMT_YUV420P;
        effect.Run(lone);
        EXPECT_EQ(luma, std::vector<unsigned char>(32, id == AVPROCESSOR_INVERT ? 250 : 5)) << id;
    }
}

// Colour keys and transparency change only alpha: byte 3 of a packed pixel, or the fourth plane.
// Packed keys compare the whole 24-bit number; planar ones each channel with the key's YUV (red's
// is Y 81, U 90, V 239; black's 16, 128, 128). A transparency scale of 50 is a factor of 128, 200
// one of 512 (alphas wrap); setting any other property converts the factor again: 50 makes 128,
// then 327.
TEST(AlphaEffects, WorkedValues) {
    const std::vector<int> packed = {30}, planar = {35, 90}, both = {30, 35, 90};
    constexpr unsigned kKey = AVPROCESSOR_COLOR_FILTER, kTr = AVPROCESSOR_TRANSPARENCY;
    const struct {
        unsigned id;
        PropertyList settings;
        const std::vector<int>& formats;
        uint8_t c0, c1, c2, alpha, expected;  // c0, c1, c2: blue, green, red or Y, U, V
    } cases[] = {
        // clang-format off
        {kKey, Key(0, 0x00FF00), packed, 0, 255, 0, 200, 0},
        {kKey, Key(0, 0x00FF00), packed, 1, 255, 0, 200, 200},
        {kKey, Key(1, 0x000000), packed, 0, 0, 0, 200, 200},
        {kKey, Key(1, 0x808080), packed, 0xFF, 0xFF, 0x7F, 200, 0},
        {kKey, Key(1, 0x808080), packed, 0x80, 0x80, 0x82, 200, 200},
        {kKey, Key(256, 0x000100), packed, 0, 0, 0, 200, 200},
        {kKey, Key(0, 0xFF0000), planar, 81, 90, 239, 99, 0},
        {kKey, Key(0, 0xFF0000), planar, 82, 90, 239, 99, 99},
        {kKey, Key(1, 0x000000), planar, 17, 127, 129, 99, 0},
        {kKey, Key(1, 0x000000), planar, 16, 128, 130, 99, 99},
        {kTr, {{"transparency_scale", "50"}}, both, 1, 2, 3, 255, 127},
        {kTr, {{"transparency_scale", "200"}}, both, 1, 2, 3, 200, 144},
        {kTr, {{"transparency_scale", "0"}}, both, 1, 2, 3, 99, 99},
        {kTr, {{"transparency_scale", "50"}, {"duration", "3"}}, both, 1, 2, 3, 100, 127},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << testing::PrintToString(c.settings) << " on " << int(c.c0)
                                        << " " << int(c.c1) << " " << int(c.c2));
        for (int format : c.formats) {
            TestImage image({format, 2, 2}, 4);
            const uint8_t in[] = {c.c0, c.c1, c.c2, c.alpha};
            const unsigned planes = format == 30 ? 1 : 4;
            auto sample = [&](unsigned i) -> uint8_t& {
                return planes == 1 ? image.Row(0, 0)[i] : image.Row(i, 0)[0];
            };
            for (unsigned i = 0; i < 4; ++i)
                sample(i) = in[i];
            FactoryEffect(FindServedEffect(c.id)->Create(), c.settings).Run(image.Frame());
            for (unsigned i = 0; i < 4; ++i)
                EXPECT_EQ(sample(i), i == 3 ? c.expected : in[i]) << format << " sample " << i;
        }
    }
}
