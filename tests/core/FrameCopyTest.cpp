#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using testing_support::FrameShape;
using testing_support::ReportWatch;
using testing_support::TestImage;

namespace {

// A plane's whole memory, rows x pitch, in memory order.
std::vector<uint8_t> PlaneBytes(TestImage& image, unsigned plane) {
    unsigned rowBytes = 0, pitch = 0, rows = 0;
    const uint8_t* data = image.Frame().GetBuffer(plane, &rowBytes, &pitch, &rows);
    return std::vector<uint8_t>(data, data + size_t{pitch} * rows);
}

void ExpectRejected(MediaCore::GVideoFrame* dst, MediaCore::GVideoFrame* src,
                    const std::string& message) {
    ReportWatch watch;
    EXPECT_FALSE(CopyVideoFrame(dst, src));
    EXPECT_EQ(watch.Count(), 1u);
    EXPECT_EQ(watch.LastMessage(), message);
    EXPECT_EQ(watch.LastFile(), "../libcore/libcore_srcutils/CVideoFrame");
}

}  // namespace

TEST(CopyVideoFrame, RejectsNullAndMismatchedFrames) {
    TestImage yuv({0, 640, 480}, 1);
    TestImage bgra({30, 640, 480}, 2);
    TestImage shorter({0, 640, 360}, 3);
    const auto before = yuv.Snapshot();
    ExpectRejected(nullptr, &yuv.Frame(), "fatal error:null pointer");
    ExpectRejected(&yuv.Frame(), nullptr, "fatal error:null pointer");
    ExpectRejected(&yuv.Frame(), &bgra.Frame(), "pixel format not match");
    ExpectRejected(&yuv.Frame(), &shorter.Frame(), "dimension not match");
    EXPECT_EQ(yuv.Snapshot(), before);
}

TEST(CopyVideoFrame, CopiesPixelsAndTheStatedAttributesOnly) {
    for (const FrameShape& shape : {FrameShape{0, 33, 17, 5}, FrameShape{30, 9, 4, 12},
                                    FrameShape{35, 16, 8, 0}, FrameShape{11, 8, 3, 4}}) {
        SCOPED_TRACE(testing_support::ShapeName(shape));
        TestImage src(shape, 10), dst(shape, 20);
        unsigned char border[] = {1, 2, 3};
        src.Frame().SetTimeStamp(1234);
        src.Frame().SetInterlaced(true);
        src.Frame().SetBorderData(border, 3);
        src.Frame().SetDuration(77);
        src.Frame().SetTopFieldFirst(true);

        ASSERT_TRUE(CopyVideoFrame(&dst.Frame(), &src.Frame()));
        for (unsigned p = 0; p < src.PlaneCount(); ++p)
            EXPECT_EQ(PlaneBytes(dst, p), PlaneBytes(src, p));
        EXPECT_TRUE(dst.GuardsIntact());
        EXPECT_EQ(dst.Frame().GetTimeStamp(), 1234);
        EXPECT_TRUE(dst.Frame().IsInterlaced());
        void* data = nullptr;
        int length = 0;
        dst.Frame().GetBorderData(&data, &length);
        ASSERT_EQ(length, 3);
        EXPECT_EQ(std::memcmp(data, border, 3), 0);
        EXPECT_EQ(dst.Frame().GetDuration(), 1u);
        EXPECT_FALSE(dst.Frame().IsTopFieldFirst());
    }
}

// Planes go over as one block of the source's pitch x rows, so rows land shifted when the
// pitches differ; the block stops at the destination plane's end either way.
TEST(CopyVideoFrame, BlockCopyIgnoresDestinationPitchButStaysInsideIt) {
    struct Case {
        unsigned srcPadding, dstPadding;
    };
    for (const Case c : {Case{8, 0}, Case{0, 8}}) {
        TestImage src({0, 24, 10, c.srcPadding}, 4), dst({0, 24, 10, c.dstPadding}, 5);
        std::vector<std::vector<uint8_t>> before;
        for (unsigned p = 0; p < dst.PlaneCount(); ++p)
            before.push_back(PlaneBytes(dst, p));
        ASSERT_TRUE(CopyVideoFrame(&dst.Frame(), &src.Frame()));
        EXPECT_TRUE(dst.GuardsIntact());
        for (unsigned p = 0; p < dst.PlaneCount(); ++p) {
            const auto from = PlaneBytes(src, p);
            const auto to = PlaneBytes(dst, p);
            const size_t copied = std::min(from.size(), to.size());
            EXPECT_TRUE(std::equal(from.begin(), from.begin() + copied, to.begin()));
            EXPECT_TRUE(std::equal(to.begin() + copied, to.end(), before[p].begin() + copied));
        }
    }
}

TEST(MergeYUVRedBlue, WorkedSamples) {
    struct Case {
        unsigned char y, u, v, outY, outU, outV;
    };
    const Case cases[] = {
        {0, 0, 0, 16, 128, 128},        {100, 0, 0, 102, 128, 128},
        {100, 50, 50, 127, 163, 145},  // chroma not re-centred, G takes +0.436 V
        {0, 0, 255, 138, 58, 199},     // negative U sum: low byte of the shifted value
        {255, 255, 255, 235, 128, 128}, {30, 200, 10, 51, 233, 128},  // G clamped at 0
    };
    for (const Case& c : cases) {
        unsigned char y = 0, u = 0, v = 0;
        EXPECT_TRUE(MergeYUVRedBlue(&c.y, &c.u, &c.v, nullptr, nullptr, nullptr, &y, &u, &v));
        EXPECT_EQ(y, c.outY) << int(c.y) << "," << int(c.u) << "," << int(c.v);
        EXPECT_EQ(u, c.outU) << int(c.y) << "," << int(c.u) << "," << int(c.v);
        EXPECT_EQ(v, c.outV) << int(c.y) << "," << int(c.u) << "," << int(c.v);
    }
}

TEST(MergeYUVRedBlue, NullSampleIsReported) {
    const unsigned char in = 0;
    unsigned char out = 0;
    ReportWatch watch;
    EXPECT_FALSE(MergeYUVRedBlue(&in, nullptr, &in, nullptr, nullptr, nullptr, &out, &out, &out));
    EXPECT_FALSE(MergeYUVRedBlue(&in, &in, &in, nullptr, nullptr, nullptr, &out, &out, nullptr));
    EXPECT_EQ(watch.Count(), 2u);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
}
