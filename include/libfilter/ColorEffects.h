// Parameterless recolouring effects.
#pragma once

#include "libfilter/EffectBase.h"

namespace MediaCore {

// Turns packed pixels to the mean of their three colours; makes planar chroma neutral.
class CGrayEffect : public CImageEffectBase {
public:
    CGrayEffect();
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;
};

// Exchanges red and blue (packed) or the two chroma planes (planar YUV).
class CFlipColorEffect : public CImageEffectBase {
public:
    CFlipColorEffect();
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;
};

// Inverts the three colour channels (packed) or all three planes (planar YUV).
class CInvertEffect : public CImageEffectBase {
public:
    CInvertEffect();
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;
};

// Sepia tone from each packed pixel's mean, lifted to at least 35; a fixed warm tint of planar
// chroma.
class CAgedFilmEffect : public CImageEffectBase {
public:
    CAgedFilmEffect();
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;
};

}  // namespace MediaCore
