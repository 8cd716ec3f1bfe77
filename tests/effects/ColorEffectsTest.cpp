// Gray, flip colour, invert and aged film: worked values, what each does to planar frames,
// vector forms against the scalar rule, untouched bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kSupported = {0, 4, 6, 7, 12, 13, 35, 90, PIXFMT_BGRA32};

std::vector<uint8_t> Plane0(TestImage& image) {
    std::vector<uint8_t> bytes;
    for (unsigned y = 0; y < image.Rows(0); ++y)
        bytes.insert(bytes.end(), image.Row(0, y), image.Row(0, y) + image.Pitch(0));
    return bytes;
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

// Gray and aged film set both chroma planes, padding included, to their tint and leave luma;
// invert and flip colour undo themselves. Vector forms give the scalar rule's bytes.
TEST(ColourEffects, PlanarRulesAndScalarRulesOnEveryFormat) {
    const std::pair<unsigned, std::array<int, 2>> kEffects[] = {{AVPROCESSOR_GRAY, {127, 127}},
                                                                {AVPROCESSOR_AGED_FILM, {117, 136}},
                                                                {AVPROCESSOR_INVERT, {-1, -1}},
                                                                {AVPROCESSOR_FLIP_COLOR, {-1, -1}}};
    for (const auto& [id, tint] : kEffects) {
        FactoryEffect effect(id);
        EXPECT_EQ(FirstShapeDiffering(effect.p, KernelShapes(kSupported)), "") << id;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << id;
        for (const FrameShape& shape : {FrameShape{0, 7, 5, 3, true}, FrameShape{30, 5, 3, 2}}) {
            TestImage image(shape, 4);
            const std::vector<uint8_t> before = image.Snapshot(), luma = Plane0(image);
            effect.Run(image.Frame());
            EXPECT_TRUE(image.GuardsIntact());
            if (tint[0] < 0) {
                EXPECT_NE(image.Snapshot(), before) << id;
                effect.Run(image.Frame());
                EXPECT_EQ(image.Snapshot(), before) << id;
            } else if (shape.format == 0) {
                for (unsigned p : {1u, 2u}) {
                    for (unsigned y = 0; y < image.Rows(p); ++y) {
                        EXPECT_EQ(std::count(image.Row(p, y), image.Row(p, y) + image.Pitch(p),
                                             tint[p - 1]),
                                  image.Pitch(p));
                    }
                }
                EXPECT_EQ(Plane0(image), luma);
            }
        }
        // A one-plane frame posing as planar YUV has no chroma to change.
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
