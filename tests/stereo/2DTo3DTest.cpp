// 2D to 3D: properties and their quirks, the documented view columns, whole frames against the
// views' formula and the renderer's model, attached second views, odd hosts and vector forms.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "libfilter/libfilter.h"
#include "stereo/StereoModel.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::FrameShape;
using testing_support::ReportWatch;
using testing_support::TestController;
using testing_support::TestImage;

namespace {

const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 35, 90};

// A BGRA frame whose pixel (y, x) holds x in its first two bytes.
struct ColumnFrame {
    explicit ColumnFrame(unsigned width) : image({PIXFMT_BGRA32, width, 2}, 1) {
        for (unsigned y = 0; y < 2; ++y) {
            for (unsigned x = 0; x < width; ++x) {
                image.Row(0, y)[4 * x] = static_cast<uint8_t>(x);
                image.Row(0, y)[4 * x + 1] = static_cast<uint8_t>(x >> 8);
            }
        }
    }
    static unsigned Column(GVideoFrame* view, unsigned x) {
        const Plane p = GetPlane(view, 0);
        return p.Row(0)[4 * x] | p.Row(0)[4 * x + 1] << 8;
    }
    TestImage image;
};

// The views by their formula (nearest lower column, the right view's source clamped to the row),
// then the renderer's model, on a first frame.
void Model(GVideoFrame* frame, Type3D type, unsigned depth, bool swap) {
    unsigned w = 0, h = 0;
    frame->GetDimension(&w, &h);
    if (w < depth) depth = w >> 2;
    const double ratio = static_cast<double>(w - depth) / w;
    const int format = frame->GetPixelFormat();
    auto view = [&](bool right) {
        FramePtr v(frame->Clone());
        const bool packed = format == PIXFMT_BGRA32;
        const unsigned unit = packed ? 4 : 1;
        for (unsigned i = 0; i < (packed ? 1u : 3u); ++i) {
            const Plane to = GetPlane(v.get(), i), from = GetPlane(frame, i);
            const bool halved = i > 0 && format != PIXFMT_PLANAR4_FULL;
            const unsigned offset = right ? (halved ? depth / 2 : depth) : 0;
            for (unsigned y = 0; y < to.rows; ++y) {
                for (unsigned x = 0; x < to.rowBytes / unit; ++x) {
                    const unsigned column = std::min<unsigned>(
                        static_cast<unsigned>(x * ratio) + offset, from.rowBytes / unit - 1);
                    std::memcpy(to.Row(y) + x * unit, from.Row(y) + column * unit, unit);
                }
            }
        }
        return v;
    };
    FramePtr left = view(false), right = view(true);
    GVideoFrame* l = left.get();
    GVideoFrame* r =
        format == 4 || format == 6 || format == 7 || format == 13 ? frame : right.get();
    if (swap) std::swap(l, r);
    stereo_model::Model(type, l, r, frame);
}

struct StereoEffect : testing::Test {
    TestController host;
    GVideoProcessor* effect = libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D);
    C2DTo3D* stereo = static_cast<C2DTo3D*>(effect);
    ImagePostion position{};
    ~StereoEffect() override { effect->Free(); }
    void Run(GVideoFrame& frame) { effect->ProcFrameInPlace(&position, 0, &frame); }
};

}  // namespace

TEST_F(StereoEffect, DepthRoundingSwapAndTheFreshType) {
    int tag = -1;
    EXPECT_STREQ(effect->GetProperty("type", &tag), "1");
    EXPECT_STREQ(effect->GetProperty("depth", &tag), "60");
    EXPECT_STREQ(effect->GetProperty("swap", &tag), "0");
    EXPECT_EQ(tag, 3);
    // The right view's first column shows source column `depth`.
    const std::pair<const char*, unsigned> depths[] = {
        {"95", 90}, {"250", 100}, {"7", 0}, {"30", 30}, {"-15", 200 / 4}};
    ColumnFrame frame(200);
    for (const auto& [text, expected] : depths) {
        effect->SetProperty("depth", text);
        EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&frame.image.Frame()), 0), expected)
            << text;
    }
    // A fresh effect renders side by side although "type" reads 1.
    TestImage image({0, 16, 4}, 2), expected({0, 16, 4}, 2);
    Run(image.Frame());
    Model(&expected.Frame(), TYPE3D_SIDE_BY_SIDE, 60, false);
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
    EXPECT_TRUE(host.requests.empty());
    effect->SetProperty("swap", "5");
    TestImage swapped({0, 16, 4}, 2), swappedModel({0, 16, 4}, 2);
    Run(swapped.Frame());
    Model(&swappedModel.Frame(), TYPE3D_SIDE_BY_SIDE, 60, true);
    EXPECT_EQ(swapped.Snapshot(), swappedModel.Snapshot());
}

TEST_F(StereoEffect, ViewColumnsOfTheWorkedFrames) {
    ColumnFrame frame(160);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareLV(&frame.image.Frame()), 159), 99u);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&frame.image.Frame()), 0), 60u);
    // 4:2:0 chroma starts half as far in.
    TestImage yuv({0, 160, 2}, 3);
    for (unsigned x = 0; x < 80; ++x)
        yuv.Row(1, 0)[x] = static_cast<uint8_t>(x);
    EXPECT_EQ(GetPlane(stereo->PrepareRV(&yuv.Frame()), 1).Row(0)[0], 30);
    // A first frame narrower than the depth: a quarter of its width, ratio 0.75.
    effect->SetProperty("depth", "100");
    ColumnFrame narrow(80);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&narrow.image.Frame()), 0), 20u);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareLV(&narrow.image.Frame()), 79), 59u);
}

TEST_F(StereoEffect, FramesMatchTheViewsAndTheRenderer) {
    for (int format : kFormats) {
        for (const char* type : {"3", "4", "0", "7"}) {
            for (const FrameShape& shape :
                 {FrameShape{format, 45, 7, 3}, FrameShape{format, 21, 6, 0, true}}) {
                SCOPED_TRACE(testing::Message()
                             << testing_support::ShapeName(shape) << " type " << type);
                for (bool swap : {false, true}) {
                    GVideoProcessor* fresh = libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D);
                    fresh->SetProperty("type", type);
                    fresh->SetProperty("depth", "30");
                    fresh->SetProperty("swap", swap ? "1" : "0");
                    TestImage image(shape, 9), expected(shape, 9);
                    fresh->ProcFrameInPlace(&position, 0, &image.Frame());
                    Model(&expected.Frame(), static_cast<Type3D>(std::atoi(type)), 30, swap);
                    EXPECT_EQ(image.Snapshot(), expected.Snapshot()) << swap;
                    fresh->Free();
                }
            }
        }
    }
}

TEST_F(StereoEffect, AttachedSecondViewIsRenderedDirectly) {
    effect->SetProperty("type", "4");
    TestImage image({30, 12, 6, 2}, 4), expected({30, 12, 6, 2}, 4), second({30, 12, 6}, 5);
    image.Frame().CopySubsetFrame(&second.Frame());
    Run(image.Frame());
    auto* sub = static_cast<GVideoFrame*>(image.Frame().GetInterface("GSubVideoFrame"));
    stereo_model::Model(TYPE3D_TOP_BOTTOM, &expected.Frame(), sub, &expected.Frame());
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
}

TEST_F(StereoEffect, ColourTypesGoToTheAnaglyph) {
    for (const char* type : {"1", "2"}) {
        effect->SetProperty("type", type);
        TestImage image({0, 10, 4}, 6);
        Run(image.Frame());
    }
    ASSERT_FALSE(host.requests.empty());
    EXPECT_EQ(host.requests[0].format, PIXFMT_PACKED24_2);
}

TEST_F(StereoEffect, OddFramesStayInsideTheirPlanes) {
    ReportWatch watch;
    // No width: untouched. Formats the effect does not know: untouched and silent.
    for (const FrameShape& shape : {FrameShape{0, 0, 4}, FrameShape{30, 0, 2}, FrameShape{5, 9, 4},
                                    FrameShape{8, 9, 4}, FrameShape{2, 9, 3}}) {
        TestImage image(shape, 3);
        const auto before = image.Snapshot();
        Run(image.Frame());
        EXPECT_EQ(image.Snapshot(), before) << testing_support::ShapeName(shape);
    }
    EXPECT_EQ(watch.Count(), 0u);
    // Sizes and depths changing from frame to frame give each frame its own geometry.
    const FrameShape shapes[] = {{0, 64, 8}, {0, 7, 3, 1},   {0, 1, 1}, {0, 3, 5},
                                 {30, 2, 2}, {30, 97, 4, 2}, {0, 64, 8}};
    const char* depths[] = {"60", "100", "0", "90", "10", "70", "40"};
    for (size_t i = 0; i < std::size(shapes); ++i) {
        effect->SetProperty("depth", depths[i]);
        TestImage image(shapes[i], 7);
        Run(image.Frame());
        EXPECT_TRUE(image.GuardsIntact()) << i;
    }
    TestImage image({0, 64, 8}, 7), expected({0, 64, 8}, 7);
    Run(image.Frame());
    Model(&expected.Frame(), TYPE3D_SIDE_BY_SIDE, 40, false);
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
}

TEST_F(StereoEffect, VectorFormsMatchTheRule) {
    uint32_t seed = 1;
    for (const char* type : {"3", "4"}) {
        effect->SetProperty("type", type);
        for (const FrameShape& shape : testing_support::KernelShapes(kFormats)) {
            effect->SetProperty("swap", seed % 3 == 0 ? "1" : "0");
            EXPECT_EQ(testing_support::FirstLevelDiffering(effect, shape, seed % 2 == 0, seed), "")
                << testing_support::ShapeName(shape) << " type " << type;
            ++seed;
        }
    }
}
