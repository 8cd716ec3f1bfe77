// The effect factory and the table of effect descriptions it serves from: the one place that
// decides which effects a host can obtain. Effects join the table from their own files.
#include <algorithm>
#include <cstdlib>

#include "core/Described.h"
#include "libfilter/SystemBase.h"
#include "libfilter/libfilter.h"

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kCommonEffects;

std::vector<const EffectDescription*>& Table() {
    static std::vector<const EffectDescription*> table;
    return table;
}

}  // namespace

EffectRegistration::EffectRegistration(const EffectDescription& description) {
    std::vector<const EffectDescription*>& table = Table();
    const auto byId = [](const EffectDescription* a, const EffectDescription* b) {
        return a->id < b->id;
    };
    table.insert(std::upper_bound(table.begin(), table.end(), &description, byId), &description);
}

const std::vector<const EffectDescription*>& DescribedEffects() {
    return Table();
}

const EffectDescription* FindDescription(unsigned id) {
    for (const EffectDescription* description : Table()) {
        if (description->id == id) return description;
    }
    return nullptr;
}

CProcessor::PropertyNode DefaultNode(const PropertyDescription& property) {
    if (property.type == PROPERTY_DOUBLE) {
        return CProcessor::PropertyNode::Double(std::strtod(property.defaultText, nullptr),
                                                property.defaultText);
    }
    return CProcessor::PropertyNode::Int32(std::atoi(property.defaultText));
}

}  // namespace MediaCore

extern "C" MediaCore::GVideoProcessor* libfilter_GetFilter(MediaCore::GController* controller,
                                                           unsigned id) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&]() -> GVideoProcessor* {
        const EffectDescription* description = FindDescription(id);
        // Exported classes are built by their hosts, not by number.
        if (description == nullptr || description->making != EffectMaking::Factory) {
            LF_RAISE(kFile,
                     SystemBase::GStringFormat::Format("No the effect=%d", static_cast<int>(id)));
        }
        return description->create(controller);
    });
}

extern "C" const MediaCore::EffectDescription* const* libfilter_GetEffectDescriptions(
    unsigned* count) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&]() -> const EffectDescription* const* {
        LF_REQUIRE(kFile, count);
        *count = static_cast<unsigned>(DescribedEffects().size());
        return DescribedEffects().data();
    });
}
