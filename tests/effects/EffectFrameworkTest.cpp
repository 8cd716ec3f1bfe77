// The factory and the effect bases, driven through libfilter_GetFilter as a host does.
#include <gtest/gtest.h>

#include "libfilter/CProcessor.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

// Hands the frame one plane of `pixels` at `pitch`.
static void Attach(CVideoFrame& frame, std::vector<unsigned char>& pixels, int pitch) {
    unsigned char* data[] = {pixels.data()};
    int pitches[] = {pitch};
    frame.SetBuffer(data, pitches, nullptr);
}

// The factory builds the effects described as factory-made (and served by this build) and
// reports every other id.
TEST(Factory, BuildsTheFactoryMadeEffectsAndRefusesTheRest) {
    for (int64_t asked = -1; asked < 40; ++asked) {
        const unsigned id = static_cast<unsigned>(asked);  // -1: 2^32 - 1
        const ServedEffect* served = FindServedEffect(id);
        const bool made = served != nullptr && served->description->making == EffectMaking::Factory;
        ReportWatch watch;
        GVideoProcessor* effect = libfilter_GetFilter(catalogue::SharedController(), id);
        ASSERT_EQ(effect != nullptr, made) << id;
        EXPECT_EQ(watch.Count(), made ? 0u : 1u) << id;
        if (made) {
            EXPECT_EQ(effect->GetID(), id);
            EXPECT_EQ(effect->GetType(), 1u);
            EXPECT_EQ(effect->GetSubType(), 2u);
            effect->Free();
        } else {
            EXPECT_EQ(watch.LastMessage(), "No the effect=" + std::to_string(asked));
            EXPECT_EQ(watch.LastFile(), "CommonEffects");
        }
    }
}

// Invert, as any effect the factory builds. A failed copy carries the error pending in the sink,
// or fails quietly. The copy ProcFrame returns is the effect's and lives until the next call or
// the effect's end; a call refused for a null argument keeps it. In place: null arguments are
// reported and change nothing; blending is not this effect's. A frame without memory gives a copy
// of planes of pitch 0, which hold no row; a pitch shorter than the declared row cuts the rows to
// it.
TEST(EffectBase, CopiesFailuresAndFramesAtTheEdges) {
    GVideoProcessor* effect = libfilter_GetFilter(nullptr, AVPROCESSOR_INVERT);
    ASSERT_NE(effect, nullptr);
    ImagePostion position{};
    CVideoFrame bare(false, PIXFMT_YUV420P, 16, 8, true);
    EXPECT_NE(effect->ProcFrame(&position, 0, &bare), nullptr);
    effect->ProcFrameInPlace(&position, 0, &bare);
    std::vector<unsigned char> narrowPixels(4 * 8, 0);
    CVideoFrame narrow(false, PIXFMT_BGRA32, 4, 4, true);
    Attach(narrow, narrowPixels, 8);
    effect->ProcFrameInPlace(&position, 0, &narrow);
    EXPECT_EQ(std::vector<unsigned char>(narrowPixels.begin(), narrowPixels.begin() + 4),
              std::vector<unsigned char>({0xFF, 0xFF, 0xFF, 0}));
    HostFrame frame(false, PIXFMT_BGRA32, 4, 2, true);
    std::vector<unsigned char> pixels(32, 0x10);
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

    frame.cloneFailure = HostFrame::CloneFailure::None;
    HostFrame::clones = HostFrame::frees = 0;
    GVideoFrame* first = effect->ProcFrame(&position, 0, &frame);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(pixels[0], 0x10);  // the host's frame is untouched
    unsigned rowBytes, pitch, rows;
    EXPECT_EQ(first->GetBuffer(0, &rowBytes, &pitch, &rows)[0], 0xEF);
    EXPECT_NE(effect->ProcFrame(&position, 0, &frame), nullptr);
    EXPECT_EQ(HostFrame::clones, 2);
    EXPECT_EQ(HostFrame::frees, 1);
    EXPECT_EQ(effect->ProcFrame(&position, 0, nullptr), nullptr);
    EXPECT_EQ(effect->ProcFrame(nullptr, 0, &frame), nullptr);
    EXPECT_EQ(watch.Count(), 3u);
    EXPECT_EQ(watch.LastMessage(), "fatal error:null pointer");
    EXPECT_EQ(watch.LastFile(), "CVideoEffectBase");
    EXPECT_EQ(HostFrame::frees, 1);

    effect->ProcFrameInPlace(nullptr, 0, &frame);
    effect->ProcFrameInPlace(&position, 0, nullptr);
    EXPECT_EQ(watch.Count(), 5u);
    EXPECT_EQ(pixels[0], 0x10);
    effect->ProcFrameInPlace(&position, 0, &frame);
    effect->BlendFrame(&position, 0, &frame, &frame);
    EXPECT_EQ(pixels[0], 0xEF);
    effect->Free();
    EXPECT_EQ(HostFrame::frees, 2);
}
