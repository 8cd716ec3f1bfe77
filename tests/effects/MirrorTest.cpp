// Mirror: worked cases, and a plain model on random frames against the effect and its vector
// forms.
#include <gtest/gtest.h>

#include <cstring>

#include "core/Planes.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const std::vector<int> kFormats = {PIXFMT_BGRA32, 0, 4, 6, 7, 12, 13, 35, 90};

struct Flags {
    const char *mirror, *vertical;
};

FactoryEffect Mirror(Flags flags) {
    return FactoryEffect(AVPROCESSOR_REVERSE,
                         {{"mirror", flags.mirror}, {"vertical", flags.vertical}});
}

// Each unit takes the unit it mirrors: (n-1-x, y), (x, H-1-y), or with both flags the point
// reflection, except on the middle row and the middle column of odd sizes.
void MirrorModel(GVideoFrame& frame, Flags flags) {
    const bool h = std::string(flags.mirror) == "1", v = std::string(flags.vertical) == "1";
    const int format = frame.GetPixelFormat();
    const size_t unit = format == PIXFMT_BGRA32 ? 4 : 1;
    const unsigned planes = FamilyOf(format) == FormatFamily::Other ? 0
                            : unit == 4                             ? 1
                                                                    : PlanarPlaneCount(format);
    for (unsigned i = 0; i < planes; ++i) {
        unsigned width, pitch, rows;
        uint8_t* data = frame.GetBuffer(i, &width, &pitch, &rows);
        const size_t n = width / unit;
        if ((!h && !v) || (h && n < 2) || (v && (rows < 2 || n < 1))) continue;
        const std::vector<uint8_t> was(data, data + size_t{rows} * pitch);
        for (size_t y = 0; y < rows; ++y) {
            for (size_t x = 0; x < n; ++x) {
                const bool middle = (n % 2 == 1 && x == n / 2) || (rows % 2 == 1 && y == rows / 2);
                const size_t sx = h && (!v || !middle) ? n - 1 - x : x;
                const size_t sy = v && (!h || !middle) ? rows - 1 - y : y;
                std::memcpy(data + y * pitch + x * unit, &was[sy * pitch + sx * unit], unit);
            }
        }
    }
}

std::vector<uint8_t> Iota(size_t count) {
    std::vector<uint8_t> v(count);
    for (size_t i = 0; i < count; ++i)
        v[i] = static_cast<uint8_t>(1 + i);
    return v;
}

}  // namespace

TEST(Mirror, WorkedCases) {
    struct Case {
        const char* name;
        struct {
            int format;
            unsigned width, height, rowBytes, pitch;  // rowBytes 0: the layout's own
        } frame;
        Flags flags;
        std::vector<uint8_t> plane, expected;  // every plane holds these bytes, row after row
    };
    const Case cases[] = {
        {"value 2 is off", {90, 3, 3, 0, 3}, {"2", "2"}, Iota(9), Iota(9)},
        {"both on keep the middle row and column",
         {90, 3, 3, 0, 3},
         {"1", "1"},
         Iota(9),
         {9, 2, 7, 4, 5, 6, 3, 8, 1}},
        {"3-pixel row",
         {30, 3, 1, 0, 12},
         {"1", "0"},
         Iota(12),
         {9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}},
        {"7-byte row holds one pixel", {30, 1, 2, 7, 7}, {"1", "0"}, Iota(14), Iota(14)},
        {"vertical moves whole pixels, the tail stays",
         {30, 1, 2, 7, 7},
         {"0", "1"},
         Iota(14),
         {8, 9, 10, 11, 5, 6, 7, 1, 2, 3, 4, 12, 13, 14}},
        {"one row under vertical", {30, 2, 1, 0, 8}, {"0", "1"}, Iota(8), Iota(8)},
        {"both on 2x2 turns half round",
         {30, 2, 2, 0, 8},
         {"1", "1"},
         Iota(16),
         {13, 14, 15, 16, 9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}},
    };
    for (const auto& [name, f, flags, plane, expected] : cases) {
        SCOPED_TRACE(name);
        CVideoFrame frame(false, f.format, f.width, f.height, true);
        std::vector<std::vector<uint8_t>> planes(frame.GetBufferCount(), plane);
        std::vector<unsigned char*> data;
        for (auto& bytes : planes)
            data.push_back(bytes.data());
        std::vector<int> pitches(planes.size(), static_cast<int>(f.pitch));
        frame.SetBuffer(data.data(), pitches.data(), nullptr);
        if (f.rowBytes != 0) frame.GetBuffer(0u)->rowBytes = f.rowBytes;
        Mirror(flags).Run(frame);
        for (const auto& bytes : planes)
            EXPECT_EQ(bytes, expected);
    }
}

// Only "1" turns a flag on. One-pixel frames beside the kernel shapes.
TEST(Mirror, MatchesTheModelAndScalarRulesOnEveryFormat) {
    std::vector<FrameShape> shapes = KernelShapes(kFormats);
    for (int format : kFormats)
        shapes.push_back({format, 1, 1});
    for (Flags flags : {Flags{"1", "0"}, {"0", "1"}, {"1", "1"}, {"-1", "1"}, {"1", "2"}}) {
        FactoryEffect effect = Mirror(flags);
        auto model = [&](GVideoFrame& frame) { MirrorModel(frame, flags); };
        EXPECT_EQ(FirstShapeDiffering(effect.p, shapes, model), "")
            << flags.mirror << "," << flags.vertical;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    }
}
