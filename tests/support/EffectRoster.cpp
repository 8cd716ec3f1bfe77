#include "support/EffectRoster.h"

#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

// The classes a host constructs itself (ids 14 to 17) and the converter library that the
// stereo and rotation effects ask for frames are picked up as soon as their headers exist.
#if __has_include("libfilter/DirectEffects.h")
#include "libfilter/DirectEffects.h"
#define LF_ROSTER_DIRECT 1
#endif
#if __has_include("libfilter/Convert.h")
#include "libfilter/Convert.h"
#define LF_ROSTER_CONVERT 1
#endif

namespace testing_support {

namespace {

using namespace MediaCore;

struct Named {
    unsigned id;
    const char* name;
};

constexpr Named kNames[] = {
    {3, "brightness-contrast"},
    {4, "mirror"},
    {5, "2d-to-3d"},
    {6, "blur"},
    {7, "sharpen"},
    {8, "gray"},
    {9, "flip-color"},
    {10, "invert"},
    {11, "aged-film"},
    {12, "emboss"},
    {13, "mosaic"},
    {14, "mirage"},
    {15, "transparency"},
    {16, "color-filter"},
    {17, "add-noise"},
    {19, "rotate90"},
};

using Constructor = GVideoProcessor* (*)();

template <class Effect>
[[maybe_unused]] GVideoProcessor* Construct() {
    try {
        return new Effect();
    } catch (...) {
        return nullptr;  // a refusal, as the factory's null
    }
}

struct DirectEffect {
    unsigned id;
    Constructor create;
};

// Effects a host builds with new. One row per class.
const std::vector<DirectEffect> kDirectEffects = {
#if LF_ROSTER_DIRECT
    {AVPROCESSOR_MIRAGE, Construct<CMirageVideoImageEffect>},
    {AVPROCESSOR_TRANSPARENCY, Construct<CTransparencyAjustEffect>},
    {AVPROCESSOR_COLOR_FILTER, Construct<CColorFilterEffect>},
    {AVPROCESSOR_ADD_NOISE, Construct<CAddNoiseVideoImageEffect>},
#endif
};

Constructor DirectConstructor(unsigned id) {
    for (const DirectEffect& effect : kDirectEffects) {
        if (effect.id == id) return effect.create;
    }
    return nullptr;
}

std::vector<ServedEffect> Probe() {
    SilentSink quiet;
    std::vector<ServedEffect> served;
    for (unsigned id = kFirstEffectId; id <= kLastEffectId; ++id) {
        if (GVideoProcessor* effect = libfilter_GetFilter(EffectController(), id)) {
            effect->Free();
            served.push_back({id, EffectName(id), true});
        } else if (Constructor create = DirectConstructor(id)) {
            if (GVideoProcessor* direct = create()) {
                direct->Free();
                served.push_back({id, EffectName(id), false});
            }
        }
    }
    return served;
}

}  // namespace

GVideoProcessor* ServedEffect::Create() const {
    if (fromFactory) return libfilter_GetFilter(EffectController(), id);
    Constructor create = DirectConstructor(id);
    return create != nullptr ? create() : nullptr;
}

const std::vector<ServedEffect>& ServedEffects() {
    static const std::vector<ServedEffect> served = Probe();
    return served;
}

const ServedEffect* FindServedEffect(unsigned id) {
    for (const ServedEffect& effect : ServedEffects()) {
        if (effect.id == id) return &effect;
    }
    return nullptr;
}

const char* EffectName(unsigned id) {
    for (const Named& named : kNames) {
        if (named.id == id) return named.name;
    }
    return "unnamed";
}

PropertyList WorkingProperties(unsigned id, unsigned width, unsigned height) {
    const auto at = [](unsigned size, unsigned quarters) {
        return std::to_string(size * quarters / 4);
    };
    switch (id) {
        case AVPROCESSOR_BRIGHTNESS_CONTRAST:
            return {{"brightness", "20"}, {"contrast", "40"}, {"saturation", "60"}};
        case AVPROCESSOR_REVERSE:
            return {{"mirror", "1"}};
        case AVPROCESSOR_2DTO3D:
            return {{"type", "1"}};
        case AVPROCESSOR_GAUSS_BLUR:
            return {{"blur_count", "1"}};
        case AVPROCESSOR_LAPLACIAN_SHARPEN:
            return {{"sharpen_count", "1"}};
        case AVPROCESSOR_MOSAIC:
            return {{"mosaic_x1", at(width, 1)},
                    {"mosaic_y1", at(height, 1)},
                    {"mosaic_x2", at(width, 3)},
                    {"mosaic_y2", at(height, 3)}};
        case AVPROCESSOR_MIRAGE:
            return {{"mirage_width", "20"}, {"mirage_alpha", "50"}};
        case AVPROCESSOR_TRANSPARENCY:
            return {{"transparency_scale", "40"}};
        case AVPROCESSOR_COLOR_FILTER:
            return {{"filter_color", "16777215"}, {"filter_scope", "48"}};
        case AVPROCESSOR_ROTATE90:
            return {{"rotate90_angle", "90"}};
        default:
            return {};
    }
}

bool RepeatsWork(const std::string& property) {
    const std::string suffix = "_count";
    return property.size() >= suffix.size() &&
           property.compare(property.size() - suffix.size(), suffix.size(), suffix) == 0;
}

const std::vector<std::string>& EdgeTexts() {
    // clang-format off
    static const std::vector<std::string> texts = {
        "0", "1", "-1", "2", "3", "4", "255", "256", "100", "-100",
        "2147483647", "-2147483648", "4294967295", "99999999999999",
        "nan", "inf", "-inf", "1e308", "-1e308", "0.5", "-0.5", "0x10", " 7", "7abc", "abc", ""};
    // clang-format on
    return texts;
}

GController* EffectController() {
#if LF_ROSTER_CONVERT
    // One for the process, as an engine has; it lives until exit.
    static GController* const controller = libconvert_CreateController();
    return controller;
#else
    return nullptr;
#endif
}

SilentSink::SilentSink() : previous_(liblog_SetGException(this)) {}

SilentSink::~SilentSink() {
    liblog_SetGException(previous_);
}

}  // namespace testing_support
