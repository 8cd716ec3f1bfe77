// Parameterless recolouring effects.
#pragma once

#include "libfilter/EffectBase.h"

namespace MediaCore {

// Inverts the three colour channels (packed) or all three planes (planar YUV).
class CInvertEffect : public CImageEffectBase {
public:
    CInvertEffect();
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;
};

}  // namespace MediaCore
