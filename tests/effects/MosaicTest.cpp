// Mosaic: worked cases, vector forms and repeats on random frames, odd plane geometry.
#include <gtest/gtest.h>

#include <cstring>

#include "libfilter/MosaicEffect.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {PIXFMT_BGRA32, 0, 4, 6, 7, 12, 13, 35, 90};

struct Rect {
    uint32_t x1, y1, x2, y2, step;
};

PropertyList Settings(const Rect& r) {
    const auto text = [](uint32_t value) { return std::to_string(static_cast<int32_t>(value)); };
    // clang-format off
    return {{"mosaic_x1", text(r.x1)}, {"mosaic_y1", text(r.y1)}, {"mosaic_x2", text(r.x2)},
            {"mosaic_y2", text(r.y2)}, {"mosaic_step", text(r.step)}};
    // clang-format on
}

// Over a frame of W x H: whole, unaligned near edges, corners swapped, blocks of 1, 2 and 32
// samples, steps that wrap, and corners past the frame.
std::vector<Rect> RectsFor(uint32_t W, uint32_t H) {
    const uint32_t w1 = W > 0 ? W - 1 : 0;
    return {{0, 0, W, H, 3},  {3, 1, W, H, 2}, {W, H, 1, 2, 3},     {1, 0, w1, H, 4},
            {0, 0, W, H, 1},  {0, 0, W, H, 0}, {2, 0, W, H, 32},    {1, 1, W, H, 33},
            {0, 0, W, H, 35}, {5, 3, W, H, 5}, {0, 0, W + 1, H, 3}, {0, 0, W, H + 1, 2}};
}

// The luma (or packed) width and the height a frame shows after the crop the tests apply.
std::pair<uint32_t, uint32_t> Shown(const FrameShape& shape, bool crop) {
    const bool cut = crop && shape.height > 2;
    return {shape.width - (cut ? shape.width / 3 : 0), shape.height - (cut ? 2 : 0)};
}

}  // namespace

// Each case maps every sample (x, y) of a plane to the original sample it takes.
TEST(Mosaic, WorkedCases) {
    struct XY {
        int x, y;
    };
    using Source = XY (*)(unsigned plane, int x, int y);
    const Source keep = [](unsigned, int x, int y) { return XY{x, y}; };
    const struct {
        const char* name;
        FrameShape shape;
        Rect rect;
        Source source;
    } cases[] = {
        // clang-format off
        {"defaults change nothing", {30, 24, 24, 4}, {0, 0, 0, 0, 3}, keep},
        {"far edges 20 round down to 16", {30, 24, 24, 4}, {0, 0, 20, 20, 3},
         [](unsigned, int x, int y) { return x < 16 && y < 16 ? XY{x & ~7, y & ~7} : XY{x, y}; }},
        {"the block from 11 writes pixels 16 to 18 into the padding", {30, 16, 8, 32}, {3, 0, 16, 8, 3},
         [](unsigned, int x, int y) { return x >= 3 && x < 19 ? XY{x < 11 ? 3 : 11, 0} : XY{x, y}; }},
        {"x2 past the width is not clipped", {30, 16, 8, 4}, {0, 0, 17, 8, 2}, keep},
        {"y2 past the height is not clipped", {0, 16, 8, 4}, {0, 0, 16, 9, 2}, keep},
        {"planar step 1 is refused", {0, 16, 8, 4}, {0, 0, 16, 8, 1}, keep},
        {"packed step 1 makes 2x2 blocks", {30, 6, 4, 4}, {0, 0, 6, 4, 1},
         [](unsigned, int x, int y) { return x < 6 ? XY{x & ~1, y & ~1} : XY{x, y}; }},
        {"full chroma is set at columns x and x + 4 of a block of 8", {90, 16, 8, 0}, {0, 0, 16, 8, 3},
         [](unsigned p, int x, int y) {
             return p == 0 || (p < 3 && x % 4 == 0) ? XY{x & ~7, y & ~7} : XY{x, y}; }},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestImage image(c.shape, 9), original(c.shape, 9);
        FactoryEffect(AVPROCESSOR_MOSAIC, Settings(c.rect)).Run(image.Frame());
        const unsigned unit = c.shape.format == 30 ? 4 : 1;
        for (unsigned plane = 0; plane < image.PlaneCount(); ++plane) {
            for (unsigned y = 0; y < image.Rows(plane); ++y) {
                for (unsigned x = 0; x < image.Pitch(plane) / unit; ++x) {
                    const XY s = c.source(plane, x, y);
                    ASSERT_EQ(0, std::memcmp(image.Row(plane, y) + x * unit,
                                             original.Row(plane, s.y) + s.x * unit, unit))
                        << "plane " << plane << " x " << x << " y " << y;
                }
            }
        }
        EXPECT_TRUE(image.GuardsIntact());
    }
}

// Beside the kernel shapes, frames tall enough for blocks of up to 32 rows. Vector forms give
// the scalar rule's bytes, and a mosaic of a mosaic is the mosaic: each block already holds its
// top-left sample.
TEST(Mosaic, ScalarRulesAndRepeatsOnRandomFrames) {
    std::vector<FrameShape> shapes = KernelShapes(kFormats);
    for (int format : kFormats) {
        for (FrameShape shape : {FrameShape{0, 33, 9, 16}, {0, 70, 12, 1, true}, {0, 64, 64, 0}}) {
            shape.format = format;
            shapes.push_back(shape);
        }
    }
    uint32_t seed = 1;
    for (const FrameShape& shape : shapes) {
        for (bool crop : {false, true}) {
            const auto [W, H] = Shown(shape, crop);
            for (const Rect& rect : RectsFor(W, H)) {
                FactoryEffect effect(AVPROCESSOR_MOSAIC, Settings(rect));
                ASSERT_EQ(FirstLevelDiffering(effect.p, shape, crop, seed), "")
                    << ShapeName(shape) << (crop ? " cropped " : " ") << rect.x1 << "," << rect.y1
                    << "," << rect.x2 << "," << rect.y2 << " step " << rect.step;
                TestImage image(shape, seed++);
                if (crop) image.Frame().CropRightAndBottom(shape.width / 3, 2);
                effect.Run(image.Frame());
                const std::vector<uint8_t> once = image.Snapshot();
                effect.Run(image.Frame());
                ASSERT_TRUE(image.Snapshot() == once && image.GuardsIntact()) << ShapeName(shape);
            }
        }
    }
}

// Through the member operation: chroma rows closer together than a block row is wide, plane 2
// rows shorter or longer than plane 1's pitch, chroma shifts past 2. Every plane is exactly
// rows x pitch bytes long, so the sanitizer sees any access past it.
TEST(Mosaic, UnusualGeometryStaysInsideThePlanes) {
    const struct {
        unsigned pitches[3];
        unsigned code;
    } geometries[] = {{{40, 20, 20}, 11}, {{40, 3, 3}, 11},   {{40, 20, 7}, 11},
                      {{40, 20, 30}, 11}, {{40, 20, 20}, 33}, {{41, 40, 40}, 0}};
    FactoryEffect effect(AVPROCESSOR_MOSAIC);
    auto* mosaic = static_cast<CMosaicVideoImageEffect*>(effect.p);
    for (const auto& g : geometries) {
        for (const Rect& rect : RectsFor(40, 6)) {
            std::vector<uint8_t> bytes[3];
            unsigned char* data[3];
            unsigned widths[3] = {40, 20, 20}, rows[3] = {6, 3, 3};
            for (int i = 0; i < 3; ++i) {
                bytes[i].assign(rows[i] * g.pitches[i], static_cast<uint8_t>(i + 1));
                data[i] = bytes[i].data();
            }
            effect.Set(Settings(rect));
            mosaic->MosaicComponentEffect(data, widths, g.pitches, rows, g.code);
            // Each plane held one value, so a mosaic leaves it as it was.
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(bytes[i], std::vector<uint8_t>(bytes[i].size(), i + 1))
                    << "plane " << i << " code " << g.code;
            }
        }
    }
    // A packed width past the pitch is cut to it, so x2 = 9 lies outside these rows.
    effect.Set(Settings({0, 0, 9, 2, 1}));
    std::vector<uint8_t> packed(8 * 4 * 3, 7);
    mosaic->MosaicRgba32Effect(packed.data(), 64, 8 * 4, 3);
    mosaic->MosaicRgba32Effect(nullptr, 64, 8 * 4, 3);
    EXPECT_EQ(packed, std::vector<uint8_t>(8 * 4 * 3, 7));
}
