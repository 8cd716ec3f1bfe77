// Every effect the build serves against what hosts send at the edges: every format family,
// sizes from 0, padded pitches, both row orders, crops, a new size on every frame, and
// every property set to every edge text. Nothing may land outside a plane (the guard bytes) and
// nothing may escape a call. The image effects also meet settings past their ranges.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
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

// "name=a,b name=c" sets name to a, then to b, then another name to c.
PropertyList Sets(const std::string& text) {
    PropertyList list;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        std::istringstream values(word.substr(equals + 1));
        for (std::string value; std::getline(values, value, ',');)
            list.emplace_back(word.substr(0, equals), value);
    }
    return list;
}

// Settings the every-effect test never draws, being past the documented ranges (many at the
// vector forms' own limits: plane products that wrap, gains that saturate, offsets past the
// row), repeated conversions, or texts that only look like values. Set in order on one effect;
// after each, every level gives the scalar rule's bytes and formats the effect does not read
// stay as they were. Once all are set, rows marked so keep, or change, a frame of every format
// the effect reads.
TEST(Robustness, EdgeSettingsKeepEveryLevelOnTheScalarRule) {
    const std::vector<int> formats = {30, 0, 4, 6, 7, 12, 13, 35, 90};
    const std::vector<FrameShape> shapes = KernelShapes(formats);
    enum Frames { kAny, kKeeps, kChanges };
    const struct {
        unsigned id;
        const char* settings;
        Frames frames = kAny;
    } rows[] = {
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "brightness=-100 contrast=100 saturation=100", kChanges},
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "brightness=150 contrast=-100 saturation=-100", kChanges},
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "brightness=nan contrast=inf saturation=-inf", kChanges},
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "brightness=0 contrast=0 saturation=0", kKeeps},
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "saturation=-50", kKeeps},     // a scale of exactly 1
        {AVPROCESSOR_BRIGHTNESS_CONTRAST, "saturation=-100,0", kKeeps},  // its step skipped again
        {AVPROCESSOR_GAUSS_BLUR, "blur_count=0,-1", kKeeps},
        {AVPROCESSOR_LAPLACIAN_SHARPEN, "sharpen_count=0,-1", kKeeps},
        {AVPROCESSOR_GRAY, "", kChanges},
        {AVPROCESSOR_FLIP_COLOR, "", kChanges},
        {AVPROCESSOR_INVERT, "", kChanges},
        {AVPROCESSOR_AGED_FILM, "", kChanges},
        {AVPROCESSOR_COLOR_FILTER,
         "filter_color=1193046 filter_scope=-300 filter_color=7 filter_scope=300"},
        {AVPROCESSOR_EMBOSS,
         "emboss_level=-1,-3,128,129,200,-130,8388607,8388608,-8388608,16843009,"
         "1073741825,2147483647,-2147483648",
         kChanges},
        {AVPROCESSOR_MIRAGE, "mirage_alpha=55 mirage_width=300,5000", kChanges},
        {AVPROCESSOR_MIRAGE, "mirage_width=37 mirage_alpha=0", kChanges},
        {AVPROCESSOR_MIRAGE, "mirage_width=1 mirage_alpha=100", kChanges},
        // Weights over 100 and widths at or below 0 or leaving the row (65436 wraps the 32-bit
        // offset far past it) keep the frame.
        {AVPROCESSOR_MIRAGE, "mirage_alpha=101", kKeeps},
        {AVPROCESSOR_MIRAGE, "mirage_width=0", kKeeps},
        {AVPROCESSOR_MIRAGE, "mirage_width=-5", kKeeps},
        {AVPROCESSOR_MIRAGE, "mirage_width=65436", kKeeps},
        // Only "1" turns a mirror flag on.
        {AVPROCESSOR_REVERSE, "vertical=1 mirror=-1 mirror=1 vertical=2", kChanges},
        {AVPROCESSOR_REVERSE, "mirror=2 vertical=2", kKeeps},
        {AVPROCESSOR_MOSAIC, "mosaic_x2=8 mosaic_y2=4 mosaic_step=2"},
        // Every set converts the factor again: from 77, 504 wraps alphas above 127; from 100,
        // 256, 655, ... 71969, until the factor's bits above 16 are in play and must not matter.
        {AVPROCESSOR_TRANSPARENCY, "transparency_scale=77 duration=1,1,1,1,1,1"},
        {AVPROCESSOR_TRANSPARENCY, "transparency_scale=100 duration=1,1,1,1,1,1"},
        {AVPROCESSOR_TRANSPARENCY, "", kKeeps},  // a fresh effect's factor is 0 until a set
    };
    for (const auto& row : rows) {
        const ServedEffect* served = FindServedEffect(row.id);
        ASSERT_NE(served, nullptr) << row.id;
        FactoryEffect effect(served->Create());
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << served->name;
        for (const auto& setting : Sets(row.settings)) {
            ASSERT_TRUE(effect.Set({setting}));
            const std::string where =
                std::string(served->name) + " " + setting.first + "=" + setting.second;
            EXPECT_EQ(FirstShapeDiffering(effect.p, shapes), "") << where;
            EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << where;
        }
        for (int format : formats) {
            if (row.frames == kAny) break;
            TestImage image({format, 33, 9, 3, true}, 5);
            const std::vector<uint8_t> before = image.Snapshot();
            effect.Run(image.Frame());
            EXPECT_EQ(image.Snapshot() == before, row.frames == kKeeps)
                << served->name << " " << format;
        }
    }
}

}  // namespace
