// Relief effect: each sample against the one above it, scaled and centred on mid-gray.
#pragma once

#include <cstdint>

#include "libfilter/EffectBase.h"

namespace MediaCore {

// Packed B, G, R, A rows: pixels, width in pixels, pitch in bytes, rows, level.
using EmbossRgba32Kernel = void (*)(unsigned int* pixels, int width, unsigned int pitch,
                                    unsigned int height, int level);
// One 8-bit plane: bytes, width in bytes, pitch in bytes, rows, level.
using EmbossComponentKernel = void (*)(unsigned char* plane, int width, unsigned int pitch,
                                       unsigned int height, unsigned int level);

// The kernels the effect calls, read on every frame. They start as the library's own; a host
// may store functions of the same signature here before it processes any frame.
extern EmbossRgba32Kernel emboss_effect_rgba32;
extern EmbossComponentKernel emboss_effect_component;

// Embosses with strength "emboss_level" (default 5): planes 0 to 2 of planar frames, blue,
// green and red of packed ones. Row 0 is kept.
class CEmbossVideoImageEffect : public CImageEffectBase {
public:
    CEmbossVideoImageEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    uint32_t level_ = 5;
};

}  // namespace MediaCore
