// The catalogue's effects that the library in hand can make, as lfx offers them.
#pragma once

#include <string>
#include <vector>

#include "catalogue/Catalogue.h"

namespace lfx {

using catalogue::CatalogueEntry;
using catalogue::EffectPtr;
using catalogue::kDurationProperty;
using catalogue::PropertyList;
using catalogue::PropertySpec;

// A property as the effect itself reports it. Type tags: 0 text, 1 number, 2 to 4 integers.
struct PropertyInfo {
    std::string name;
    std::string defaultText;
    int type;
    const PropertySpec* spec;  // what the catalogue says of it; null when it says nothing
};

// An effect this process can make, with the properties it reported when asked.
struct AvailableEffect {
    const CatalogueEntry* entry;
    std::vector<PropertyInfo> properties;  // without "duration"

    const PropertyInfo* FindProperty(const std::string& name) const;
    std::string PropertyNames() const;  // comma separated, for messages
};

// Asks the library for each catalogue entry once (quietly) and keeps the answers.
const std::vector<AvailableEffect>& AvailableEffects();

// The effect with this short name or id number; throws a UserError naming the valid names, or
// why a known effect is missing from this build.
const AvailableEffect& FindEffect(const std::string& nameOrId);

// Why a catalogue entry is not available, or empty when it is.
std::string UnavailableReason(const CatalogueEntry& entry);

const char* PropertyTypeName(int type);

// A new instance of an available effect; throws a UserError when the library refuses.
EffectPtr CreateEffect(const AvailableEffect& effect);

}  // namespace lfx
