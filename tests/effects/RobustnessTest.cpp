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

#include "support/TestFrame.h"

namespace {

using namespace MediaCore;
using namespace testing_support;

// The two layouts effects change, the planar YUV family (4:2:0, 4:2:2, 4:4:4, 4:1:0, 4:1:1,
// 4:2:0 with alpha), and a format they must leave.
const int kFormats[] = {PIXFMT_BGRA32, PIXFMT_PLANAR4_FULL, 0, 4, 5, 6, 7, 35, PIXFMT_GRAY8};

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

// Every other frame follows a setting of every property (and "duration") to an edge text, read
// back as set; over the formats each property meets every text.
TEST(Robustness, EveryEffectOnEdgeShapesAndEdgeTextsWithANewSizeEachFrame) {
    SilentSink sink;
    const std::vector<std::string>& texts = EdgeTexts();
    for (const ServedEffect& served : ServedEffects()) {
        const catalogue::EffectDescription& description = *served.description;
        for (size_t f = 0; f < std::size(kFormats); ++f) {
            FactoryEffect effect(served.Create());
            ASSERT_NE(effect.p, nullptr);
            for (size_t i = 0; i < std::size(kSizes); ++i) {
                const FrameShape shape{kFormats[f], kSizes[i].first, kSizes[i].second,
                                       static_cast<unsigned>(i % 3) * 5, i % 2 == 1};
                for (unsigned k = 0; i % 2 == 1 && k <= description.propertyCount; ++k) {
                    const std::string name =
                        k == 0 ? "duration" : description.properties[k - 1].name;
                    const std::string& text = texts[(f * std::size(kSizes) + i) % texts.size()];
                    if (RepeatsWork(name) && std::atoi(text.c_str()) > 4) continue;
                    effect.p->SetProperty(name.c_str(), text.c_str());
                    EXPECT_EQ(effect.p->GetProperty(name.c_str(), nullptr), text) << served.name;
                }
                if (i % 2 == 0) effect.Set(catalogue::Showcase(description, 33, 17));
                EXPECT_TRUE(Survives(*effect.p, shape, i % 3 == 2))
                    << served.name << " " << ShapeName(shape);
            }
        }
    }
}

// Settings the every-effect test never draws, being past the documented ranges (many at the
// vector forms' own limits: plane products that wrap, gains that saturate, offsets past the
// row), repeated conversions, or texts that only look like values. Set in order on one effect
// ("name=a,b" sets a, then b); after each, every level gives the scalar rule's bytes and formats
// the effect does not read stay as they were. A "=" keeps, a "*" changes, a frame of every
// format the effect reads.
TEST(Robustness, EdgeSettingsKeepEveryLevelOnTheScalarRule) {
    const std::vector<int> formats = {30, 0, 4, 6, 7, 12, 13, 35, 90};
    const std::vector<FrameShape> shapes = KernelShapes(formats);
    const std::pair<unsigned, const char*> rows[] = {
        // A saturation of -50 is a scale of exactly 1; back from -100 its step is skipped again.
        {AVPROCESSOR_BRIGHTNESS_CONTRAST,
         "brightness=-100 contrast=100 saturation=100 * brightness=150 contrast=-100 "
         "saturation=-100 * brightness=nan contrast=inf saturation=-inf * brightness=0 "
         "contrast=0 saturation=0 = saturation=-50 = saturation=-100,0 ="},
        // clang-format off
        {AVPROCESSOR_GAUSS_BLUR, "blur_count=0,-1 ="},
        {AVPROCESSOR_LAPLACIAN_SHARPEN, "sharpen_count=0,-1 ="},
        {AVPROCESSOR_GRAY, "*"}, {AVPROCESSOR_FLIP_COLOR, "*"}, {AVPROCESSOR_INVERT, "*"},
        {AVPROCESSOR_AGED_FILM, "*"},
        // clang-format on
        {AVPROCESSOR_COLOR_FILTER,
         "filter_color=1193046 filter_scope=-300 filter_color=7 filter_scope=300"},
        {AVPROCESSOR_EMBOSS,
         "emboss_level=-1,-3,128,129,200,-130,8388607,8388608,-8388608,16843009,"
         "1073741825,2147483647,-2147483648 *"},
        // Weights over 100 and widths at or below 0 or leaving the row (65436 wraps the 32-bit
        // offset far past it) keep the frame.
        {AVPROCESSOR_MIRAGE,
         "mirage_alpha=55 mirage_width=300,5000 * mirage_width=37 mirage_alpha=0 * mirage_width=1 "
         "mirage_alpha=100 * mirage_width=10 mirage_alpha=101 = mirage_alpha=10 mirage_width=0 = "
         "mirage_width=-5 = mirage_width=65436 ="},
        // Defaults change nothing; corners past the frame are not clipped but refused.
        {AVPROCESSOR_MOSAIC,
         "= mosaic_x2=34 mosaic_y2=9 = mosaic_x2=33 mosaic_y2=10 = mosaic_x2=8 mosaic_y2=4 "
         "mosaic_step=2 *"},
        // Only "1" turns a mirror flag on.
        {AVPROCESSOR_REVERSE, "vertical=1 mirror=-1 mirror=1 vertical=2 * mirror=2 ="},
        // Shift 2^32 - 1 (no noise, gain 20), 32 (all 15 bits, gain 680), a gain that saturates
        // alone, one past the vector forms' gain limit.
        {AVPROCESSOR_ADD_NOISE, "addnoise_level=13,-20,-1000,-1700"},
        // A fresh effect's factor is 0 until a set. Every set converts the factor again: from 77,
        // 504 wraps alphas above 127; from 100, 256, 655, ... 71969, until the factor's bits
        // above 16 are in play and must not matter.
        {AVPROCESSOR_TRANSPARENCY,
         "= transparency_scale=77 duration=1,1,1,1,1,1 transparency_scale=100 "
         "duration=1,1,1,1,1,1"},
    };
    for (const auto& [id, text] : rows) {
        const ServedEffect* served = FindServedEffect(id);
        ASSERT_NE(served, nullptr) << id;
        FactoryEffect effect(served->Create());
        EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << served->name;
        std::istringstream words(text);
        for (std::string word, where; words >> word;) {
            if (word == "=" || word == "*") {
                for (int format : formats) {
                    TestImage image({format, 33, 9, 3, true}, 5);
                    const std::vector<uint8_t> before = image.Snapshot();
                    effect.Run(image.Frame());
                    EXPECT_EQ(image.Snapshot() == before, word == "=") << where << " " << format;
                }
                continue;
            }
            const size_t equals = word.find('=');
            std::istringstream values(word.substr(equals + 1));
            for (std::string value; std::getline(values, value, ',');) {
                ASSERT_TRUE(effect.Set({{word.substr(0, equals), value}}));
                where = std::string(served->name) + " " + word.substr(0, equals) + "=" + value;
                EXPECT_EQ(FirstShapeDiffering(effect.p, shapes), "") << where;
                EXPECT_EQ(FirstForeignFormatChanged(effect.p), "") << where;
            }
        }
    }
}

}  // namespace
