// Rotation: the documented geometry, frames against a plain model on the test converter for
// every flow (YUV, BGRA, other formats, bottom-up, odd sizes), bad hosts and vector forms.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/PlaneCopy.h"
#include "libfilter/Rotate90X.h"
#include "libfilter/libfilter.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::FrameShape;
using testing_support::ReportWatch;
using testing_support::Resample;
using testing_support::TestController;
using testing_support::TestImage;

namespace {

// The rotation of a YUV 4:2:0 frame, written as the rule reads: black planes (padding too, as
// the result goes back in one block per plane), then every output pixel with its chroma.
ImagePostion ModelYuv(GVideoFrame* frame, int direction) {
    unsigned w = 0, h = 0;
    frame->GetDimension(&w, &h);
    const double s = static_cast<double>(std::min(w, h)) / std::max(w, h);
    const int sh = static_cast<int>(h * s) & ~1, sw = static_cast<int>(w * s) & ~1;
    const auto scaled = Resample(frame, 0, sw, sh);
    const int x0 = static_cast<int>(w / 2) - sh / 2, y0 = static_cast<int>(h / 2) - sw / 2;
    if (!frame->IsTopDown()) direction = 3 - direction;
    Plane dst[3], src[3];
    for (unsigned p = 0; p < 3; ++p) {
        dst[p] = GetPlane(frame, p);
        src[p] = GetPlane(scaled->frame.get(), p);
        std::fill(dst[p].data, dst[p].data + size_t{dst[p].pitch} * dst[p].rows, p ? 128 : 16);
    }
    for (int r = 0; r < sw; ++r) {
        for (int c = 0; c < sh; ++c) {
            int row = direction == 1 ? c : sh - c, column = direction == 1 ? sw - r : r;
            row = std::min(row, sh - 1);
            column = std::min(column, sw - 1);
            const unsigned oy = y0 + r, ox = x0 + c;
            if (oy < dst[0].rows && ox < dst[0].rowBytes)
                dst[0].Row(oy)[ox] = src[0].Row(row)[column];
            for (unsigned p = 1; p < 3; ++p) {
                if (oy / 2 >= dst[p].rows || ox / 2 >= dst[p].rowBytes) continue;
                const unsigned cy = std::min<unsigned>(row / 2, src[p].rows - 1);
                const unsigned cx = std::min<unsigned>(column / 2, src[p].rowBytes - 1);
                dst[p].Row(oy / 2)[ox / 2] = src[p].Row(cy)[cx];
            }
        }
    }
    return {static_cast<uint16_t>(x0), static_cast<uint16_t>(y0), 0, 3,
            static_cast<uint16_t>(sh), static_cast<uint16_t>(sw)};
}

// Other formats go through YUV 4:2:0 and back; BGRA takes plane 0 only.
ImagePostion Model(GVideoFrame* frame, int direction) {
    const int format = frame->GetPixelFormat();
    if (format == PIXFMT_YUV420P) return ModelYuv(frame, direction);
    const auto yuv = Resample(frame, PIXFMT_YUV420P, 0, 0);
    const ImagePostion position = ModelYuv(yuv->frame.get(), direction);
    const auto back = Resample(yuv->frame.get(), format, 0, 0);
    CopyPlanesInto(frame, back->frame.get(),
                   format == PIXFMT_BGRA32 ? 1 : back->frame->GetBufferCount());
    return position;
}

bool SamePosition(const ImagePostion& a, const ImagePostion& b) {
    return a.left == b.left && a.top == b.top && a.word0 == b.word0 && a.word1 == b.word1 &&
           a.width == b.width && a.height == b.height;
}

struct RotateFixture : testing::Test {
    TestController host;
    GVideoProcessor* effect = libfilter_GetFilter(&host, AVPROCESSOR_ROTATE90);
    CRotate90X* rotate = static_cast<CRotate90X*>(effect);
    ~RotateFixture() override { effect->Free(); }

    // Runs the effect and the model on the same frame and compares bytes and positions.
    void ExpectModel(const FrameShape& shape, int direction) {
        TestImage image(shape, 4), expected(shape, 4);
        ImagePostion position{};
        effect->ProcFrameInPlace(&position, 0, &image.Frame());
        const ImagePostion modelled = Model(&expected.Frame(), direction);
        EXPECT_EQ(image.Snapshot(), expected.Snapshot()) << testing_support::ShapeName(shape);
        EXPECT_TRUE(SamePosition(position, modelled)) << testing_support::ShapeName(shape);
    }
};

}  // namespace

TEST_F(RotateFixture, FullHdGeometry) {
    TestImage image({0, 1920, 1080}, 3);
    ImagePostion position{};
    effect->ProcFrameInPlace(&position, 0, &image.Frame());
    EXPECT_TRUE(SamePosition(position, {657, 0, 0, 3, 606, 1080}));
    ASSERT_EQ(host.requests.size(), 1u);
    EXPECT_EQ(host.requests[0].format, 0);
    EXPECT_EQ(host.requests[0].width, 1080u);
    EXPECT_EQ(host.requests[0].height, 606u);
    EXPECT_EQ(host.requests[0].option, 4);
    for (unsigned y : {0u, 539u, 1079u}) {
        EXPECT_EQ(image.Row(0, y)[656], 16);
        EXPECT_EQ(image.Row(0, y)[657 + 606], 16);
        EXPECT_EQ(image.Row(1, y / 2)[300], 128);
    }
    ExpectModel({0, 1920, 1080}, 1);
}

TEST_F(RotateFixture, AngleSetsTheDirection) {
    const std::pair<const char*, int> angles[] = {{"0", 1},  {"-90", 2}, {"180", 2},
                                                  {"90", 1}, {"270", 2}, {"360", 2}};
    for (const auto& [angle, direction] : angles) {
        effect->SetProperty("rotate90_angle", angle);
        ExpectModel({0, 24, 16, 3}, direction);
        ExpectModel({0, 24, 16, 0, true}, direction);  // bottom-up turns the other way
    }
}

TEST_F(RotateFixture, EveryFlowMatchesTheModel) {
    for (const FrameShape& shape :
         {FrameShape{0, 16, 16}, FrameShape{0, 15, 15, 1}, FrameShape{0, 9, 30, 2},
          FrameShape{0, 7, 5, 3, true}, FrameShape{0, 3, 1}, FrameShape{0, 1, 1},
          FrameShape{0, 2, 2}, FrameShape{30, 20, 12, 4}, FrameShape{30, 5, 7, 0, true},
          FrameShape{4, 22, 10, 1}, FrameShape{35, 18, 12}, FrameShape{90, 12, 18, 2},
          FrameShape{0, 36, 20}}) {
        ExpectModel(shape, 1);
    }
    // Square frames fill themselves from the corner.
    TestImage square({0, 10, 10}, 1);
    ImagePostion position{};
    effect->ProcFrameInPlace(&position, 0, &square.Frame());
    EXPECT_TRUE(SamePosition(position, {0, 0, 0, 3, 10, 10}));
}

TEST_F(RotateFixture, ConvertersAskedForAndKept) {
    TestImage bgra({30, 12, 8}, 1), yuv422({4, 12, 8}, 2), yuv422b({4, 12, 8}, 3),
        gray({8, 6, 4}, 4);
    ImagePostion position{};
    effect->ProcFrameInPlace(&position, 0, &bgra.Frame());
    effect->ProcFrameInPlace(&position, 0, &bgra.Frame());
    ASSERT_EQ(host.requests.size(), 3u);
    EXPECT_EQ(host.requests[0].format, 30);
    EXPECT_EQ(host.requests[1].format, 0);
    EXPECT_EQ(host.requests[0].option, 16);
    EXPECT_EQ(host.requests[1].width, 0u);
    EXPECT_EQ(host.requests[2].option, 4);  // the scaler
    effect->ProcFrameInPlace(&position, 0, &yuv422.Frame());
    effect->ProcFrameInPlace(&position, 0, &yuv422b.Frame());
    ASSERT_EQ(host.requests.size(), 5u);  // same size: the scaler stays
    EXPECT_EQ(host.requests[3].format, 0);
    EXPECT_EQ(host.requests[4].format, 4);
    effect->ProcFrameInPlace(&position, 0, &gray.Frame());  // new format and size
    EXPECT_EQ(host.requests.size(), 8u);
    EXPECT_EQ(host.live, 5);
}

TEST_F(RotateFixture, FailuresReportAndLeaveTheFrame) {
    using Failure = TestController::Failure;
    struct Case {
        Failure failure;
        bool controller;
        FrameShape shape;
        const char* message;
    };
    const Case cases[] = {
        {Failure::None, false, {0, 8, 6}, "fatal error:null pointer"},
        {Failure::None, false, {30, 8, 6}, "fatal error:null pointer"},
        {Failure::NoConverter, true, {0, 8, 6}, "fatal error:null pointer"},
        {Failure::NullConvert, true, {30, 8, 6}, "fatal error:null pointer"},
        {Failure::NullConvert, true, {0, 8, 6}, "fatal error:null pointer"},
        {Failure::None, true, {0, 0, 0}, "rotate image effect find input image w/h is 0"},
        {Failure::None, true, {0, 6, 0}, "rotate image effect find input image w/h is 0"},
    };
    for (const Case& c : cases) {
        TestController failing;
        failing.failure = c.failure;
        GVideoProcessor* fresh =
            libfilter_GetFilter(c.controller ? &failing : nullptr, AVPROCESSOR_ROTATE90);
        TestImage image(c.shape, 2);
        const auto before = image.Snapshot();
        ImagePostion position{};
        ReportWatch watch;
        fresh->ProcFrameInPlace(&position, 0, &image.Frame());
        EXPECT_EQ(watch.Count(), 1u) << c.message;
        EXPECT_EQ(watch.LastMessage(), c.message);
        EXPECT_EQ(watch.LastFile(), "Rotate90X.cpp");
        EXPECT_EQ(image.Snapshot(), before);
        fresh->Free();
    }
    // Converted frames of another size are read and copied only as far as they reach.
    TestController half;
    half.failure = Failure::HalfSize;
    for (int format : {0, 30, 6}) {
        GVideoProcessor* fresh = libfilter_GetFilter(&half, AVPROCESSOR_ROTATE90);
        TestImage image({format, 40, 24, 1}, 2);
        ImagePostion position{};
        fresh->ProcFrameInPlace(&position, 0, &image.Frame());
        EXPECT_TRUE(image.GuardsIntact());
        fresh->Free();
    }
}

TEST_F(RotateFixture, DirectCallsStayWithTheirOwnFrames) {
    ReportWatch watch;
    EXPECT_FALSE(rotate->ProcessYUV90(nullptr, 1));
    EXPECT_FALSE(rotate->PrepareImageCvt(nullptr));
    EXPECT_FALSE(rotate->PrepareRstFrame(7, nullptr));
    EXPECT_EQ(watch.LastMessage(), "rotate 90 effect only support BGRA/yuv pixfmt, value:7");
    TestImage other({4, 8, 8}, 1);
    EXPECT_FALSE(rotate->PrepareImageCvt(&other.Frame()));
    EXPECT_EQ(watch.LastMessage(), "rotate effect only support BGRA, yuv420");
    EXPECT_EQ(watch.Count(), 4u);
    // A frame that is not the effect's own keeps its memory.
    TestImage yuv({0, 8, 8}, 2), bgra({30, 8, 8}, 3);
    ImagePostion position{};
    effect->ProcFrameInPlace(&position, 0, &yuv.Frame());
    const auto before = yuv.Snapshot();
    rotate->FreeVideoFrameBuffer(&yuv.Frame());
    rotate->FreeVideoFrameBuffer(&bgra.Frame());  // frees the effect's own first plane
    EXPECT_EQ(yuv.Snapshot(), before);
    effect->ProcFrameInPlace(&position, 0, &yuv.Frame());  // rebuilds what it released
    EXPECT_TRUE(yuv.GuardsIntact());
    // The packed turn writes only inside the frame it is given.
    EXPECT_TRUE(rotate->PrepareImageCvt(&bgra.Frame()));
    effect->ProcFrameInPlace(&position, 0, &yuv.Frame());
    EXPECT_TRUE(rotate->ProcessBGRA90(&bgra.Frame(), 2));
    EXPECT_FALSE(rotate->ProcessBGRA90(&bgra.Frame(), 3));
    EXPECT_EQ(watch.LastMessage(), "rotate direction invalid, val3");
    EXPECT_TRUE(yuv.GuardsIntact() && bgra.GuardsIntact());
}

TEST_F(RotateFixture, VectorFormsMatchTheModelAndTheScalarRule) {
    std::vector<FrameShape> shapes = testing_support::KernelShapes({0});
    shapes.insert(shapes.end(), {{0, 1920, 1080}, {0, 200, 300, 3, true}, {0, 301, 97, 1}});
    for (auto [angle, direction] : {std::pair{"90", 1}, {"270", 2}}) {
        effect->SetProperty("rotate90_angle", angle);
        auto model = [direction = direction](GVideoFrame& frame) { Model(&frame, direction); };
        EXPECT_EQ(testing_support::FirstShapeDiffering(effect, shapes, model), "") << angle;
    }
}
