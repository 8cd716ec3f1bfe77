// The library's frame: geometry, attached memory, crops, copies and attributes.
#include <gtest/gtest.h>

#include <cstring>

#include "libfilter/CVideoFrame.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::FrameShape;
using testing_support::ReportWatch;
using testing_support::TestImage;

TEST(VideoFrame, ConstructedFrameHasGeometryOnly) {
    CVideoFrame frame(false, PIXFMT_BGRA32, 640, 480, true);
    unsigned rowBytes = 0, pitch = 99, rows = 0;
    EXPECT_EQ(frame.GetBuffer(0, &rowBytes, &pitch, &rows), nullptr);
    EXPECT_EQ(rowBytes, 2560u);
    EXPECT_EQ(rows, 480u);
    EXPECT_EQ(pitch, 0u);
    EXPECT_EQ(frame.GetTotalSize(), 0u);
    EXPECT_EQ(frame.GetRequireSize(), 1228800u);
    EXPECT_EQ(frame.GetDuration(), 1u);
    unsigned second = 9;
    EXPECT_EQ(frame.GetDuplicatedCount(&second), 1u);
    EXPECT_EQ(second, 0u);
    EXPECT_EQ(frame.GetBuffer(1, &rowBytes, &pitch, &rows), nullptr);
    EXPECT_EQ(frame.GetBuffer(1), nullptr);
}

TEST(VideoFrame, CropsCutRowBytesAndRows) {
    for (bool bottomUp : {false, true}) {
        TestImage image({PIXFMT_BGRA32, 640, 480, 4, bottomUp}, 1);
        CVideoFrame& frame = image.Frame();
        unsigned rowBytes, pitch, rows, w, h;
        unsigned char* before = frame.GetBuffer(0, &rowBytes, &pitch, &rows);
        ASSERT_TRUE(frame.CropRightAndBottom(10, 4));
        frame.GetDimension(&w, &h);
        EXPECT_EQ(w, 630u);
        EXPECT_EQ(h, 476u);
        unsigned char* after = frame.GetBuffer(0, &rowBytes, &pitch, &rows);
        EXPECT_EQ(rowBytes, 2520u);
        EXPECT_EQ(rows, 476u);
        // Bottom-up frames store the bottom rows first: the crop skips them.
        EXPECT_EQ(after - before, bottomUp ? 4 * 2564 : 0);
        // A crop is absolute and must stay inside the frame.
        EXPECT_FALSE(frame.CropRightAndBottom(640, 0));
        EXPECT_FALSE(frame.CropRightAndBottom(0, 480));
        frame.GetDimension(&w, nullptr);
        EXPECT_EQ(w, 630u);
    }
}

TEST(VideoFrame, BottomCropCutsEveryPlaneAlike) {
    TestImage image({PIXFMT_YUV420P, 64, 6, 0, false}, 2);
    ASSERT_TRUE(image.Frame().CropRightAndBottom(2, 4));
    const unsigned expectedRows[] = {2, 0, 0};  // chroma has 3 rows: the cut empties it
    const unsigned expectedBytes[] = {62, 31, 31};
    for (unsigned i = 0; i < 3; ++i) {
        unsigned rowBytes, pitch, rows;
        image.Frame().GetBuffer(i, &rowBytes, &pitch, &rows);
        EXPECT_EQ(rows, expectedRows[i]);
        EXPECT_EQ(rowBytes, expectedBytes[i]);
    }
    TestImage two({PIXFMT_YUV420P, 64, 64, 0, false}, 2);
    ASSERT_TRUE(two.Frame().CropRightAndBottom(0, 4));
    unsigned rowBytes, pitch, rows;
    two.Frame().GetBuffer(2, &rowBytes, &pitch, &rows);
    EXPECT_EQ(rows, 28u);
}

TEST(VideoFrame, EmptyPlaneLosesNothingToRightCrop) {
    CVideoFrame frame(false, PIXFMT_TWOPLANE_11, 16, 4, true);
    ASSERT_TRUE(frame.CropRightAndBottom(3, 0));
    unsigned rowBytes = 1, pitch, rows;
    frame.GetBuffer(1, &rowBytes, &pitch, &rows);
    EXPECT_EQ(rowBytes, 0u);
}

TEST(VideoFrame, SetBufferNegativePitchStoresLowestRow) {
    std::vector<unsigned char> y(8 * 4), u(4 * 2), v(4 * 2);
    unsigned char* data[] = {y.data() + 3 * 8, u.data() + 4, v.data() + 4};
    int pitches[] = {-8, -4, -4};
    CVideoFrame frame(false, PIXFMT_YUV420P, 8, 4, true);
    frame.SetBuffer(data, pitches, nullptr);
    EXPECT_FALSE(frame.IsTopDown());
    unsigned rowBytes, pitch, rows;
    EXPECT_EQ(frame.GetBuffer(0, &rowBytes, &pitch, &rows), y.data());
    EXPECT_EQ(pitch, 8u);
    EXPECT_EQ(frame.GetBuffer(2, &rowBytes, &pitch, &rows), v.data());
    EXPECT_EQ(pitch, 4u);
    EXPECT_EQ(frame.GetTotalSize(), 32u + 8 + 8);

    ReportWatch watch;
    frame.SetBuffer(nullptr, pitches, nullptr);
    EXPECT_EQ(watch.Count(), 1u);
    EXPECT_EQ(frame.GetBuffer(0, &rowBytes, &pitch, &rows), y.data());
}

TEST(VideoFrame, SetSizeRelayoutsAndClearsCrops) {
    CVideoFrame frame(false, PIXFMT_YUV420P, 16, 16, true);
    ASSERT_TRUE(frame.CropRightAndBottom(2, 2));
    frame.SetSize(16, 16);
    unsigned w, h;
    frame.GetDimension(&w, &h);
    EXPECT_EQ(w, 16u);
    frame.SetSize(8, 6);
    EXPECT_EQ(frame.GetRequireSize(), 8u * 6 + 2 * 4 * 3);
}

TEST(VideoFrame, CloneCopiesIntoOneAlignedBlock) {
    TestImage image({PIXFMT_YUV420P, 33, 7, 3, true}, 3);
    CVideoFrame& source = image.Frame();
    source.SetTimeStamp(77);
    source.SetDuration(5);
    source.SetDuplicatedCount(3, 4);
    source.SetInterlaced(true);
    source.SetTopFieldFirst(true);
    source.SetDAR(1.5);
    source.SetCanBeModified(false);
    const char border[] = "border";
    source.SetBorderData(const_cast<char*>(border), 6);
    source.CropRightAndBottom(1, 1);

    GVideoFrame* copy = source.Clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->GetTimeStamp(), 77);
    EXPECT_EQ(copy->GetDuration(), 5u);
    unsigned second;
    EXPECT_EQ(copy->GetDuplicatedCount(&second), 3u);
    EXPECT_EQ(second, 4u);
    EXPECT_TRUE(copy->IsInterlaced());
    EXPECT_TRUE(copy->IsTopFieldFirst());
    EXPECT_FALSE(copy->IsTopDown());
    EXPECT_TRUE(copy->CanBeModified());
    EXPECT_DOUBLE_EQ(copy->GetDAR(), 1.5);
    void* data;
    int length;
    EXPECT_EQ(copy->GetBorderData(&data, &length), 6);
    EXPECT_EQ(std::memcmp(data, border, 6), 0);

    for (unsigned i = 0; i < 3; ++i) {
        unsigned sb, sp, sr, cb, cp, cr;
        unsigned char* s = source.GetBuffer(i, &sb, &sp, &sr);
        unsigned char* c = copy->GetBuffer(i, &cb, &cp, &cr);
        const auto* record = static_cast<CVideoFrame*>(copy)->GetBuffer(i);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(record->data) % 16, 0u);
        EXPECT_EQ(cp, sp);
        EXPECT_EQ(cr, sr);
        EXPECT_EQ(std::memcmp(c, s, size_t{sr} * sp), 0) << "plane " << i;
    }
    // Each plane starts on a 16-byte boundary: Y is 36 x 7 = 252 bytes, so U follows at 256.
    unsigned char* y = static_cast<CVideoFrame*>(copy)->GetBuffer(0u)->data;
    EXPECT_EQ(static_cast<CVideoFrame*>(copy)->GetBuffer(1u)->data - y, 256);
    copy->Free();  // a clone frees itself
}

TEST(VideoFrame, CloneSlotRoundsUpTo16) {
    std::vector<unsigned char> pixels(2564 * 3);
    unsigned char* data[] = {pixels.data()};
    int pitches[] = {2564};
    CVideoFrame frame(false, PIXFMT_BGRA32, 640, 3, true);
    frame.SetBuffer(data, pitches, nullptr);
    auto* copy = static_cast<CVideoFrame*>(frame.Clone());
    EXPECT_EQ(copy->GetTotalSize(), 7692u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(copy->GetBuffer(0u)->data) % 16, 0u);
    copy->Free();
}

TEST(VideoFrame, SubFrameAndInterfaces) {
    TestImage left({PIXFMT_BGRA32, 4, 2, 0, false}, 4);
    TestImage right({PIXFMT_BGRA32, 4, 2, 0, false}, 5);
    EXPECT_EQ(left.Frame().GetInterface("GSubVideoFrame"), nullptr);
    GVideoFrame* sub = left.Frame().CopySubsetFrame(&right.Frame());
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(left.Frame().GetInterface("GSubVideoFrame"), sub);
    EXPECT_EQ(left.Frame().GetInterface("other"), nullptr);

    GVideoFrame* copy = left.Frame().Clone();
    auto* copiedSub = static_cast<GVideoFrame*>(copy->GetInterface("GSubVideoFrame"));
    ASSERT_NE(copiedSub, nullptr);
    EXPECT_NE(copiedSub, sub);
    copy->Free();

    ReportWatch watch;
    EXPECT_EQ(left.Frame().GetInterface(nullptr), nullptr);
    EXPECT_EQ(watch.Count(), 1u);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
}

TEST(VideoFrame, BorderDataAndFree) {
    auto* frame = new CVideoFrame(false, PIXFMT_GRAY8, 4, 4, true);
    char bytes[] = {1, 2, 3};
    frame->SetBorderData(bytes, 3);
    frame->SetBorderData(nullptr, 5);  // ignored
    void* data = nullptr;
    int length = 0;
    EXPECT_EQ(frame->GetBorderData(&data, &length), 3);
    frame->SetBorderData(bytes, -4);  // a negative length stores nothing
    EXPECT_EQ(frame->GetBorderData(nullptr, nullptr), 0);
    frame->Free();  // not a clone: still alive
    EXPECT_EQ(frame->GetPixelFormat(), PIXFMT_GRAY8);
    delete frame;
}
