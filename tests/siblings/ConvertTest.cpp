// libconvert: format and size round trips, channel order and range, ownership of converted
// frames, extreme shrinks, and the rotation driven through it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <tuple>

#include "core/Planes.h"
#include "libfilter/Convert.h"
#include "libfilter/PixelFormat.h"
#include "libfilter/Stereo3D.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

const int kFormats[] = {0, 2, 3, 4, 5, 6, 7, 12, 13, 30, 33, 35, 90};

struct ConvertFixture : testing::Test {
    GController* controller = libconvert_CreateController();
    ~ConvertFixture() override { libconvert_DestroyController(controller); }
    ConverterPtr Make(int format, unsigned w = 0, unsigned h = 0) {
        return ConverterPtr(controller->CreateFrameConverter(format, w, h, 16));
    }
};

// A frame's format, size, row order and plane count.
std::tuple<int, unsigned, unsigned, bool, unsigned> Facts(GVideoFrame* frame) {
    unsigned w = 0, h = 0;
    frame->GetDimension(&w, &h);
    return {frame->GetPixelFormat(), w, h, frame->IsTopDown(), frame->GetBufferCount()};
}

}  // namespace

// A smooth picture (red grows to the right, green downwards, blue fixed, alpha opaque) through
// every format and back loses a little to subsampled chroma and limited-range rounding.
TEST_F(ConvertFixture, EveryFormatRoundTripsThroughBgraChannelOrderAndRange) {
    for (const FrameShape& shape : {FrameShape{30, 64, 48, 4}, FrameShape{30, 33, 17, 0, true}}) {
        TestImage image(shape, 1);
        for (unsigned y = 0; y < shape.height; ++y) {
            for (unsigned x = 0; x < shape.width; ++x) {
                const uint8_t pixel[] = {96, uint8_t(40 + 3 * y), uint8_t(30 + 2 * x), 255};
                std::memcpy(image.Row(0, y) + 4 * x, pixel, 4);
            }
        }
        for (int format : kFormats) {
            SCOPED_TRACE(testing::Message() << ShapeName(shape) << " via " << format);
            ConverterPtr there = Make(format), back = Make(PIXFMT_BGRA32);
            GVideoFrame* converted = there->Convert(&image.Frame());
            ASSERT_NE(converted, nullptr);
            const auto layout = GetPixelFormatLayout(format, shape.width, shape.height);
            EXPECT_EQ(Facts(converted),
                      std::make_tuple(format, shape.width, shape.height, !shape.bottomUp,
                                      layout.packed ? 1u : layout.planeCount));
            GVideoFrame* again = back->Convert(converted);
            ASSERT_NE(again, nullptr);
            const Plane was = GetPlane(&image.Frame(), 0), is = GetPlane(again, 0);
            for (unsigned y = 0; y < was.rows; ++y) {
                for (unsigned x = 0; x < was.rowBytes; ++x)
                    ASSERT_TRUE(x % 4 == 3 || std::abs(was.Row(y)[x] - is.Row(y)[x]) <= 16)
                        << x << "," << y;
            }
        }
    }
    // Channel order of the packed 24-bit formats; white and black are 235 and 16 in luma,
    // chroma centred on 128.
    TestImage image({30, 2, 2}, 1);
    for (unsigned i = 0; i < 4; ++i) {
        const uint8_t pixel[] = {10, 20, 30, 255};  // blue, green, red, alpha
        std::memcpy(image.Row(0, i / 2) + 4 * (i % 2), pixel, 4);
    }
    ConverterPtr toRgb = Make(PIXFMT_PACKED24_2), toBgr = Make(PIXFMT_PACKED24_3);
    const Plane rgb = GetPlane(toRgb->Convert(&image.Frame()), 0);
    EXPECT_EQ(std::vector<uint8_t>(rgb.data, rgb.data + 3), std::vector<uint8_t>({30, 20, 10}));
    const Plane bgr = GetPlane(toBgr->Convert(&image.Frame()), 0);
    EXPECT_EQ(std::vector<uint8_t>(bgr.data, bgr.data + 3), std::vector<uint8_t>({10, 20, 30}));
    for (auto [value, luma] : {std::pair<uint8_t, int>{255, 235}, {0, 16}}) {
        for (unsigned y = 0; y < 2; ++y)
            std::memset(image.Row(0, y), value, 8);
        ConverterPtr yuv = Make(PIXFMT_YUV420P);
        GVideoFrame* frame = yuv->Convert(&image.Frame());
        EXPECT_EQ(std::make_tuple(GetPlane(frame, 0).data[0], GetPlane(frame, 1).data[0],
                                  GetPlane(frame, 2).data[0]),
                  std::make_tuple(luma, 128, 128));
    }
}

TEST_F(ConvertFixture, SizesOwnershipAndRefusals) {
    TestImage image({0, 40, 30, 3}, 2);
    image.Frame().SetTimeStamp(77);
    ConverterPtr scaler(controller->CreateFrameConverter(PIXFMT_YUV420P, 20, 10, 4));
    int option = 0, format = -1;
    scaler->GetTarget(&option, &format);
    EXPECT_EQ(std::make_pair(option, format), std::make_pair(4, 0));
    GVideoFrame* first = scaler->Convert(&image.Frame());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Facts(first), std::make_tuple(0, 20u, 10u, true, 3u));
    EXPECT_EQ(first->GetTimeStamp(), 77);
    first->Free();  // harmless: the frame stays the converter's
    EXPECT_EQ(GetPlane(first, 0).rows, 10u);
    EXPECT_EQ(scaler->Convert(&image.Frame()), first);  // reused for the same size
    EXPECT_EQ(scaler->Convert(first), first);
    // Refused: formats no host of ours converts, frames without size or memory, no frame.
    EXPECT_EQ(controller->CreateFrameConverter(8, 0, 0, 16), nullptr);
    EXPECT_EQ(controller->CreateFrameConverter(-1, 0, 0, 16), nullptr);
    TestImage gray({8, 4, 4}, 1), empty({0, 0, 4}, 1);
    CVideoFrame bare(false, PIXFMT_YUV420P, 8, 8, true);
    for (GVideoFrame* frame :
         std::initializer_list<GVideoFrame*>{&gray.Frame(), &empty.Frame(), &bare, nullptr})
        EXPECT_EQ(scaler->Convert(frame), nullptr);
    TestImage single({35, 1, 1}, 3);  // no chroma memory at all
    EXPECT_EQ(Make(PIXFMT_BGRA32)->Convert(&single.Frame()), nullptr);
}

// Shrink ratios that fault or abort inside the scaling library when driven naively: far past
// its filter sizes, and rows shrinking several times while fed in slices.
TEST_F(ConvertFixture, ExtremeShrinksConvert) {
    // {from format, width, height, to format, width, height}
    const int cases[][6] = {
        {0, 990, 4, 0, 4, 4},      {0, 4, 990, 0, 4, 2},      {30, 2000, 8, 30, 8, 2},
        {0, 990, 990, 0, 4, 4},    {13, 2, 2674, 6, 5, 54},   {5, 1526, 871, 7, 34, 322},
        {3, 1, 3645, 6, 7, 381},   {35, 1896, 44, 6, 258, 3}, {7, 476, 2718, 6, 454, 289},
        {2, 13, 3108, 6, 34, 221}, {30, 9000, 4, 0, 1, 4}};
    for (const auto& c : cases) {
        TestImage image({c[0], unsigned(c[1]), unsigned(c[2])}, 5);
        EXPECT_NE(Make(c[3], c[4], c[5])->Convert(&image.Frame()), nullptr)
            << c[0] << " " << c[1] << "x" << c[2] << " to " << c[3] << " " << c[4] << "x" << c[5];
        EXPECT_TRUE(image.GuardsIntact());
    }
}

// Luma bright in the top-right quarter of a 64 x 32 frame only: a quarter turn counter-clockwise
// through the scaler moves it to the top-left of the turned picture, 16 wide at column 24
// between black columns.
TEST_F(ConvertFixture, RotationThroughTheScaler) {
    TestImage image({0, 64, 32}, 1);
    for (unsigned y = 0; y < 32; ++y) {
        std::memset(image.Row(0, y), 16, 64);
        if (y < 16) std::memset(image.Row(0, y) + 32, 235, 32);
    }
    FactoryEffect rotate(libfilter_GetFilter(controller, AVPROCESSOR_ROTATE90));
    ImagePostion position{};
    rotate.p->ProcFrameInPlace(&position, 0, &image.Frame());
    EXPECT_EQ(std::make_tuple(position.left, position.width, position.height),
              std::make_tuple(24, 16, 32));
    // {column, row, luma}: beside the picture, then its top-left, top-right and bottom-left.
    const int samples[][3] = {{20, 5, 16}, {44, 5, 16}, {28, 8, 235}, {36, 8, 16}, {28, 24, 16}};
    for (const auto& [x, y, luma] : samples)
        EXPECT_NEAR(image.Row(0, y)[x], luma, 3) << x << "," << y;
}
