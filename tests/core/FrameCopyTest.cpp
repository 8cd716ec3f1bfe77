#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace testing_support;

namespace {

// A plane's whole memory, rows x pitch, in memory order.
std::vector<uint8_t> PlaneBytes(TestImage& image, unsigned plane) {
    unsigned rowBytes = 0, pitch = 0, rows = 0;
    const uint8_t* data = image.Frame().GetBuffer(plane, &rowBytes, &pitch, &rows);
    return std::vector<uint8_t>(data, data + size_t{pitch} * rows);
}

}  // namespace

TEST(CopyVideoFrame, RefusesMismatchesAndCopiesBlocksAndTheStatedAttributes) {
    TestImage yuv({0, 640, 480}, 1), bgra({30, 640, 480}, 2), shorter({0, 640, 360}, 3);
    const auto before = yuv.Snapshot();
    const std::pair<MediaCore::GVideoFrame*, const char*> cases[] = {
        {nullptr, "fatal error:null pointer"},
        {&bgra.Frame(), "pixel format not match"},
        {&shorter.Frame(), "dimension not match"}};
    for (const auto& [other, message] : cases) {
        ReportWatch watch;
        EXPECT_FALSE(CopyVideoFrame(&yuv.Frame(), other));
        EXPECT_FALSE(CopyVideoFrame(other, &yuv.Frame()));
        EXPECT_EQ(std::make_tuple(watch.Count(), watch.LastMessage(), watch.LastFile()),
                  std::make_tuple(2u, std::string(message),
                                  std::string("../libcore/libcore_srcutils/CVideoFrame")));
    }
    EXPECT_EQ(yuv.Snapshot(), before);
    // Planes go over as one block of the source's pitch x rows, so rows land shifted when the
    // pitches differ; the block stops at the destination plane's end either way.
    const std::pair<FrameShape, unsigned> blocks[] = {{{0, 33, 17, 5}, 5}, {{30, 9, 4, 12}, 12},
                                                      {{35, 16, 8, 0}, 0}, {{11, 8, 3, 4}, 4},
                                                      {{0, 24, 10, 8}, 0}, {{0, 24, 10, 0}, 8}};
    for (const auto& [shape, dstPadding] : blocks) {
        SCOPED_TRACE(ShapeName(shape) + " into padding " + std::to_string(dstPadding));
        const FrameShape dstShape{shape.format, shape.width, shape.height, dstPadding};
        TestImage src(shape, 10), dst(dstShape, 20), untouched(dstShape, 20);
        char border[] = {1, 2, 3};
        src.Frame().SetTimeStamp(1234);
        src.Frame().SetInterlaced(true);
        src.Frame().SetBorderData(border, 3);
        src.Frame().SetDuration(77);
        src.Frame().SetTopFieldFirst(true);
        ASSERT_TRUE(CopyVideoFrame(&dst.Frame(), &src.Frame()));
        for (unsigned p = 0; p < src.PlaneCount(); ++p) {
            auto expected = PlaneBytes(untouched, p);
            const auto from = PlaneBytes(src, p);
            std::copy_n(from.begin(), std::min(from.size(), expected.size()), expected.begin());
            EXPECT_EQ(PlaneBytes(dst, p), expected) << "plane " << p;
        }
        EXPECT_TRUE(dst.GuardsIntact());
        void* data = nullptr;
        ASSERT_EQ(dst.Frame().GetBorderData(&data, nullptr), 3);
        EXPECT_EQ(std::memcmp(data, border, 3), 0);
        // The duration and the field order are not copied.
        EXPECT_EQ(std::make_tuple(dst.Frame().GetTimeStamp(), dst.Frame().IsInterlaced(),
                                  dst.Frame().GetDuration(), dst.Frame().IsTopFieldFirst()),
                  std::make_tuple(1234, true, 1u, false));
    }
}

TEST(MergeYUVRedBlue, WorkedSamplesAndNullPointers) {
    const unsigned char cases[][6] = {
        {0, 0, 0, 16, 128, 128},        {100, 0, 0, 102, 128, 128},
        {100, 50, 50, 127, 163, 145},  // chroma not re-centred, G takes +0.436 V
        {0, 0, 255, 138, 58, 199},     // negative U sum: low byte of the shifted value
        {255, 255, 255, 235, 128, 128}, {30, 200, 10, 51, 233, 128}};  // G clamped at 0
    for (const auto& c : cases) {
        unsigned char out[3] = {};
        EXPECT_TRUE(MergeYUVRedBlue(&c[0], &c[1], &c[2], nullptr, nullptr, nullptr, &out[0],
                                    &out[1], &out[2]));
        EXPECT_EQ(std::vector<int>(out, out + 3), std::vector<int>(c + 3, c + 6))
            << int(c[0]) << "," << int(c[1]) << "," << int(c[2]);
    }
    ReportWatch watch;
    unsigned char in = 0, out = 0;
    EXPECT_FALSE(MergeYUVRedBlue(&in, nullptr, &in, nullptr, nullptr, nullptr, &out, &out, &out));
    EXPECT_FALSE(MergeYUVRedBlue(&in, &in, &in, nullptr, nullptr, nullptr, &out, &out, nullptr));
    EXPECT_EQ(watch.Count(), 2u);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
}
