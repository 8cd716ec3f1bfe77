#include "Available.h"

#include "Errors.h"

namespace lfx {

namespace {

std::vector<AvailableEffect> Probe() {
    std::vector<AvailableEffect> effects;
    for (const EffectDescription* entry : catalogue::Effects()) {
        if (catalogue::BuildGap(*entry) == nullptr) effects.push_back({entry});
    }
    return effects;
}

}  // namespace

const PropertyDescription* AvailableEffect::FindProperty(const std::string& name) const {
    return catalogue::FindProperty(*entry, name);
}

std::string AvailableEffect::PropertyNames() const {
    std::string names;
    for (unsigned i = 0; i < entry->propertyCount; ++i) {
        names += (names.empty() ? "" : ", ") + std::string(entry->properties[i].name);
    }
    return names;
}

const std::vector<AvailableEffect>& AvailableEffects() {
    static const std::vector<AvailableEffect> effects = Probe();
    return effects;
}

std::string UnavailableReason(const EffectDescription& entry) {
    const char* gap = catalogue::BuildGap(entry);
    return gap != nullptr ? gap : "";
}

const AvailableEffect& FindEffect(const std::string& nameOrId) {
    if (const EffectDescription* entry = catalogue::FindEffect(nameOrId)) {
        for (const AvailableEffect& effect : AvailableEffects()) {
            if (effect.entry == entry) return effect;
        }
        FailUsage("effect '" + std::string(entry->name) +
                  "' is not available: " + UnavailableReason(*entry));
    }
    std::string names;
    for (const AvailableEffect& effect : AvailableEffects()) {
        names += (names.empty() ? "" : ", ") + std::string(effect.entry->name);
    }
    FailUsage("unknown effect '" + nameOrId + "' (effects: " + names + ")");
}

EffectPtr CreateEffect(const AvailableEffect& effect) {
    EffectPtr instance = catalogue::Create(*effect.entry);
    if (!instance)
        Fail("the library refused to make effect '" + std::string(effect.entry->name) + "'");
    return instance;
}

}  // namespace lfx
