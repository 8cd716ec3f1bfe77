// 2D to 3D: properties and their quirks, the documented view columns, whole frames against the
// rendering of the effect's own views, and attached second views. Vector forms against the
// scalar rule are EveryEffect's, edge shapes Robustness's.
#include <gtest/gtest.h>

#include <cstdlib>

#include "core/Planes.h"
#include "libfilter/libfilter.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// A BGRA frame whose pixel x holds x in its first byte; and that byte at x in a view.
TestImage Columns(unsigned width) {
    TestImage image({PIXFMT_BGRA32, width, 2}, 1);
    for (unsigned x = 0; x < width; ++x)
        image.Row(0, 0)[4 * x] = image.Row(0, 1)[4 * x] = static_cast<uint8_t>(x);
    return image;
}
unsigned Column(GVideoFrame* view, unsigned x) {
    return GetPlane(view, 0).Row(0)[4 * x];
}

// The effect's work done step by step on a copy of a frame: its two views, then the renderer.
std::vector<uint8_t> ByItsSteps(const FrameShape& shape, uint32_t seed, Type3D type,
                                const char* depth, bool swap) {
    TestImage image(shape, seed);
    TestController host;
    FactoryEffect effect(libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D), {{"depth", depth}});
    auto* stereo = static_cast<C2DTo3D*>(effect.p);
    GVideoFrame* views[] = {stereo->PrepareLV(&image.Frame()), stereo->PrepareRV(&image.Frame())};
    C3DRender renderer(nullptr);
    renderer.SetRenderMode(type);
    renderer.Render(views[swap], views[!swap], &image.Frame());
    return image.Snapshot();
}

struct StereoEffect : testing::Test {
    TestController host;
    FactoryEffect effect{libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D)};
    C2DTo3D* stereo = static_cast<C2DTo3D*>(effect.p);
};

}  // namespace

TEST_F(StereoEffect, DefaultsDepthRoundingAndViewColumns) {
    int tag = -1;
    for (const auto& [name, value] : {std::pair{"type", "1"}, {"depth", "60"}, {"swap", "0"}})
        EXPECT_STREQ(effect.p->GetProperty(name, &tag), value);
    EXPECT_EQ(tag, 3);
    TestImage wide = Columns(160), frame = Columns(200), narrow = Columns(80);
    EXPECT_EQ(Column(stereo->PrepareLV(&wide.Frame()), 159), 99u);
    EXPECT_EQ(Column(stereo->PrepareRV(&wide.Frame()), 0), 60u);
    // 4:2:0 chroma starts half as far in.
    TestImage yuv({0, 160, 2}, 3);
    for (unsigned x = 0; x < 80; ++x)
        yuv.Row(1, 0)[x] = static_cast<uint8_t>(x);
    EXPECT_EQ(GetPlane(stereo->PrepareRV(&yuv.Frame()), 1).Row(0)[0], 30);
    // The right view's first column shows source column `depth`, cut to tens and capped at 100;
    // a negative depth (its bit pattern) takes a quarter of the width.
    const std::pair<const char*, unsigned> depths[] = {
        {"95", 90}, {"250", 100}, {"7", 0}, {"30", 30}, {"-15", 200 / 4}};
    for (const auto& [text, expected] : depths) {
        effect.Set({{"depth", text}});
        EXPECT_EQ(Column(stereo->PrepareRV(&frame.Frame()), 0), expected) << text;
    }
    // A frame narrower than the depth: a quarter of its width, ratio 0.75.
    effect.Set({{"depth", "100"}});
    EXPECT_EQ(Column(stereo->PrepareRV(&narrow.Frame()), 0), 20u);
    EXPECT_EQ(Column(stereo->PrepareLV(&narrow.Frame()), 79), 59u);
    // No width, or a format the effect does not know: untouched and silent.
    ReportWatch watch;
    TestImage empty({0, 0, 4}, 3);
    const auto before = empty.Snapshot();
    effect.Run(empty.Frame());
    EXPECT_EQ(empty.Snapshot(), before);
    EXPECT_EQ(FirstForeignFormatChanged(effect.p), "");
    EXPECT_EQ(watch.Count(), 0u);
}

// A fresh effect (no type set) renders side by side although "type" reads 1; any swap but 0
// swaps; each new size and depth gives the frame its own views. Types that are not anaglyphs
// ask the host for nothing (the anaglyphs' requests are the colour test's).
TEST_F(StereoEffect, FramesAreTheRenderingOfTheirViews) {
    for (int format : {30, 0, 4, 6, 7, 12, 13, 35, 90}) {
        for (const char* type : {static_cast<const char*>(nullptr), "3", "4", "0", "7"}) {
            FactoryEffect used(libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D));
            if (type != nullptr) used.p->SetProperty("type", type);
            const auto mode = type ? Type3D(std::atoi(type)) : TYPE3D_SIDE_BY_SIDE;
            for (const auto& [shape, depth] : {std::pair{FrameShape{format, 45, 7, 3}, "30"},
                                               {FrameShape{format, 21, 6, 0, true}, "60"}}) {
                for (const char* swap : {"0", "5"}) {
                    used.Set({{"depth", depth}, {"swap", swap}});
                    TestImage image(shape, 9);
                    used.Run(image.Frame());
                    EXPECT_EQ(image.Snapshot(), ByItsSteps(shape, 9, mode, depth, *swap != '0'))
                        << ShapeName(shape) << " type " << (type ? type : "-") << " swap " << swap;
                }
            }
        }
    }
    EXPECT_TRUE(host.requests.empty());
    // An attached second view is rendered directly.
    effect.Set({{"type", "4"}});
    TestImage image({30, 12, 6, 2}, 4), expected({30, 12, 6, 2}, 4), second({30, 12, 6}, 5);
    image.Frame().CopySubsetFrame(&second.Frame());
    effect.Run(image.Frame());
    C3DRender renderer(nullptr);
    renderer.SetRenderMode(TYPE3D_TOP_BOTTOM);
    renderer.Render(&expected.Frame(), &second.Frame(), &expected.Frame());
    EXPECT_EQ(image.Snapshot(), expected.Snapshot());
}
