// Gray, flip colour, invert and aged film: worked values, a plain model of each compared on
// random frames of every format, vector forms against the scalar rule, untouched bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "core/Planes.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kSupported = {0, 4, 6, 7, 12, 13, 35, 90, PIXFMT_BGRA32};

// ---- Plain models, walking each plane as the frame describes it ----

template <class Fn>
void EachRow(GVideoFrame* frame, unsigned plane, Fn&& fn) {
    const Plane p = GetPlane(frame, plane);
    for (unsigned y = 0; p.data != nullptr && y < p.rows; ++y)
        fn(p.Row(y), p, y);
}
// Chroma fills cover each row's padding too.
void FillChroma(GVideoFrame* frame, uint8_t u, uint8_t v) {
    EachRow(frame, 1,
            [&](uint8_t* row, const Plane& p, unsigned) { std::fill_n(row, p.pitch, u); });
    EachRow(frame, 2,
            [&](uint8_t* row, const Plane& p, unsigned) { std::fill_n(row, p.pitch, v); });
}
void InvertPlanes(GVideoFrame* frame) {
    for (unsigned plane = 0; plane < 3; ++plane) {
        EachRow(frame, plane, [](uint8_t* row, const Plane& p, unsigned) {
            std::transform(row, row + p.rowBytes, row, [](uint8_t v) { return 255 - v; });
        });
    }
}
void ExchangeChroma(GVideoFrame* frame) {
    const Plane v = GetPlane(frame, 2);
    EachRow(frame, 1, [&](uint8_t* row, const Plane& u, unsigned y) {
        std::swap_ranges(row, row + u.rowBytes, v.Row(y));
    });
}
int Mean(const uint8_t* px) {
    return (px[0] + px[1] + px[2]) / 3;
}

struct ColourEffect {
    unsigned id;
    void (*packed)(uint8_t* px);
    void (*planar)(GVideoFrame* frame);
};

const ColourEffect kEffects[] = {
    {AVPROCESSOR_GRAY, [](uint8_t* px) { px[0] = px[1] = px[2] = Mean(px); },
     [](GVideoFrame* f) { FillChroma(f, 127, 127); }},
    {AVPROCESSOR_FLIP_COLOR, [](uint8_t* px) { std::swap(px[0], px[2]); }, ExchangeChroma},
    {AVPROCESSOR_INVERT, [](uint8_t* px) { px[0] = ~px[0], px[1] = ~px[1], px[2] = ~px[2]; },
     InvertPlanes},
    {AVPROCESSOR_AGED_FILM,
     [](uint8_t* px) {
         const int g = std::max(Mean(px), 35);
         px[0] = g - 35, px[1] = g - 15, px[2] = g;
     },
     [](GVideoFrame* f) { FillChroma(f, 117, 136); }},
};

void RunModel(const ColourEffect& effect, GVideoFrame* frame) {
    if (frame->GetPixelFormat() != PIXFMT_BGRA32) return effect.planar(frame);
    EachRow(frame, 0, [&](uint8_t* row, const Plane& p, unsigned) {
        for (unsigned x = 0; x + 4 <= p.rowBytes; x += 4)
            effect.packed(row + x);
    });
}

}  // namespace

TEST(ColourEffects, WorkedPackedValues) {
    struct Case {
        unsigned id;
        std::array<uint8_t, 4> in, out;
    };
    const Case cases[] = {
        {AVPROCESSOR_GRAY, {255, 255, 254, 9}, {254, 254, 254, 9}},
        {AVPROCESSOR_AGED_FILM, {0, 0, 0, 77}, {0, 20, 35, 77}},
        {AVPROCESSOR_AGED_FILM, {35, 36, 36, 5}, {0, 20, 35, 5}},
        {AVPROCESSOR_AGED_FILM, {36, 36, 37, 5}, {1, 21, 36, 5}},
        {AVPROCESSOR_AGED_FILM, {255, 255, 255, 1}, {220, 240, 255, 1}},
        {AVPROCESSOR_FLIP_COLOR, {1, 2, 3, 4}, {3, 2, 1, 4}},
        {AVPROCESSOR_INVERT, {10, 20, 30, 40}, {245, 235, 225, 40}},
    };
    for (const Case& c : cases) {
        // Rows of 4 pixels and a 3-byte tail, then padding: only whole pixels change.
        TestImage image({PIXFMT_BGRA32, 5, 2, 5}, 7);
        image.Frame().GetBuffer(0u)->rowBytes = 19;
        std::vector<uint8_t> expected = image.Snapshot();
        for (unsigned y = 0; y < 2; ++y) {
            for (unsigned x = 0; x < 4; ++x) {
                std::copy(c.in.begin(), c.in.end(), image.Row(0, y) + 4 * x);
                std::copy(c.out.begin(), c.out.end(),
                          &expected[TestImage::kGuard + y * 25 + 4 * x]);
            }
        }
        FactoryEffect(c.id).Run(image.Frame());
        EXPECT_EQ(image.Snapshot(), expected) << c.id << " on " << int(c.in[0]);
    }
}

TEST(ColourEffects, MatchTheirModelsAndScalarRulesOnEveryFormat) {
    for (const ColourEffect& model : kEffects) {
        FactoryEffect effect(model.id);
        auto run = [&](GVideoFrame& frame) { RunModel(model, &frame); };
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kSupported), run), "") << model.id;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << model.id;
        // A one-plane frame posing as planar YUV has no chroma to change.
        std::vector<unsigned char> luma(32, 5);
        unsigned char* planes[] = {luma.data(), luma.data()};
        int pitches[] = {8, 0};
        HostFrame lone(false, 11, 8, 4, true);
        lone.SetBuffer(planes, pitches, nullptr);
        lone.posedFormat = PIXFMT_YUV420P;
        effect.Run(lone);
        const uint8_t lumaNow = model.id == AVPROCESSOR_INVERT ? 250 : 5;
        EXPECT_EQ(luma, std::vector<unsigned char>(32, lumaNow)) << model.id;
    }
}
