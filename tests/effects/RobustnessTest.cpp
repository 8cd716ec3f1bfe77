// Every effect the build serves against what hosts send at the edges: every format family,
// sizes from 0, padded pitches, both row orders, crops, a new size on every frame, and
// every property set to every edge text. Nothing may land outside a plane (the guard bytes) and
// nothing may escape a call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/EffectRoster.h"
#include "support/TestFrame.h"

namespace {

using namespace MediaCore;
using namespace testing_support;

// The two layouts effects change, the other planar YUV members, and formats they must leave.
const int kFormats[] = {PIXFMT_BGRA32,  PIXFMT_YUV420P,      PIXFMT_YUV422P,
                        PIXFMT_YUV410P, PIXFMT_YUV411P,      PIXFMT_YUVA420P,
                        PIXFMT_YUV444P, PIXFMT_PLANAR4_FULL, PIXFMT_GRAY8};

const std::pair<unsigned, unsigned> kSizes[] = {{0, 0},   {0, 4},  {4, 0},  {1, 1},  {1, 6},
                                                {6, 1},   {2, 2},  {3, 3},  {5, 3},  {7, 5},
                                                {33, 17}, {64, 3}, {3, 64}, {0, 23}, {1, 648}};

// On a copy, which must leave every byte of the host's frame as it was (planes, padding and
// guards), then in place, which must stay inside the guards.
bool Survives(GVideoProcessor& effect, const FrameShape& shape, bool crop) {
    TestImage image(shape, shape.width * 131 + shape.height);
    if (crop) image.Frame().CropRightAndBottom(shape.width / 2, shape.height / 3);
    ImagePostion position{};
    const std::vector<uint8_t> before = image.Snapshot();
    effect.ProcFrame(&position, 1, &image.Frame());
    if (image.Snapshot() != before) return false;
    effect.ProcFrameInPlace(&position, 0, &image.Frame());
    return image.GuardsIntact();
}

std::vector<std::string> PropertyNames(GVideoProcessor& effect) {
    std::vector<std::string> names;
    GStringList* list = effect.GetPropertyNames();
    for (unsigned i = 0; list != nullptr && i < list->GetCount(); ++i)
        names.push_back(list->GetAt(i)->GetString());
    if (list != nullptr) list->Free();
    return names;
}

TEST(Robustness, EveryEffectOnEdgeShapesWithANewSizeEachFrame) {
    SilentSink sink;
    for (const ServedEffect& served : ServedEffects()) {
        for (int format : kFormats) {
            GVideoProcessor* effect = served.Create();
            ASSERT_NE(effect, nullptr);
            for (const auto& [name, value] : WorkingProperties(served.id, 33, 17))
                effect->SetProperty(name.c_str(), value.c_str());
            for (size_t i = 0; i < std::size(kSizes); ++i) {
                const FrameShape shape{format, kSizes[i].first, kSizes[i].second,
                                       static_cast<unsigned>(i % 3) * 5, i % 2 == 1};
                EXPECT_TRUE(Survives(*effect, shape, i % 3 == 2))
                    << served.name << " " << ShapeName(shape);
            }
            effect->Free();
        }
    }
}

TEST(Robustness, EveryPropertyTakesEveryEdgeText) {
    SilentSink sink;
    for (const ServedEffect& served : ServedEffects()) {
        GVideoProcessor* effect = served.Create();
        ASSERT_NE(effect, nullptr);
        for (const std::string& name : PropertyNames(*effect)) {
            for (const std::string& text : EdgeTexts()) {
                if (RepeatsWork(name) && std::atoi(text.c_str()) > 4) continue;
                effect->SetProperty(name.c_str(), text.c_str());
                EXPECT_EQ(effect->GetProperty(name.c_str(), nullptr), text) << served.name;
                for (int format : {PIXFMT_BGRA32, PIXFMT_YUV420P}) {
                    const FrameShape shape{format, 9, 5, 3, true};
                    EXPECT_TRUE(Survives(*effect, shape, false))
                        << served.name << " " << name << "=" << text << " " << ShapeName(shape);
                }
            }
        }
        effect->Free();
    }
}

}  // namespace
