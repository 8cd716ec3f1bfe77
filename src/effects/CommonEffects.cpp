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

// A plain array rather than a container: the table is filled while the library loads, and a
// container's template code would join the library's exported symbols.
struct Table {
    static constexpr unsigned kRoom = 256;
    const EffectDescription* entries[kRoom];
    unsigned count;
};

Table& TheTable() {
    static Table table{};
    return table;
}

}  // namespace

EffectRegistration::EffectRegistration(const EffectDescription& description) {
    Table& table = TheTable();
    if (table.count == Table::kRoom) std::abort();  // a build with more effects than room
    const EffectDescription** end = table.entries + table.count;
    const auto byId = [](const EffectDescription* a, const EffectDescription* b) {
        return a->id < b->id;
    };
    const EffectDescription** at = std::upper_bound(table.entries, end, &description, byId);
    std::copy_backward(at, end, end + 1);
    *at = &description;
    ++table.count;
}

const EffectDescription* const* DescribedEffects(unsigned* count) {
    *count = TheTable().count;
    return TheTable().entries;
}

const EffectDescription* FindDescription(unsigned id) {
    const Table& table = TheTable();
    for (unsigned i = 0; i < table.count; ++i) {
        if (table.entries[i]->id == id) return table.entries[i];
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
        return DescribedEffects(count);
    });
}
