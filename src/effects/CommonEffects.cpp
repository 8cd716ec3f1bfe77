// The effect factory: the one place that decides which effects a host can obtain.
#include <memory>

#include "core/ErrorReport.h"
#include "libfilter/BlurSharpenEffects.h"
#include "libfilter/BrightnessContrastEffect.h"
#include "libfilter/ColorEffects.h"
#include "libfilter/EmbossEffect.h"
#include "libfilter/MirrorEffect.h"
#include "libfilter/MosaicEffect.h"
#include "libfilter/Rotate90X.h"
#include "libfilter/Stereo3D.h"
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

// Effects that ask the host for frame converters keep its controller.
template <class Effect>
CImageEffectBase* CreateWithController(GController* controller) {
    return new Effect(controller);
}

struct FactoryEntry {
    unsigned id;
    Creator create;
};

// Ids not listed here are refused like unknown ones.
constexpr FactoryEntry kFactory[] = {
    {AVPROCESSOR_BRIGHTNESS_CONTRAST, Create<CBrightnessContrastEffect>},
    {AVPROCESSOR_REVERSE, Create<CReverseVideoImageEffect>},
    {AVPROCESSOR_2DTO3D, CreateWithController<C2DTo3D>},
    {AVPROCESSOR_GAUSS_BLUR, Create<CSimpleGaussBlurEffect>},
    {AVPROCESSOR_LAPLACIAN_SHARPEN, Create<CSimpleLaplacianSharpenEffect>},
    {AVPROCESSOR_GRAY, Create<CGrayEffect>},
    {AVPROCESSOR_FLIP_COLOR, Create<CFlipColorEffect>},
    {AVPROCESSOR_INVERT, Create<CInvertEffect>},
    {AVPROCESSOR_AGED_FILM, Create<CAgedFilmEffect>},
    {AVPROCESSOR_EMBOSS, Create<CEmbossVideoImageEffect>},
    {AVPROCESSOR_MOSAIC, Create<CMosaicVideoImageEffect>},
    {AVPROCESSOR_ROTATE90, CreateWithController<CRotate90X>},
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
