// Mirror, mosaic and mirage: worked cases, mirrors undoing themselves, mosaics of mosaics, and
// the mirage's weights and positions.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

#include "libfilter/DirectEffects.h"
#include "libfilter/MosaicEffect.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

struct Flags {
    const char *mirror, *vertical;
};

FactoryEffect Mirror(Flags flags) {
    return FactoryEffect(AVPROCESSOR_REVERSE,
                         {{"mirror", flags.mirror}, {"vertical", flags.vertical}});
}

std::vector<uint8_t> Iota(size_t count) {
    std::vector<uint8_t> v(count);
    std::iota(v.begin(), v.end(), 1);
    return v;
}

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

}  // namespace

// Every plane holds bytes 1, 2, 3, ... row after row at `pitch`; rowBytes 0: the layout's own.
TEST(Mirror, WorkedCases) {
    const struct {
        const char* name;
        int format;
        unsigned width, height, rowBytes, pitch;
        Flags flags;
        std::vector<uint8_t> expected;  // in every plane
    } cases[] = {
        // clang-format off
        {"both on keep the middle row and column", 90, 3, 3, 0, 3, {"1", "1"},
         {9, 2, 7, 4, 5, 6, 3, 8, 1}},
        {"3-pixel row", 30, 3, 1, 0, 12, {"1", "0"}, {9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}},
        {"7-byte row holds one pixel", 30, 1, 2, 7, 7, {"1", "0"}, Iota(14)},
        {"vertical moves whole pixels, the tail stays", 30, 1, 2, 7, 7, {"0", "1"},
         {8, 9, 10, 11, 5, 6, 7, 1, 2, 3, 4, 12, 13, 14}},
        {"both on 2x2 turns half round", 30, 2, 2, 0, 8, {"1", "1"},
         {13, 14, 15, 16, 9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CVideoFrame frame(false, c.format, c.width, c.height, true);
        std::vector<std::vector<uint8_t>> planes(frame.GetBufferCount(), Iota(c.expected.size()));
        std::vector<unsigned char*> data;
        for (auto& bytes : planes)
            data.push_back(bytes.data());
        std::vector<int> pitches(planes.size(), static_cast<int>(c.pitch));
        frame.SetBuffer(data.data(), pitches.data(), nullptr);
        if (c.rowBytes != 0) frame.GetBuffer(0u)->rowBytes = c.rowBytes;
        Mirror(c.flags).Run(frame);
        for (const auto& bytes : planes)
            EXPECT_EQ(bytes, c.expected);
    }
}

// Each case maps every sample (x, y) of a plane to the original sample it takes (none: itself).
TEST(Mosaic, WorkedCases) {
    using XY = std::array<int, 2>;  // x, y
    using Source = XY (*)(unsigned plane, int x, int y);
    const struct {
        const char* name;
        FrameShape shape;
        Rect rect;
        Source source;
    } cases[] = {
        // clang-format off
        {"far edges 20 round down to 16", {30, 24, 24, 4}, {0, 0, 20, 20, 3},
         [](unsigned, int x, int y) { return x < 16 && y < 16 ? XY{x & ~7, y & ~7} : XY{x, y}; }},
        {"the block from 11 writes pixels 16 to 18 into the padding", {30, 16, 8, 32},
         {3, 0, 16, 8, 3},
         [](unsigned, int x, int y) {
             return x >= 3 && x < 19 ? XY{x < 11 ? 3 : 11, 0} : XY{x, y}; }},
        {"planar step 1 is refused", {0, 16, 8, 4}, {0, 0, 16, 8, 1}, nullptr},
        {"packed step 1 makes 2x2 blocks", {30, 6, 4, 4}, {0, 0, 6, 4, 1},
         [](unsigned, int x, int y) { return x < 6 ? XY{x & ~1, y & ~1} : XY{x, y}; }},
        {"full chroma is set at columns x and x + 4 of a block of 8", {90, 16, 8, 0},
         {0, 0, 16, 8, 3},
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
                    const XY s = c.source ? c.source(plane, x, y) : XY{int(x), int(y)};
                    ASSERT_EQ(0, std::memcmp(image.Row(plane, y) + x * unit,
                                             original.Row(plane, s[1]) + s[0] * unit, unit))
                        << "plane " << plane << " x " << x << " y " << y;
                }
            }
        }
        EXPECT_TRUE(image.GuardsIntact());
    }
}

// Beside the kernel shapes, frames tall enough for blocks of up to 32 rows. Vector forms give
// the scalar rule's bytes, and a mosaic of a mosaic is the mosaic: each block already holds its
// top-left sample. Any mirror undoes itself.
TEST(SpatialEffects, ScalarRulesAndRepeatsOnRandomFrames) {
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
            // The luma (or packed) width and the height the frame shows after the crop.
            const bool cut = crop && shape.height > 2;
            const uint32_t W = shape.width - (cut ? shape.width / 3 : 0),
                           H = shape.height - (cut ? 2 : 0);
            for (Flags flags : {Flags{"1", "0"}, {"0", "1"}, {"1", "1"}}) {
                TestImage image(shape, seed), original(shape, seed);
                if (crop) image.Frame().CropRightAndBottom(shape.width / 3, 2);
                Mirror(flags).Run(image.Frame());
                Mirror(flags).Run(image.Frame());
                ASSERT_EQ(image.Snapshot(), original.Snapshot())
                    << ShapeName(shape) << flags.mirror;
            }
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

// Through the member operations, geometry no frame has: chroma rows closer together than a
// block row is wide, chroma shifts past 2, and no pixels. Each plane holds one value, so a
// mosaic leaves it as it was.
TEST(Mosaic, MemberCallsOnGeometryNoFrameHas) {
    FactoryEffect effect(AVPROCESSOR_MOSAIC, Settings({0, 0, 40, 6, 2}));  // blocks of 4
    auto* mosaic = static_cast<CMosaicVideoImageEffect*>(effect.p);
    for (auto [chromaPitch, code] : {std::pair{3u, 11u}, {20u, 33u}}) {
        unsigned pitches[3] = {40, chromaPitch, chromaPitch}, widths[3] = {40, 20, 20};
        unsigned rows[3] = {6, 3, 3};
        std::vector<uint8_t> bytes[3];
        unsigned char* data[3];
        for (int i = 0; i < 3; ++i) {
            bytes[i].assign(rows[i] * pitches[i], i + 1);
            data[i] = bytes[i].data();
        }
        mosaic->MosaicComponentEffect(data, widths, pitches, rows, code);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(bytes[i], std::vector<uint8_t>(bytes[i].size(), i + 1)) << code << " " << i;
    }
    mosaic->MosaicRgba32Effect(nullptr, 64, 8 * 4, 3);
}

TEST(Mirage, WorkedWeightsPositionsAndSubsampledChroma) {
    // Width 10 on 1920 columns: column 0 takes column 45, the last takes column 1872.
    for (auto [alpha, first, last] : {std::tuple{10u, 63, 191}, {0u, 50, 204}, {100u, 178, 76}}) {
        TestImage image({30, 1920, 1}, 1);
        uint8_t* row = image.Row(0, 0);
        std::fill(row, row + 4 * 1920, 0);
        std::fill(row + 4 * 1919, row + 4 * 1920, 255);
        std::fill(row + 4 * 45, row + 4 * 46, 255);
        row[4 * 45 + 3] = 9;
        FactoryEffect(new CMirageVideoImageEffect(),
                      PropertyList{{"mirage_width", "10"}, {"mirage_alpha", std::to_string(alpha)}})
            .Run(image.Frame());
        EXPECT_EQ(row[0], first) << alpha;
        EXPECT_EQ(row[3], 9);  // the magnified copy's alpha
        EXPECT_EQ(row[4 * 1919], last) << alpha;
    }
    FactoryEffect effect(new CMirageVideoImageEffect(),
                         {{"mirage_width", "10"}, {"mirage_alpha", "100"}});
    // A chroma column of 255 magnifies one column to the right: 255 blended toward 0 four
    // times in 4:2:0 (178, 124, 86, 60), once in 4:4:4.
    for (auto [format, column, expected] : {std::tuple{0, 18u, 60}, {90, 37u, 178}}) {
        TestImage image({format, 40, 40}, 2);
        const unsigned size = image.RowBytes(1);
        for (unsigned y = 0; y < image.Rows(1); ++y) {
            std::fill(image.Row(1, y), image.Row(1, y) + size, 0);
            image.Row(1, y)[column] = 255;
        }
        effect.Run(image.Frame());
        EXPECT_EQ(image.Row(1, image.Rows(1) - 1)[size - 1], expected) << format;
    }
}
