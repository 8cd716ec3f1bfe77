// The library's frame: geometry, attached memory, crops, copies and attributes.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <tuple>

#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

using Geometry = std::array<unsigned, 3>;  // row bytes, pitch, rows

Geometry PlaneGeometry(GVideoFrame& frame, unsigned plane) {
    Geometry g{};
    frame.GetBuffer(plane, &g[0], &g[1], &g[2]);
    return g;
}

std::pair<unsigned, unsigned> Dimension(CVideoFrame& frame) {
    unsigned w = 0, h = 0;
    frame.GetDimension(&w, &h);
    return {w, h};
}

}  // namespace

// A frame made without memory has its geometry only; crops cut row bytes and rows of every
// plane.
TEST(VideoFrame, GeometryCropsAndAttachedMemory) {
    CVideoFrame frame(false, PIXFMT_BGRA32, 640, 480, true);
    unsigned rowBytes = 0, pitch = 99, rows = 0, second = 9;
    EXPECT_EQ(frame.GetBuffer(0, &rowBytes, &pitch, &rows), nullptr);
    EXPECT_EQ((Geometry{rowBytes, pitch, rows}), (Geometry{2560, 0, 480}));
    const unsigned duplicated = frame.GetDuplicatedCount(&second);
    EXPECT_EQ(std::make_tuple(frame.GetTotalSize(), frame.GetRequireSize(), frame.GetDuration(),
                              duplicated, second),
              std::make_tuple(0u, 1228800u, 1u, 1u, 0u));
    EXPECT_EQ(frame.GetBuffer(1, &rowBytes, &pitch, &rows), nullptr);
    EXPECT_EQ(frame.GetBuffer(1), nullptr);
    for (bool bottomUp : {false, true}) {
        TestImage image({PIXFMT_BGRA32, 640, 480, 4, bottomUp}, 1);
        CVideoFrame& cropped = image.Frame();
        unsigned char* before = cropped.GetBuffer(0u)->data;
        ASSERT_TRUE(cropped.CropRightAndBottom(10, 4));
        EXPECT_EQ(Dimension(cropped), std::make_pair(630u, 476u));
        EXPECT_EQ(PlaneGeometry(cropped, 0), (Geometry{2520, 2564, 476}));
        // Bottom-up frames store the bottom rows first: the crop skips them.
        EXPECT_EQ(cropped.GetBuffer(0, nullptr, nullptr, nullptr) - before,
                  bottomUp ? 4 * 2564 : 0);
        // A crop is absolute and must stay inside the frame.
        EXPECT_FALSE(cropped.CropRightAndBottom(640, 0) || cropped.CropRightAndBottom(0, 480));
        EXPECT_EQ(Dimension(cropped), std::make_pair(630u, 476u));
    }
    // {format, width, height, right and bottom cut, plane, row bytes and rows left}: chroma of 3
    // rows loses as many rows as luma (a cut of 4 empties it); a plane without bytes loses
    // nothing to a right crop.
    const std::array<unsigned, 8> planes[] = {{0, 64, 6, 2, 4, 0, 62, 2},
                                              {0, 64, 6, 2, 4, 2, 31, 0},
                                              {0, 64, 64, 0, 4, 2, 32, 28},
                                              {PIXFMT_TWOPLANE_11, 16, 4, 3, 0, 1, 0, 0}};
    for (const auto& c : planes) {
        CVideoFrame frame(false, static_cast<int>(c[0]), c[1], c[2], true);
        ASSERT_TRUE(frame.CropRightAndBottom(c[3], c[4]));
        EXPECT_EQ(PlaneGeometry(frame, c[5]), (Geometry{c[6], 0, c[7]})) << c[0] << " " << c[5];
    }
    // A new size lays the planes out again and drops the crop.
    CVideoFrame resized(false, PIXFMT_YUV420P, 16, 16, true);
    ASSERT_TRUE(resized.CropRightAndBottom(2, 2));
    resized.SetSize(16, 16);
    EXPECT_EQ(Dimension(resized), std::make_pair(16u, 16u));
    resized.SetSize(8, 6);
    EXPECT_EQ(resized.GetRequireSize(), 8u * 6 + 2 * 4 * 3);
    // Memory handed over with negative pitches is kept by its lowest row.
    std::vector<unsigned char> y(8 * 4), u(4 * 2), v(4 * 2);
    unsigned char* data[] = {y.data() + 3 * 8, u.data() + 4, v.data() + 4};
    int pitches[] = {-8, -4, -4};
    CVideoFrame held(false, PIXFMT_YUV420P, 8, 4, true);
    held.SetBuffer(data, pitches, nullptr);
    EXPECT_TRUE(held.GetBuffer(0u)->data == y.data() && held.GetBuffer(2u)->data == v.data());
    EXPECT_EQ(std::make_tuple(held.IsTopDown(), PlaneGeometry(held, 0)[1],
                              PlaneGeometry(held, 2)[1], held.GetTotalSize()),
              std::make_tuple(false, 8u, 4u, 32u + 8 + 8));
    ReportWatch watch;
    held.SetBuffer(nullptr, pitches, nullptr);
    EXPECT_TRUE(watch.Count() == 1u && held.GetBuffer(0u)->data == y.data());
}

// A clone carries every attribute and its own copy of the sub frame, and frees itself; its
// planes lie in one block, each starting on a 16-byte boundary.
TEST(VideoFrame, ClonesSubFramesAndBorderData) {
    TestImage image({PIXFMT_YUV420P, 33, 7, 3, true}, 3), other({PIXFMT_BGRA32, 4, 2}, 5);
    CVideoFrame& source = image.Frame();
    EXPECT_EQ(source.GetInterface("GSubVideoFrame"), nullptr);
    GVideoFrame* sub = source.CopySubsetFrame(&other.Frame());
    EXPECT_EQ(source.GetInterface("GSubVideoFrame"), sub);
    EXPECT_EQ(source.GetInterface("other"), nullptr);
    source.SetTimeStamp(77);
    source.SetDuration(5);
    source.SetDuplicatedCount(3, 4);
    source.SetInterlaced(true);
    source.SetTopFieldFirst(true);
    source.SetDAR(1.5);
    source.SetCanBeModified(false);
    source.SetBorderData(const_cast<char*>("border"), 6);
    source.CropRightAndBottom(1, 1);
    auto* copy = static_cast<CVideoFrame*>(source.Clone());
    unsigned second = 0;
    void* data = nullptr;
    int length = 0;
    const unsigned duplicated = copy->GetDuplicatedCount(&second);
    const int borderLength = copy->GetBorderData(&data, &length);
    EXPECT_EQ(std::make_tuple(copy->GetTimeStamp(), copy->GetDuration(), duplicated, second,
                              copy->IsInterlaced(), copy->IsTopFieldFirst(), copy->IsTopDown(),
                              copy->CanBeModified(), copy->GetDAR(), borderLength),
              std::make_tuple(77, 5u, 3u, 4u, true, true, false, true, 1.5, 6));
    EXPECT_EQ(std::string(static_cast<char*>(data), 6), "border");
    auto* copiedSub = static_cast<GVideoFrame*>(copy->GetInterface("GSubVideoFrame"));
    EXPECT_TRUE(copiedSub != nullptr && copiedSub != sub);
    for (unsigned i = 0; i < 3; ++i) {
        const Geometry g = PlaneGeometry(source, i);
        EXPECT_EQ(PlaneGeometry(*copy, i), g);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(copy->GetBuffer(i)->data) % 16, 0u);
        EXPECT_EQ(std::memcmp(copy->GetBuffer(i)->data, source.GetBuffer(i)->data, g[1] * g[2]), 0)
            << "plane " << i;
    }
    // Y is 36 x 7 = 252 bytes, so U follows at 256.
    EXPECT_EQ(copy->GetBuffer(1u)->data - copy->GetBuffer(0u)->data, 256);
    copy->Free();
    // A frame never given memory clones as zeros, in the row order it was last given.
    auto* frame = new CVideoFrame(false, PIXFMT_GRAY8, 4, 2, true);
    frame->GetBuffer(0u)->pitch = 4;
    frame->SetTopDown(false);
    copy = static_cast<CVideoFrame*>(frame->Clone());
    const uint8_t* zeros = copy->GetBuffer(0u)->data;
    EXPECT_EQ(std::vector<uint8_t>(zeros, zeros + 8), std::vector<uint8_t>(8, 0));
    EXPECT_FALSE(copy->IsTopDown());
    copy->Free();
    // Border data: a null pointer is ignored, a negative length stores nothing.
    char bytes[] = {1, 2, 3};
    frame->SetBorderData(bytes, 3);
    frame->SetBorderData(nullptr, 5);
    EXPECT_EQ(frame->GetBorderData(nullptr, nullptr), 3);
    frame->SetBorderData(bytes, -4);
    EXPECT_EQ(frame->GetBorderData(nullptr, nullptr), 0);
    frame->Free();  // not a clone: still alive
    EXPECT_EQ(frame->GetPixelFormat(), PIXFMT_GRAY8);
    delete frame;
    ReportWatch watch;
    EXPECT_EQ(source.GetInterface(nullptr), nullptr);
    EXPECT_EQ(std::make_pair(watch.Count(), watch.LastMessage()),
              std::make_pair(1u, std::string("fatal error:null pointer")));
}
