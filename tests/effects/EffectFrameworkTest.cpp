// The factory and the effect bases, driven through libfilter_GetFilter as a host does.
#include <gtest/gtest.h>

#include <set>

#include "libfilter/CProcessor.h"
#include "libfilter/libfilter.h"
#include "support/EffectRoster.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// Ids the factory builds so far.
const std::set<unsigned> kLanded = {
    AVPROCESSOR_2DTO3D, AVPROCESSOR_AGED_FILM,  AVPROCESSOR_BRIGHTNESS_CONTRAST,
    AVPROCESSOR_EMBOSS, AVPROCESSOR_FLIP_COLOR, AVPROCESSOR_GAUSS_BLUR,
    AVPROCESSOR_GRAY,   AVPROCESSOR_INVERT,     AVPROCESSOR_LAPLACIAN_SHARPEN,
    AVPROCESSOR_MOSAIC, AVPROCESSOR_REVERSE,    AVPROCESSOR_ROTATE90};

// Invert, as any effect the factory builds.
struct EffectFixture : testing::Test {
    GVideoProcessor* effect = libfilter_GetFilter(nullptr, AVPROCESSOR_INVERT);
    ImagePostion position{};
    void SetUp() override {
        ASSERT_NE(effect, nullptr);
        HostFrame::clones = HostFrame::frees = 0;
    }
    void TearDown() override {
        if (effect != nullptr) effect->Free();
    }
};

// Hands the frame one plane of `pixels` at `pitch`.
void Attach(CVideoFrame& frame, std::vector<unsigned char>& pixels, int pitch) {
    unsigned char* data[] = {pixels.data()};
    int pitches[] = {pitch};
    frame.SetBuffer(data, pitches, nullptr);
}

}  // namespace

TEST(Factory, BuildsLandedIdsAndRefusesTheRest) {
    for (unsigned id = 0; id < 40; ++id) {
        ReportWatch watch;
        GVideoProcessor* effect = libfilter_GetFilter(nullptr, id);
        if (kLanded.count(id) != 0) {
            ASSERT_NE(effect, nullptr) << id;
            EXPECT_EQ(effect->GetID(), id);
            EXPECT_EQ(effect->GetType(), 1u);
            EXPECT_EQ(effect->GetSubType(), 2u);
            EXPECT_EQ(watch.Count(), 0u);
            effect->Free();
        } else {
            EXPECT_EQ(effect, nullptr) << id;
            EXPECT_EQ(watch.Count(), 1u) << id;
            EXPECT_EQ(watch.LastMessage(), "No the effect=" + std::to_string(id));
            EXPECT_EQ(watch.LastFile(), "CommonEffects");
        }
    }
    ReportWatch watch;
    EXPECT_EQ(libfilter_GetFilter(nullptr, 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(watch.LastMessage(), "No the effect=-1");
}

// The face every effect shares (its own properties are checked against its description by the
// catalogue's tests).
TEST(Effects, SharedInterface) {
    for (const ServedEffect& served : ServedEffects()) {
        FactoryEffect effect(served.Create());
        EXPECT_EQ(effect.p->GetInterface("libcorevideoprocinterface"), effect.p) << served.name;
        int type = -1;
        EXPECT_STREQ(effect.p->GetProperty("duration", &type), "1");
        EXPECT_EQ(type, PROPERTY_INT32);
        EXPECT_EQ(effect.p->GetDuration(), 1u);
        EXPECT_TRUE(effect.p->SetProperty("duration", "25"));
        EXPECT_EQ(effect.p->GetDuration(), 25u);
        EXPECT_TRUE(effect.p->Seek(12345));
    }
}

// The copy is the effect's and lives until the next call or the effect's end; a failing call
// keeps it.
TEST_F(EffectFixture, ProcFrameReturnsAnOwnedCopyFreedByTheNextCall) {
    HostFrame frame(false, PIXFMT_BGRA32, 4, 2, true);
    std::vector<unsigned char> pixels(32, 0x10);
    Attach(frame, pixels, 16);
    GVideoFrame* first = effect->ProcFrame(&position, 0, &frame);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, &frame);
    EXPECT_EQ(pixels[0], 0x10);  // the host's frame is untouched
    unsigned rowBytes, pitch, rows;
    EXPECT_EQ(first->GetBuffer(0, &rowBytes, &pitch, &rows)[0], 0xEF);
    EXPECT_NE(effect->ProcFrame(&position, 0, &frame), nullptr);
    EXPECT_EQ(HostFrame::clones, 2);
    EXPECT_EQ(HostFrame::frees, 1);

    ReportWatch watch;
    EXPECT_EQ(effect->ProcFrame(&position, 0, nullptr), nullptr);
    EXPECT_EQ(effect->ProcFrame(nullptr, 0, &frame), nullptr);
    EXPECT_EQ(watch.Count(), 2u);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
    EXPECT_EQ(watch.LastFile(), "CVideoEffectBase");
    EXPECT_EQ(HostFrame::frees, 1);

    effect->Free();
    effect = nullptr;
    EXPECT_EQ(HostFrame::frees, 2);
}

// A failed copy carries the error pending in the sink, or fails quietly. In place: null
// arguments are reported and change nothing; blending is not this effect's. A frame without
// memory gives a copy of planes of pitch 0, which hold no row; a pitch shorter than the
// declared row cuts the rows to it.
TEST_F(EffectFixture, FailuresAndFramesAtTheEdges) {
    HostFrame frame(false, PIXFMT_BGRA32, 4, 1, true);
    std::vector<unsigned char> pixels(16, 0x20);
    Attach(frame, pixels, 16);
    ReportWatch watch;
    frame.cloneFailure = HostFrame::CloneFailure::WithError;
    EXPECT_EQ(effect->ProcFrame(&position, 0, &frame), nullptr);
    EXPECT_EQ(watch.Count(), 1u);
    EXPECT_EQ(watch.LastMessage(), "copy refused");
    EXPECT_EQ(GetGException()->GetCode(), 12);
    EXPECT_EQ(watch.LastFile(), "CVideoEffectBase");
    GetGException()->Clear();
    frame.cloneFailure = HostFrame::CloneFailure::Silent;
    EXPECT_EQ(effect->ProcFrame(&position, 0, &frame), nullptr);
    EXPECT_EQ(watch.Count(), 1u);  // nothing pending: a quiet null

    effect->ProcFrameInPlace(nullptr, 0, &frame);
    effect->ProcFrameInPlace(&position, 0, nullptr);
    EXPECT_EQ(watch.Count(), 3u);
    EXPECT_EQ(pixels[0], 0x20);
    effect->ProcFrameInPlace(&position, 0, &frame);
    EXPECT_EQ(pixels[0], 0xDF);
    effect->BlendFrame(&position, 0, &frame, &frame);
    EXPECT_EQ(pixels[0], 0xDF);

    CVideoFrame bare(false, PIXFMT_YUV420P, 16, 8, true);
    EXPECT_NE(effect->ProcFrame(&position, 0, &bare), nullptr);
    effect->ProcFrameInPlace(&position, 0, &bare);
    std::vector<unsigned char> narrowPixels(4 * 8, 0);
    CVideoFrame narrow(false, PIXFMT_BGRA32, 4, 4, true);
    Attach(narrow, narrowPixels, 8);
    effect->ProcFrameInPlace(&position, 0, &narrow);
    EXPECT_EQ(narrowPixels[0], 0xFF);
    EXPECT_EQ(narrowPixels[3], 0);
}
