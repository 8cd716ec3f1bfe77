// Rotation: the documented geometry, a worked turn each way, converters and bad hosts. Vector
// forms against the scalar rule are EveryEffect's, edge shapes Robustness's.
#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "libfilter/Rotate90X.h"
#include "libfilter/libfilter.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

struct RotateFixture : testing::Test {
    TestController host;
    FactoryEffect effect{libfilter_GetFilter(&host, AVPROCESSOR_ROTATE90)};
    CRotate90X* rotate = static_cast<CRotate90X*>(effect.p);
    // Turns the image in place on `on` (the fixture's effect by default); answers the position:
    // left, top, the two words, width and height.
    std::array<int, 6> Run(TestImage& image, GVideoProcessor* on = nullptr) {
        ImagePostion p{};
        (on ? on : effect.p)->ProcFrameInPlace(&p, 0, &image.Frame());
        return {p.left, p.top, int(p.word0), int(p.word1), p.width, p.height};
    }
};

}  // namespace

// The turned picture is scaled to the height and centred between black columns; the scaler is
// asked for 1080 x 606 with option 4. Square frames fill themselves from the corner.
TEST_F(RotateFixture, Geometry) {
    TestImage image({0, 1920, 1080}, 3);
    EXPECT_EQ(Run(image), (std::array<int, 6>{657, 0, 0, 3, 606, 1080}));
    ASSERT_EQ(host.requests.size(), 1u);
    const auto& asked = host.requests[0];
    EXPECT_EQ(std::make_tuple(asked.format, asked.width, asked.height, asked.option),
              std::make_tuple(0, 1080u, 606u, 4));
    for (unsigned y : {0u, 539u, 1079u}) {
        EXPECT_EQ(image.Row(0, y)[656], 16);
        EXPECT_EQ(image.Row(0, y)[657 + 606], 16);
        EXPECT_EQ(image.Row(1, y / 2)[300], 128);
    }
    TestImage square({0, 10, 10}, 1);
    EXPECT_EQ(Run(square), (std::array<int, 6>{0, 0, 0, 3, 10, 10}));
}

// A square 4:2:0 frame turns in place, luma 1 to 16 row by row in memory. The source column
// runs from the width down, not from the width - 1, so the first column taken repeats (and
// likewise the first row in the other direction). Bottom-up frames turn the other way.
TEST_F(RotateFixture, AngleSetsTheDirection) {
    const std::vector<uint8_t> kTurned[] = {
        {4, 8, 12, 16, 4, 8, 12, 16, 3, 7, 11, 15, 2, 6, 10, 14},
        {13, 13, 9, 5, 14, 14, 10, 6, 15, 15, 11, 7, 16, 16, 12, 8}};
    const std::vector<uint8_t> kChroma[] = {{2, 4, 1, 3}, {3, 1, 4, 2}};
    const std::pair<const char*, int> angles[] = {{"0", 0},  {"-90", 1}, {"180", 1},
                                                  {"90", 0}, {"270", 1}, {"360", 1}};
    for (const auto& [angle, direction] : angles) {
        effect.Set({{"rotate90_angle", angle}});
        for (bool bottomUp : {false, true}) {
            TestImage image({0, 4, 4, 3, bottomUp}, 1);
            // Sample i of plane p in memory order.
            auto sample = [&](unsigned p, unsigned i) -> uint8_t& {
                const unsigned w = p == 0 ? 4 : 2, m = i / w;
                return image.Row(p, bottomUp ? image.Rows(p) - 1 - m : m)[i % w];
            };
            for (unsigned i = 0; i < 16; ++i) {
                sample(0, i) = static_cast<uint8_t>(1 + i);
                if (i < 4) sample(1, i) = sample(2, i) = static_cast<uint8_t>(1 + i);
            }
            EXPECT_EQ(Run(image), (std::array<int, 6>{0, 0, 0, 3, 4, 4}));
            const int turn = bottomUp ? 1 - direction : direction;
            for (unsigned i = 0; i < 16; ++i) {
                EXPECT_EQ(sample(0, i), kTurned[turn][i]) << angle << " " << bottomUp << " " << i;
                EXPECT_TRUE(i >= 4 || sample(2, i) == kChroma[turn][i]) << angle << " " << bottomUp;
            }
            EXPECT_TRUE(image.GuardsIntact());
        }
    }
}

TEST_F(RotateFixture, ConvertersAskedForAndKept) {
    TestImage bgra({30, 12, 8}, 1), yuv422({4, 12, 8}, 2), yuv422b({4, 12, 8}, 3),
        gray({8, 6, 4}, 4);
    Run(bgra);
    Run(bgra);
    // To YUV with option 16, back to BGRA at any size, and the scaler with option 4.
    ASSERT_EQ(host.requests.size(), 3u);
    const auto& asked = host.requests;
    EXPECT_EQ(std::make_tuple(asked[0].format, asked[0].option, asked[1].format, asked[1].width,
                              asked[2].option),
              std::make_tuple(30, 16, 0, 0u, 4));
    Run(yuv422);
    Run(yuv422b);
    ASSERT_EQ(host.requests.size(), 5u);  // same size: the scaler stays
    EXPECT_EQ(std::make_pair(asked[3].format, asked[4].format), std::make_pair(0, 4));
    Run(gray);  // new format and size
    EXPECT_EQ(std::make_pair(host.requests.size(), host.live), std::make_pair(size_t{8}, 5));
}

TEST_F(RotateFixture, FailuresReportAndLeaveTheFrame) {
    using Failure = TestController::Failure;
    const char *null = "fatal error:null pointer",
               *empty = "rotate image effect find input image w/h is 0";
    // {failure, with a host, shape, message}
    const std::tuple<Failure, bool, FrameShape, const char*> cases[] = {
        {Failure::None, false, {0, 8, 6}, null},
        {Failure::None, false, {30, 8, 6}, null},
        {Failure::NoConverter, true, {0, 8, 6}, null},
        {Failure::NullConvert, true, {30, 8, 6}, null},
        {Failure::NullConvert, true, {0, 8, 6}, null},
        {Failure::None, true, {0, 0, 0}, empty},
        {Failure::None, true, {0, 6, 0}, empty}};
    for (const auto& [failure, controller, shape, message] : cases) {
        TestController failing;
        failing.failure = failure;
        FactoryEffect fresh(
            libfilter_GetFilter(controller ? &failing : nullptr, AVPROCESSOR_ROTATE90));
        TestImage image(shape, 2);
        const auto before = image.Snapshot();
        ReportWatch watch;
        Run(image, fresh.p);
        EXPECT_EQ(std::make_tuple(watch.Count(), watch.LastMessage(), watch.LastFile()),
                  std::make_tuple(1u, std::string(message), std::string("Rotate90X.cpp")));
        EXPECT_EQ(image.Snapshot(), before);
    }
    // Converted frames of another size are read and copied only as far as they reach.
    TestController half;
    half.failure = Failure::HalfSize;
    for (int format : {0, 30, 6}) {
        FactoryEffect fresh(libfilter_GetFilter(&half, AVPROCESSOR_ROTATE90));
        TestImage image({format, 40, 24, 1}, 2);
        Run(image, fresh.p);
        EXPECT_TRUE(image.GuardsIntact());
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
    Run(yuv);
    const auto before = yuv.Snapshot();
    rotate->FreeVideoFrameBuffer(&yuv.Frame());
    rotate->FreeVideoFrameBuffer(&bgra.Frame());  // frees the effect's own first plane
    EXPECT_EQ(yuv.Snapshot(), before);
    Run(yuv);  // rebuilds what it released
    EXPECT_TRUE(yuv.GuardsIntact());
    // The packed turn writes only inside the frame it is given.
    EXPECT_TRUE(rotate->PrepareImageCvt(&bgra.Frame()));
    Run(yuv);
    EXPECT_TRUE(rotate->ProcessBGRA90(&bgra.Frame(), 2));
    EXPECT_FALSE(rotate->ProcessBGRA90(&bgra.Frame(), 3));
    EXPECT_EQ(watch.LastMessage(), "rotate direction invalid, val3");
    EXPECT_TRUE(yuv.GuardsIntact() && bgra.GuardsIntact());
}
