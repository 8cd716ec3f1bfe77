// The effects the library describes that this build can run, as lfx offers them.
#pragma once

#include <string>
#include <vector>

#include "catalogue/Catalogue.h"

namespace lfx {

using catalogue::EffectDescription;
using catalogue::EffectPtr;
using catalogue::kDurationProperty;
using catalogue::PropertyDescription;
using catalogue::PropertyKind;
using catalogue::PropertyList;

// An effect this build can make.
struct AvailableEffect {
    const EffectDescription* entry;

    // The described property with this name (not "duration"), or null.
    const PropertyDescription* FindProperty(const std::string& name) const;
    std::string PropertyNames() const;  // comma separated, for messages
};

// Every described effect this build can make, in id order.
const std::vector<AvailableEffect>& AvailableEffects();

// The effect with this short name or id number; throws a UserError naming the valid names, or
// why a known effect is missing from this build.
const AvailableEffect& FindEffect(const std::string& nameOrId);

// Why a described effect is not available, or empty when it is.
std::string UnavailableReason(const EffectDescription& entry);

// A new instance of an available effect; throws a UserError when the library refuses.
EffectPtr CreateEffect(const AvailableEffect& effect);

}  // namespace lfx
