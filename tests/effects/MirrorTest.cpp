// Mirror: worked cases, mirrors undoing themselves on random frames, and vector forms.
#include <gtest/gtest.h>

#include <cstring>

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

// Only "1" turns a flag on; any mirror undoes itself. Vector forms give the scalar rule's bytes.
TEST(Mirror, UndoesItselfAndMatchesTheScalarRuleOnEveryFormat) {
    std::vector<FrameShape> shapes = KernelShapes(kFormats);
    for (int format : kFormats)
        shapes.push_back({format, 1, 1});
    for (Flags flags : {Flags{"1", "0"}, {"0", "1"}, {"1", "1"}, {"-1", "1"}, {"1", "2"}}) {
        FactoryEffect effect = Mirror(flags);
        EXPECT_EQ(FirstShapeDiffering(effect.p, shapes), "") << flags.mirror << flags.vertical;
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
        for (size_t i = 0; i < shapes.size(); i += 7) {
            TestImage image(shapes[i], 9);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            effect.Run(image.Frame());
            EXPECT_EQ(image.Snapshot(), before) << ShapeName(shapes[i]) << flags.mirror;
        }
    }
}
