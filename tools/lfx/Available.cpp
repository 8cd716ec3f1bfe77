#include "Available.h"

#include <algorithm>
#include <cstddef>

#include "Errors.h"

namespace lfx {

namespace {

using namespace MediaCore;

std::string TextOf(GString* text) {
    const char* chars = text != nullptr ? text->GetString() : nullptr;
    return chars != nullptr ? chars : "";
}

std::vector<PropertyInfo> ReadProperties(const CatalogueEntry& entry, GVideoProcessor& effect) {
    std::vector<PropertyInfo> properties;
    GStringList* names = effect.GetPropertyNames();
    if (names == nullptr) return properties;
    for (unsigned i = 0; i < names->GetCount(); ++i) {
        std::string name = TextOf(names->GetAt(i));
        if (name == kDurationProperty) continue;
        int type = 0;
        const char* text = effect.GetProperty(name.c_str(), &type);
        properties.push_back({name, text != nullptr ? text : "", type, entry.FindProperty(name)});
    }
    names->Free();
    // In the catalogue's order, which the frei0r plug-ins' parameters follow too.
    auto rank = [&](const PropertyInfo& property) {
        return property.spec != nullptr ? property.spec - entry.properties.data()
                                        : static_cast<std::ptrdiff_t>(entry.properties.size());
    };
    std::stable_sort(
        properties.begin(), properties.end(),
        [&](const PropertyInfo& a, const PropertyInfo& b) { return rank(a) < rank(b); });
    return properties;
}

std::vector<AvailableEffect> Probe() {
    std::vector<AvailableEffect> effects;
    for (const CatalogueEntry& entry : catalogue::Catalogue()) {
        EffectPtr effect = catalogue::Create(entry);
        if (effect) effects.push_back({&entry, ReadProperties(entry, *effect)});
    }
    return effects;
}

}  // namespace

const PropertyInfo* AvailableEffect::FindProperty(const std::string& name) const {
    for (const PropertyInfo& property : properties) {
        if (property.name == name) return &property;
    }
    return nullptr;
}

std::string AvailableEffect::PropertyNames() const {
    std::string names;
    for (const PropertyInfo& property : properties) {
        names += (names.empty() ? "" : ", ") + property.name;
    }
    return names;
}

const std::vector<AvailableEffect>& AvailableEffects() {
    static const std::vector<AvailableEffect> effects = Probe();
    return effects;
}

std::string UnavailableReason(const CatalogueEntry& entry) {
    if (const char* gap = catalogue::BuildGap(entry)) return gap;
    for (const AvailableEffect& effect : AvailableEffects()) {
        if (effect.entry == &entry) return "";
    }
    return "the library refuses its id";
}

const AvailableEffect& FindEffect(const std::string& nameOrId) {
    if (const CatalogueEntry* entry = catalogue::FindEntry(nameOrId)) {
        for (const AvailableEffect& effect : AvailableEffects()) {
            if (effect.entry == entry) return effect;
        }
        Fail("effect '" + std::string(entry->name) +
             "' is not available: " + UnavailableReason(*entry));
    }
    std::string names;
    for (const AvailableEffect& effect : AvailableEffects()) {
        names += (names.empty() ? "" : ", ") + std::string(effect.entry->name);
    }
    Fail("unknown effect '" + nameOrId + "' (effects: " + names + ")");
}

const char* PropertyTypeName(int type) {
    switch (type) {
        case 0:
            return "text";
        case 1:
            return "number";
        case 2:
        case 3:
        case 4:
            return "integer";
        default:
            return "value";
    }
}

EffectPtr CreateEffect(const AvailableEffect& effect) {
    EffectPtr instance = catalogue::Create(*effect.entry);
    if (!instance)
        Fail("the library refused to make effect '" + std::string(effect.entry->name) + "'");
    return instance;
}

}  // namespace lfx
