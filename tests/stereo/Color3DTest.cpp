// Colour anaglyph: widening as documented, flat pictures, converters kept and remade, hosts whose
// converters fail, and a streamed work frame against the rule.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// A host that converts into packed 24-bit only.
struct ForwardOnlyHost : TestController {
    GFrameConverter* CreateFrameConverter(int format, unsigned w, unsigned h, int option) override {
        return format == PIXFMT_PACKED24_2
                   ? TestController::CreateFrameConverter(format, w, h, option)
                   : nullptr;
    }
};

bool Anaglyph(C2DToColor3D& colour, TestImage& image) {
    return colour.ProcFrameInner(nullptr, 0, &image.Frame());
}

}  // namespace

// A flat gray BGRA picture has nothing to shift: its anaglyph is itself, whatever the padding of
// the converted frames; a picture with detail changes, in every format. Side by side is not the
// anaglyph's to draw: a BGRA frame stays as it was (others still make the round trip, and come
// back through the host's conversions, which decide their bytes).
TEST(ColourStereo, FlatPicturesStayAndOthersChange) {
    for (int format : {30, 0, 4, 5, 6, 7, 12, 13, 35, 90}) {
        for (Type3D type : {TYPE3D_RED_BLUE, TYPE3D_GREEN_MAGENTA, TYPE3D_SIDE_BY_SIDE}) {
            for (unsigned padding : {0u, 3u}) {
                TestController host;
                host.padding = padding;
                C2DToColor3D colour(&host);
                colour.SetProperty(type, 60);
                TestImage image({format, 37, 5, 2, padding == 3}, 8);
                const auto random = image.Snapshot();
                EXPECT_TRUE(Anaglyph(colour, image));
                EXPECT_EQ(image.Snapshot() == random, format == 30 && type == TYPE3D_SIDE_BY_SIDE)
                    << format << " type " << type;
                for (unsigned p = 0; p < image.PlaneCount(); ++p) {
                    for (unsigned y = 0; y < image.Rows(p); ++y)
                        std::memset(image.Row(p, y), 100, image.RowBytes(p));
                }
                const auto flat = image.Snapshot();
                EXPECT_TRUE(Anaglyph(colour, image));
                EXPECT_TRUE(format != 30 || image.Snapshot() == flat) << type;
                EXPECT_TRUE(image.GuardsIntact());
            }
        }
    }
}

// The work frame asked for is widened by the depth. Converters are made once, forward and back,
// then a back converter for each new format and a forward one for each new widening; all are
// released. Hosts that cannot convert get one report and the frame as it was; a converter
// answering frames of half the size asked for is read only as far as it goes.
TEST(ColourStereo, WideningConvertersKeptAndFailingHosts) {
    // The work frame is widened by the depth: {depth, width, widened}.
    const unsigned widths[][3] = {
        {60, 640, 656}, {100, 640, 640}, {150, 64, 64}, {99, 64, 128}, {-10u, 110, 111}};
    for (const auto& [depth, width, widened] : widths) {
        TestController host;
        C2DToColor3D colour(&host);
        colour.SetProperty(TYPE3D_RED_BLUE, depth);
        TestImage image({PIXFMT_BGRA32, width, 3, 4}, 5);
        EXPECT_TRUE(Anaglyph(colour, image));
        ASSERT_EQ(host.requests.size(), 1u);
        const auto& asked = host.requests[0];
        EXPECT_EQ(std::make_tuple(asked.format, asked.width, asked.height, asked.option),
                  std::make_tuple(int{PIXFMT_PACKED24_2}, widened, 3u, 4))
            << depth;
    }
    TestController host;
    {
        C2DToColor3D colour(&host);
        TestImage yuv({0, 40, 4}, 1), other({4, 40, 4}, 2), wider({4, 48, 4}, 3);
        Anaglyph(colour, yuv);
        Anaglyph(colour, yuv);
        EXPECT_EQ(host.requests.size(), 2u);
        Anaglyph(colour, other);
        colour.SetProperty(TYPE3D_RED_BLUE, 80);
        Anaglyph(colour, other);
        Anaglyph(colour, wider);
        ASSERT_EQ(host.requests.size(), 5u);
        EXPECT_EQ(std::make_tuple(host.requests[2].format, host.requests[3].width,
                                  host.requests[4].width),
                  std::make_tuple(4, 42u, 50u));
    }
    EXPECT_EQ(host.live, 0);
    using Failure = TestController::Failure;
    // {host: 0 none, 1 failing, 2 forward only; failure; format; line reported}
    const std::tuple<int, Failure, int, unsigned> cases[] = {{1, Failure::NoConverter, 30, 140},
                                                             {0, Failure::None, 30, 140},
                                                             {1, Failure::NullConvert, 0, 143},
                                                             {2, Failure::None, 0, 160}};
    for (const auto& [which, failure, format, line] : cases) {
        TestController failing;
        ForwardOnlyHost forwardOnly;
        failing.failure = failure;
        C2DToColor3D colour(which == 0 ? nullptr : which == 1 ? &failing : &forwardOnly);
        TestImage image({format, 9, 4, 1}, 4);
        const auto before = image.Snapshot();
        ReportWatch watch;
        EXPECT_FALSE(Anaglyph(colour, image));
        EXPECT_EQ(std::make_tuple(watch.Count(), watch.LastMessage(), watch.LastFile(),
                                  GetGException()->GetLine()),
                  std::make_tuple(1u, std::string("fatal error:null pointer"),
                                  std::string("2DTo3D.cpp"), line));
        EXPECT_EQ(image.Snapshot(), before);
    }
    TestController half;
    half.failure = Failure::HalfSize;
    for (int format : {30, 0, 6}) {
        C2DToColor3D colour(&half);
        TestImage image({format, 21, 7, 2}, 4);
        EXPECT_TRUE(Anaglyph(colour, image));
        EXPECT_TRUE(image.GuardsIntact());
    }
    C2DToColor3D colour(&half);
    ReportWatch watch;
    EXPECT_FALSE(colour.ProcFrameInner(nullptr, 0, nullptr));
    EXPECT_FALSE(colour.ProcessColor3DBGRA(nullptr, 4, 16, 1));
    EXPECT_EQ(watch.Count(), 1u);
}

// Small shapes at every level are EveryEffect's; here a work frame large enough to be streamed,
// its rows starting off the vector alignment, made by the 2D-to-3D effect's colour types.
TEST(ColourStereo, StreamedWorkFrameMatchesTheRule) {
    TestController host;
    FactoryEffect effect(libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D));
    for (const char* type : {"1", "2"}) {
        effect.Set({{"type", type}});
        EXPECT_EQ(FirstLevelDiffering(effect.p, {0, 2049, 2048}, false, 3), "") << type;
    }
    // 2D to 3D hands its colour types to the anaglyph, which asks for packed 24-bit work frames.
    ASSERT_FALSE(host.requests.empty());
    EXPECT_EQ(host.requests[0].format, PIXFMT_PACKED24_2);
}
