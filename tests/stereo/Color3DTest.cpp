// Colour anaglyph: widening as documented, flat pictures, converters kept and remade, vector
// forms, and hosts whose converters fail.
#include <gtest/gtest.h>

#include <cstring>

#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"
#include "support/TestConverter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::FrameShape;
using testing_support::ReportWatch;
using testing_support::TestController;
using testing_support::TestImage;

namespace {

// A host that converts into packed 24-bit only.
struct ForwardOnlyHost : TestController {
    GFrameConverter* CreateFrameConverter(int format, unsigned w, unsigned h, int option) override {
        if (format != PIXFMT_PACKED24_2) return nullptr;
        return TestController::CreateFrameConverter(format, w, h, option);
    }
};

}  // namespace

TEST(ColourStereo, WidensByTheDepthAndShiftsByHalf) {
    struct Case {
        int depth;
        unsigned width, widened;
    };
    for (const Case& c : {Case{60, 640, 656}, Case{100, 640, 640}, Case{150, 64, 64},
                          Case{99, 64, 128}, Case{-10, 110, 111}}) {
        TestController host;
        C2DToColor3D colour(&host);
        colour.SetProperty(TYPE3D_RED_BLUE, static_cast<unsigned>(c.depth));
        TestImage image({PIXFMT_BGRA32, c.width, 3, 4}, 5);
        EXPECT_TRUE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
        ASSERT_EQ(host.requests.size(), 1u);
        EXPECT_EQ(host.requests[0].format, PIXFMT_PACKED24_2);
        EXPECT_EQ(host.requests[0].width, c.widened) << c.depth;
        EXPECT_EQ(host.requests[0].height, 3u);
        EXPECT_EQ(host.requests[0].option, 4);
    }
}

// A flat gray BGRA picture has nothing to shift: its anaglyph is itself, whatever the padding of
// the converted frames; a picture with detail changes, in every format.
TEST(ColourStereo, FlatPicturesStayAndOthersChange) {
    for (int format : {30, 0, 4, 5, 6, 7, 12, 13, 35, 90}) {
        for (Type3D type : {TYPE3D_RED_BLUE, TYPE3D_GREEN_MAGENTA}) {
            for (unsigned padding : {0u, 3u}) {
                TestController host;
                host.padding = padding;
                C2DToColor3D colour(&host);
                colour.SetProperty(type, 60);
                TestImage image({format, 37, 5, 2, padding == 3}, 8);
                const auto random = image.Snapshot();
                EXPECT_TRUE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
                EXPECT_NE(image.Snapshot(), random) << format;
                for (unsigned p = 0; p < image.PlaneCount(); ++p) {
                    for (unsigned y = 0; y < image.Rows(p); ++y)
                        std::memset(image.Row(p, y), 100, image.RowBytes(p));
                }
                const auto flat = image.Snapshot();
                EXPECT_TRUE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
                // Other formats come back through the host's conversions, which decide their bytes.
                if (format == 30) {
                    EXPECT_EQ(image.Snapshot(), flat) << format << " type " << type;
                }
                EXPECT_TRUE(image.GuardsIntact());
            }
        }
    }
    // Side by side is not the anaglyph's to draw: the frame stays as it was.
    TestController host;
    C2DToColor3D colour(&host);
    colour.SetProperty(TYPE3D_SIDE_BY_SIDE, 60);
    TestImage image({30, 37, 5, 2}, 8);
    const auto before = image.Snapshot();
    EXPECT_TRUE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
    EXPECT_EQ(image.Snapshot(), before);
}

TEST(ColourStereo, ConvertersAreKeptUntilWidthOrFormatChange) {
    TestController host;
    {
        C2DToColor3D colour(&host);
        TestImage yuv({0, 40, 4}, 1), other({4, 40, 4}, 2), wider({4, 48, 4}, 3);
        colour.ProcFrameInner(nullptr, 0, &yuv.Frame());
        colour.ProcFrameInner(nullptr, 0, &yuv.Frame());
        EXPECT_EQ(host.requests.size(), 2u);  // forward and back, made once
        colour.ProcFrameInner(nullptr, 0, &other.Frame());
        ASSERT_EQ(host.requests.size(), 3u);  // a back converter for the new format
        EXPECT_EQ(host.requests[2].format, 4);
        colour.SetProperty(TYPE3D_RED_BLUE, 80);
        colour.ProcFrameInner(nullptr, 0, &other.Frame());
        colour.ProcFrameInner(nullptr, 0, &wider.Frame());
        ASSERT_EQ(host.requests.size(), 5u);  // forward again for each new widening
        EXPECT_EQ(host.requests[3].width, 42u);
        EXPECT_EQ(host.requests[4].width, 50u);
    }
    EXPECT_EQ(host.live, 0);  // every converter released
}

TEST(ColourStereo, FailingHostsReportOnceAndLeaveTheFrame) {
    using Failure = TestController::Failure;
    struct Case {
        Failure failure;
        int format;
        unsigned line;
    };
    for (const Case& c : {Case{Failure::NoConverter, 30, 140}, Case{Failure::NullConvert, 0, 143},
                          Case{Failure::None, 0, 160}}) {
        TestController failing;
        ForwardOnlyHost forwardOnly;
        failing.failure = c.failure;
        TestController* host = c.line == 160 ? &forwardOnly : &failing;
        for (bool withHost : {true, false}) {
            if (!withHost && c.line != 140) continue;
            C2DToColor3D colour(withHost ? host : nullptr);
            TestImage image({c.format, 9, 4, 1}, 4);
            const auto before = image.Snapshot();
            ReportWatch watch;
            EXPECT_FALSE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
            EXPECT_EQ(watch.Count(), 1u);
            EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
            EXPECT_EQ(watch.LastFile(), "2DTo3D.cpp");
            EXPECT_EQ(GetGException()->GetLine(), c.line);
            EXPECT_EQ(image.Snapshot(), before);
        }
    }
    // A converter answering frames of half the size asked for is read only as far as it goes.
    TestController half;
    half.failure = Failure::HalfSize;
    for (int format : {30, 0, 6}) {
        C2DToColor3D colour(&half);
        TestImage image({format, 21, 7, 2}, 4);
        EXPECT_TRUE(colour.ProcFrameInner(nullptr, 0, &image.Frame()));
        EXPECT_TRUE(image.GuardsIntact());
    }
    C2DToColor3D colour(&half);
    ReportWatch watch;
    EXPECT_FALSE(colour.ProcFrameInner(nullptr, 0, nullptr));
    EXPECT_FALSE(colour.ProcessColor3DBGRA(nullptr, 4, 16, 1));
    EXPECT_EQ(watch.Count(), 1u);
}

TEST(ColourStereo, VectorFormsMatchTheRule) {
    TestController host;
    GVideoProcessor* effect = libfilter_GetFilter(&host, AVPROCESSOR_2DTO3D);
    uint32_t seed = 1;
    for (const char* type : {"1", "2"}) {
        effect->SetProperty("type", type);
        for (const FrameShape& shape : testing_support::KernelShapes({30, 0})) {
            EXPECT_EQ(testing_support::FirstLevelDiffering(effect, shape, seed % 2 == 0, seed), "")
                << testing_support::ShapeName(shape) << " type " << type;
            ++seed;
        }
        // A work frame large enough to be streamed, its rows starting off the vector alignment.
        EXPECT_EQ(testing_support::FirstLevelDiffering(effect, {0, 2049, 2048}, false, seed), "");
    }
    effect->Free();
}
