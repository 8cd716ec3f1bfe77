// Stereo renderer: tables and worked values, odd geometries (views of other sizes, in place),
// vector forms against the rule, and bad hosts.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

#include "core/Simd.h"
#include "libfilter/Stereo3D.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// Renders one case on fresh frames (views that are the output itself when `alias` is 1, left,
// or 2, right; mode -1 renders nothing) and answers every byte of the three images.
std::array<std::vector<uint8_t>, 3> RenderCase(int mode, const FrameShape& out,
                                               const FrameShape& left, const FrameShape& right,
                                               int alias, Simd::Level level = Simd::kAvx512) {
    TestImage o(out, 1), l(left, 2), r(right, 3);
    C3DRender renderer(nullptr);
    Simd::SetLevelLimit(level);
    renderer.SetRenderMode(static_cast<Type3D>(mode));
    if (mode >= 0)
        EXPECT_EQ(renderer.Render(alias == 1 ? &o.Frame() : &l.Frame(),
                                  alias == 2 ? &o.Frame() : &r.Frame(), &o.Frame()),
                  &o.Frame());
    Simd::SetLevelLimit(Simd::kAvx512);
    EXPECT_TRUE(o.GuardsIntact() && l.GuardsIntact() && r.GuardsIntact());
    return {o.Snapshot(), l.Snapshot(), r.Snapshot()};
}

std::vector<uint8_t> Bytes(const uint8_t* data, size_t count) {
    return std::vector<uint8_t>(data, data + count);
}

}  // namespace

TEST(StereoRender, TablesMappingsConversionsAndDepth) {
    for (int i = 0; i <= 90; ++i)
        EXPECT_EQ(sin_map[i], std::lround(32768 * std::sin(i * M_PI / 180))) << i;
    EXPECT_EQ(sin_map[91], 0);
    // The nearest integers, but for six rows that must hold exactly.
    const std::map<int, long> exact = {{6, -311766}, {53, -24693}, {69, -12579},
                                       {111, 12579}, {127, 24693}, {174, 311766}};
    for (int i = 0; i < 184; ++i) {
        const long nearest = std::lround(32768 * std::tan((i - 90) * M_PI / 180));
        const long want = i < 2 || i > 178 ? 0 : exact.count(i) ? exact.at(i) : nearest;
        EXPECT_EQ(tan_map[i], want) << i;
    }
    // The mappings follow the depth; both colour conversions answer true.
    C3DRender renderer(nullptr);
    renderer.SetDepth(40);
    renderer.SetDepth(0);  // ignored
    int x = 0, y = 0;
    renderer.MapResultVFFromRight(0, 7, 640, x, 7);
    EXPECT_EQ(x, 40);
    renderer.SetDepth(60);
    EXPECT_TRUE(renderer.MapResultVFFromRight(0, 7, 640, x, 7));
    EXPECT_EQ(x, 60);
    EXPECT_TRUE(renderer.MapResultVFFromLeft(639, 9, 640, x, y));
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(579, 9));
    renderer.MapResultVFFromLeft(5, 0, 0, x, y);  // no width: defined, whatever it gives
    // {from YUV?, in, out}: both conversions answer true.
    const int cases[][7] = {{1, 16, 128, 128, 0, 0, 0},
                            {1, 235, 128, 128, 255, 0, 0},
                            {0, 0, 0, 0, 16, 128, 128},
                            {0, 255, 255, 255, 235, 128, 128}};
    for (const auto& c : cases) {
        int got[3] = {};
        EXPECT_TRUE(c[0] ? renderer.ConvertYUV2RGB(c[1], c[2], c[3], got[0], got[1], got[2])
                         : renderer.ConvertRGB2YUV(c[1], c[2], c[3], got[0], got[1], got[2]));
        EXPECT_EQ(std::vector<int>(got, got + 3), std::vector<int>(c + 4, c + 7)) << c[0] << c[1];
    }
}

TEST(StereoRender, WorkedRows) {
    C3DRender renderer(nullptr);
    // Side by side on rows of 5 bytes or pixels: left 0, 2, 4 then right 0, 2, 4, the sixth in
    // the padding; without padding it is cut, and the next row is not touched by the cut.
    renderer.SetRenderMode(TYPE3D_SIDE_BY_SIDE);
    for (const auto& [format, unit] : {std::pair{0, 1u}, std::pair{30, 4u}}) {
        for (unsigned pad : {unit, 0u}) {
            TestImage o({format, 5, 2, pad}, 1), l({format, 5, 2}, 2), r({format, 5, 2}, 3);
            renderer.Render(&l.Frame(), &r.Frame(), &o.Frame());
            for (unsigned k = 0; k < 5 + pad / unit; ++k) {
                const uint8_t* from = (k < 3 ? l : r).Row(0, 0) + 2 * (k % 3) * unit;
                EXPECT_EQ(Bytes(o.Row(0, 0) + k * unit, unit), Bytes(from, unit)) << k;
            }
            EXPECT_EQ(o.Row(0, 1)[0], l.Row(0, 1)[0]);
            EXPECT_TRUE(o.GuardsIntact());
        }
    }
    // Top-bottom with 5 rows: left rows 0, 2 above right rows 0, 2, 4.
    TestImage o({0, 4, 5}, 1), l({0, 4, 5}, 2), r({0, 4, 5}, 3);
    renderer.SetRenderMode(TYPE3D_TOP_BOTTOM);
    renderer.Render(&l.Frame(), &r.Frame(), &o.Frame());
    const std::pair<TestImage*, unsigned> rows[] = {{&l, 0}, {&l, 2}, {&r, 0}, {&r, 2}, {&r, 4}};
    for (unsigned k = 0; k < 5; ++k)
        EXPECT_EQ(Bytes(o.Row(0, k), 4), Bytes(rows[k].first->Row(0, rows[k].second), 4)) << k;
    // Red-blue: white stays white; BGRA takes blue, green from the right, red from the left.
    TestImage yo({0, 2, 2}, 1), yl({0, 2, 2}, 2), yr({0, 2, 2}, 3);
    for (TestImage* image : {&yl, &yr}) {
        std::memset(image->Row(0, 0), 235, 2);
        std::memset(image->Row(0, 1), 235, 2);
        image->Row(1, 0)[0] = image->Row(2, 0)[0] = 128;
    }
    renderer.SetRenderMode(TYPE3D_RED_BLUE);
    renderer.Render(&yl.Frame(), &yr.Frame(), &yo.Frame());
    EXPECT_EQ(std::vector<uint8_t>({yo.Row(0, 0)[0], yo.Row(1, 0)[0], yo.Row(2, 0)[0]}),
              std::vector<uint8_t>({235, 128, 128}));
    TestImage bo({30, 1, 1}, 1), bl({30, 1, 1}, 2), br({30, 1, 1}, 3);
    const uint8_t alpha = bo.Row(0, 0)[3];
    renderer.Render(&bl.Frame(), &br.Frame(), &bo.Frame());
    EXPECT_EQ(Bytes(bo.Row(0, 0), 4),
              std::vector<uint8_t>({br.Row(0, 0)[0], br.Row(0, 0)[1], bl.Row(0, 0)[2], alpha}));
}

// Every vector level gives the scalar rule's bytes, also with views that are the output itself
// and, on every third shape, views larger or smaller and of the other row order. RenderCase
// checks that every write stays inside the planes; the modes that write nothing (none,
// green-magenta, 5) give the output back with all three frames as they were.
TEST(StereoRender, VectorFormsMatchTheRuleOnAnyGeometry) {
    const auto shapes = KernelShapes({30, 0, 4, 6, 7, 12, 13, 35, 90});
    for (size_t i = 0; i < shapes.size(); ++i) {
        const FrameShape& shape = shapes[i];
        const unsigned w = shape.width, h = shape.height;
        FrameShape left = shape, right = shape;
        left.padding = (shape.padding + 5) % 11;
        if (i % 3 == 1) {
            left = {shape.format, w + 4, h + 2, 2};
            right = {shape.format, w / 2 + 1, h / 2 + 1, 0, !shape.bottomUp};
        } else if (i % 3 == 2) {
            left = {shape.format, w / 2 + 1, h / 2 + 1, 1};
            right = {shape.format, w + 7, h + 1, 4, !shape.bottomUp};
        }
        for (int mode = TYPE3D_NONE; mode <= 5; ++mode) {
            for (int alias : {0, 1, 2}) {
                const auto rule = RenderCase(mode, shape, left, right, alias, Simd::kScalar);
                const std::string where = ShapeName(shape) + " mode " + std::to_string(mode) +
                                          " alias " + std::to_string(alias) + " views " +
                                          std::to_string(i % 3);
                if (mode == 0 || mode == 2 || mode == 5)
                    EXPECT_EQ(rule, RenderCase(-1, shape, left, right, alias)) << where;
                for (int level = Simd::kSse2; level <= Simd::HostLevel(); ++level)
                    ASSERT_EQ(RenderCase(mode, shape, left, right, alias, Simd::Level(level)), rule)
                        << where << " level " << level;
            }
        }
    }
}

TEST(StereoRender, HeldOutputConverterAndBadHosts) {
    TestController host;
    C3DRender held(&host);
    held.SetRenderMode(TYPE3D_SIDE_BY_SIDE);
    TestImage l({0, 8, 4}, 1), r({30, 8, 4}, 2);
    l.Frame().SetTimeStamp(5);
    GVideoFrame* first = held.Render(&l.Frame(), &r.Frame(), nullptr);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetTimeStamp(), 5);
    l.Frame().SetTimeStamp(9);
    EXPECT_EQ(held.Render(&l.Frame(), &r.Frame(), nullptr), first);
    EXPECT_EQ(first->GetTimeStamp(), 9);
    // The right view is converted at every call by the one converter made for the first pair.
    ASSERT_EQ(host.requests.size(), 1u);
    const auto& asked = host.requests[0];
    EXPECT_EQ(std::make_tuple(asked.format, asked.width, asked.height, asked.option, host.converts),
              std::make_tuple(0, 0u, 0u, 0, 2));
    // Hosts that cannot convert, and no host at all: one report, the output left as it was.
    using Failure = TestController::Failure;
    for (Failure failure : {Failure::None, Failure::NoConverter, Failure::NullConvert}) {
        TestController failing;
        failing.failure = failure;
        C3DRender renderer(failure == Failure::None ? nullptr : &failing);
        renderer.SetRenderMode(TYPE3D_SIDE_BY_SIDE);
        TestImage l({30, 6, 3}, 1), r({0, 6, 3}, 2), o({30, 6, 3}, 3);
        const auto before = o.Snapshot();
        ReportWatch watch;
        EXPECT_EQ(renderer.Render(&l.Frame(), &r.Frame(), &o.Frame()), nullptr);
        EXPECT_EQ(std::make_pair(watch.Count(), watch.LastMessage()),
                  std::make_pair(1u, std::string("fatal error:null pointer")));
        EXPECT_EQ(o.Snapshot(), before);
    }
    C3DRender renderer(nullptr);
    ReportWatch watch;
    EXPECT_EQ(renderer.Render(nullptr, nullptr, nullptr), nullptr);
    EXPECT_FALSE(renderer.ProcessYUVRedBlue(nullptr, nullptr, nullptr));
    EXPECT_FALSE(renderer.ProcessRGBRedBlue(nullptr, nullptr, nullptr));
    EXPECT_EQ(std::make_pair(watch.Count(), watch.LastFile()),
              std::make_pair(3u, std::string("Render3D.cpp")));
}
