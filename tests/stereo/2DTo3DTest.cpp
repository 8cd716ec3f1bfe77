// 2D to 3D: properties and their quirks, the documented view columns, whole frames against the
// rendering of the effect's own views, attached second views and odd frames. Vector forms
// against the scalar rule are EveryEffect's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "core/Planes.h"
#include "libfilter/libfilter.h"
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

// The effect's work done step by step on a copy of a frame: its two views, then the renderer.
std::vector<uint8_t> ByItsSteps(const FrameShape& shape, uint32_t seed, Type3D type,
                                const char* depth, bool swap) {
    TestImage image(shape, seed);
    TestController host;
    GVideoProcessor* effect = libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D);
    effect->SetProperty("depth", depth);
    auto* stereo = static_cast<C2DTo3D*>(effect);
    GVideoFrame* left = stereo->PrepareLV(&image.Frame());
    GVideoFrame* right = stereo->PrepareRV(&image.Frame());
    if (swap) std::swap(left, right);
    C3DRender renderer(nullptr);
    renderer.SetRenderMode(type);
    renderer.Render(left, right, &image.Frame());
    effect->Free();
    return image.Snapshot();
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

TEST_F(StereoEffect, DefaultsDepthRoundingAndViewColumns) {
    int tag = -1;
    EXPECT_STREQ(effect->GetProperty("type", &tag), "1");
    EXPECT_STREQ(effect->GetProperty("depth", &tag), "60");
    EXPECT_STREQ(effect->GetProperty("swap", &tag), "0");
    EXPECT_EQ(tag, 3);
    ColumnFrame wide(160);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareLV(&wide.image.Frame()), 159), 99u);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&wide.image.Frame()), 0), 60u);
    // 4:2:0 chroma starts half as far in.
    TestImage yuv({0, 160, 2}, 3);
    for (unsigned x = 0; x < 80; ++x)
        yuv.Row(1, 0)[x] = static_cast<uint8_t>(x);
    EXPECT_EQ(GetPlane(stereo->PrepareRV(&yuv.Frame()), 1).Row(0)[0], 30);
    // The right view's first column shows source column `depth`, cut to tens and capped at 100;
    // a negative depth (its bit pattern) takes a quarter of the width.
    const std::pair<const char*, unsigned> depths[] = {
        {"95", 90}, {"250", 100}, {"7", 0}, {"30", 30}, {"-15", 200 / 4}};
    ColumnFrame frame(200);
    for (const auto& [text, expected] : depths) {
        effect->SetProperty("depth", text);
        EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&frame.image.Frame()), 0), expected)
            << text;
    }
    // A frame narrower than the depth: a quarter of its width, ratio 0.75.
    effect->SetProperty("depth", "100");
    ColumnFrame narrow(80);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareRV(&narrow.image.Frame()), 0), 20u);
    EXPECT_EQ(ColumnFrame::Column(stereo->PrepareLV(&narrow.image.Frame()), 79), 59u);
}

// A fresh effect (no type set) renders side by side although "type" reads 1; any swap but 0
// swaps. Types that are not anaglyphs ask the host for nothing; the anaglyphs do.
TEST_F(StereoEffect, FramesAreTheRenderingOfTheirViews) {
    for (int format : kFormats) {
        for (const char* type : {static_cast<const char*>(nullptr), "3", "4", "0", "7"}) {
            for (const FrameShape& shape :
                 {FrameShape{format, 45, 7, 3}, FrameShape{format, 21, 6, 0, true}}) {
                for (const char* swap : {"0", "5"}) {
                    GVideoProcessor* fresh = libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D);
                    if (type != nullptr) fresh->SetProperty("type", type);
                    fresh->SetProperty("depth", "30");
                    fresh->SetProperty("swap", swap);
                    TestImage image(shape, 9);
                    fresh->ProcFrameInPlace(&position, 0, &image.Frame());
                    const auto mode = type ? Type3D(std::atoi(type)) : TYPE3D_SIDE_BY_SIDE;
                    EXPECT_EQ(image.Snapshot(), ByItsSteps(shape, 9, mode, "30", *swap != '0'))
                        << testing_support::ShapeName(shape) << " type " << (type ? type : "-")
                        << " swap " << swap;
                    fresh->Free();
                }
            }
        }
    }
    EXPECT_TRUE(host.requests.empty());
    // The colour types go to the anaglyph, which asks for packed 24-bit work frames.
    for (const char* type : {"1", "2"}) {
        effect->SetProperty("type", type);
        TestImage image({0, 10, 4}, 6);
        Run(image.Frame());
    }
    ASSERT_FALSE(host.requests.empty());
    EXPECT_EQ(host.requests[0].format, PIXFMT_PACKED24_2);
}

TEST_F(StereoEffect, AttachedSecondViewIsRenderedDirectly) {
    effect->SetProperty("type", "4");
    TestImage image({30, 12, 6, 2}, 4), expected({30, 12, 6, 2}, 4), second({30, 12, 6}, 5);
    image.Frame().CopySubsetFrame(&second.Frame());
    Run(image.Frame());
    C3DRender renderer(nullptr);
    renderer.SetRenderMode(TYPE3D_TOP_BOTTOM);
    renderer.Render(&expected.Frame(), &second.Frame(), &expected.Frame());
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
}

TEST_F(StereoEffect, OddFramesStayInsideTheirPlanes) {
    ReportWatch watch;
    // No width: untouched. Formats the effect does not know: untouched and silent.
    for (const FrameShape& shape : {FrameShape{0, 0, 4}, FrameShape{30, 0, 2}}) {
        TestImage image(shape, 3);
        const auto before = image.Snapshot();
        Run(image.Frame());
        EXPECT_EQ(image.Snapshot(), before) << testing_support::ShapeName(shape);
    }
    EXPECT_EQ(testing_support::FirstForeignFormatChanged(effect), "");
    EXPECT_EQ(watch.Count(), 0u);
    // Sizes and depths changing from frame to frame give each frame its own geometry.
    const std::pair<FrameShape, const char*> frames[] = {
        {{0, 64, 8}, "60"}, {{0, 7, 3, 1}, "100"},  {{0, 1, 1}, "0"},  {{0, 3, 5}, "90"},
        {{30, 2, 2}, "10"}, {{30, 97, 4, 2}, "70"}, {{0, 64, 8}, "40"}};
    for (const auto& [shape, depth] : frames) {
        effect->SetProperty("depth", depth);
        TestImage image(shape, 7);
        Run(image.Frame());
        EXPECT_TRUE(image.GuardsIntact()) << depth;
    }
    TestImage image({0, 64, 8}, 7);
    Run(image.Frame());
    EXPECT_EQ(image.Snapshot(), ByItsSteps({0, 64, 8}, 7, TYPE3D_SIDE_BY_SIDE, "40", false));
}
