// Mirror: worked cases, and mirrors undoing themselves on random frames.
#include <gtest/gtest.h>

#include <cstring>

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
    for (size_t i = 0; i < count; ++i)
        v[i] = static_cast<uint8_t>(1 + i);
    return v;
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
        {"value 2 is off", 90, 3, 3, 0, 3, {"2", "2"}, Iota(9)},
        {"both on keep the middle row and column", 90, 3, 3, 0, 3, {"1", "1"},
         {9, 2, 7, 4, 5, 6, 3, 8, 1}},
        {"3-pixel row", 30, 3, 1, 0, 12, {"1", "0"}, {9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}},
        {"7-byte row holds one pixel", 30, 1, 2, 7, 7, {"1", "0"}, Iota(14)},
        {"vertical moves whole pixels, the tail stays", 30, 1, 2, 7, 7, {"0", "1"},
         {8, 9, 10, 11, 5, 6, 7, 1, 2, 3, 4, 12, 13, 14}},
        {"one row under vertical", 30, 2, 1, 0, 8, {"0", "1"}, Iota(8)},
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

// Any mirror undoes itself, on every format.
TEST(Mirror, UndoesItself) {
    const std::vector<FrameShape> shapes =
        KernelShapes({PIXFMT_BGRA32, 0, 4, 6, 7, 12, 13, 35, 90});
    for (Flags flags : {Flags{"1", "0"}, {"0", "1"}, {"1", "1"}}) {
        FactoryEffect effect = Mirror(flags);
        for (size_t i = 0; i < shapes.size(); i += 7) {
            TestImage image(shapes[i], 9);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            effect.Run(image.Frame());
            EXPECT_EQ(image.Snapshot(), before) << ShapeName(shapes[i]) << flags.mirror;
        }
    }
}
