#include "catalogue/Catalogue.h"

#include <cstdio>
#include <cstdlib>

#ifdef LF_HAVE_CONVERT
#include "libfilter/Convert.h"
#endif

namespace catalogue {

namespace {

using namespace MediaCore;

std::vector<const EffectDescription*> ReadTable() {
    unsigned count = 0;
    const EffectDescription* const* table = libfilter_GetEffectDescriptions(&count);
    return table != nullptr ? std::vector<const EffectDescription*>(table, table + count)
                            : std::vector<const EffectDescription*>{};
}

std::string Decimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

double Scaled(double value, RangeBound bound, unsigned width, unsigned height) {
    switch (bound) {
        case RangeBound::FrameWidth:
            return value * width;
        case RangeBound::FrameHeight:
            return value * height;
        default:
            return value;
    }
}

}  // namespace

const std::vector<const EffectDescription*>& Effects() {
    static const std::vector<const EffectDescription*> effects = ReadTable();
    return effects;
}

const EffectDescription* FindEffect(const std::string& nameOrId) {
    char* end = nullptr;
    const unsigned long id = std::strtoul(nameOrId.c_str(), &end, 10);
    const bool byId = !nameOrId.empty() && *end == '\0';
    for (const EffectDescription* effect : Effects()) {
        if (byId ? effect->id == id : nameOrId == effect->name) return effect;
    }
    return nullptr;
}

const PropertyDescription* FindProperty(const EffectDescription& effect, const std::string& name) {
    for (unsigned i = 0; i < effect.propertyCount; ++i) {
        if (name == effect.properties[i].name) return &effect.properties[i];
    }
    return nullptr;
}

unsigned PropertyIndex(const EffectDescription& effect, const PropertyDescription& property) {
    return static_cast<unsigned>(&property - effect.properties);
}

double UpperBound(const PropertyDescription& property, unsigned width, unsigned height) {
    return property.upper == RangeBound::Fixed ? property.max
                                               : Scaled(1.0, property.upper, width, height);
}

std::string RangeText(const PropertyDescription& property) {
    switch (property.kind) {
        case PropertyKind::Flag:
            return "0 or 1";
        case PropertyKind::Color:
            return "0xRRGGBB";
        default:
            break;
    }
    switch (property.upper) {
        case RangeBound::FrameWidth:
            return Decimal(property.min) + "..frame width";
        case RangeBound::FrameHeight:
            return Decimal(property.min) + "..frame height";
        default:
            return Decimal(property.min) + ".." + Decimal(property.max);
    }
}

const char* KindName(PropertyKind kind) {
    switch (kind) {
        case PropertyKind::Integer:
            return "integer";
        case PropertyKind::Real:
            return "number";
        case PropertyKind::Flag:
            return "flag";
        case PropertyKind::Color:
            return "colour";
    }
    return "value";
}

std::string MakingText(const EffectDescription& effect) {
    return effect.making == EffectMaking::Factory ? "factory id " + std::to_string(effect.id)
                                                  : std::string("class ") + effect.className;
}

PropertyList Showcase(const EffectDescription& effect, unsigned width, unsigned height) {
    PropertyList settings;
    for (unsigned i = 0; i < effect.showcaseCount; ++i) {
        const ShowcaseSetting& setting = effect.showcase[i];
        const double value = Scaled(setting.value, setting.scale, width, height);
        settings.emplace_back(setting.property, setting.scale == RangeBound::Fixed
                                                    ? Decimal(value)
                                                    : std::to_string(static_cast<long>(value)));
    }
    return settings;
}

GController* SharedController() {
#ifdef LF_HAVE_CONVERT
    static const std::unique_ptr<GController, void (*)(GController*)> controller(
        libconvert_CreateController(), libconvert_DestroyController);
    return controller.get();
#else
    return nullptr;
#endif
}

const char* BuildGap(const EffectDescription& effect) {
    if (effect.needsConverters && SharedController() == nullptr) {
        return "it needs frame converters, which this build lacks";
    }
    return nullptr;
}

EffectPtr Create(const EffectDescription& effect) {
    if (BuildGap(effect) != nullptr) return nullptr;
    return EffectPtr(effect.create(SharedController()));
}

}  // namespace catalogue
