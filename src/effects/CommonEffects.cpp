// The effect factory: the one place that decides which effects a host can obtain.
#include <memory>

#include "core/ErrorReport.h"
#include "libfilter/ColorEffects.h"
#include "libfilter/SystemBase.h"
#include "libfilter/libfilter.h"

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kCommonEffects;

using Creator = CImageEffectBase* (*)(GController* controller);

template <class Effect>
CImageEffectBase* Create(GController*) {
    return new Effect();
}

struct FactoryEntry {
    unsigned id;
    Creator create;
};

// Ids not listed here are refused like unknown ones.
constexpr FactoryEntry kFactory[] = {
    {AVPROCESSOR_INVERT, Create<CInvertEffect>},
};

}  // namespace

}  // namespace MediaCore

extern "C" MediaCore::GVideoProcessor* libfilter_GetFilter(MediaCore::GController* controller,
                                                           unsigned id) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&]() -> GVideoProcessor* {
        for (const FactoryEntry& entry : kFactory) {
            if (entry.id == id) return entry.create(controller);
        }
        LF_RAISE(kFile,
                 SystemBase::GStringFormat::Format("No the effect=%d", static_cast<int>(id)));
    });
}
