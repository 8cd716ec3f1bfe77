// Repeated 3x3 smoothing and sharpening, filtered in place.
#pragma once

#include <cstdint>

#include "libfilter/EffectBase.h"

namespace MediaCore {

// Smooths with the 1 2 1 / 2 4 2 / 1 2 1 kernel, "blur_count" passes (default 1).
class CSimpleGaussBlurEffect : public CImageEffectBase {
public:
    CSimpleGaussBlurEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    uint32_t passes_ = 1;
};

// Sharpens with the Laplacian kernel -1 -1 -1 / -1 9 -1 / -1 -1 -1, "sharpen_count" passes
// (default 1).
class CSimpleLaplacianSharpenEffect : public CImageEffectBase {
public:
    CSimpleLaplacianSharpenEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    uint32_t passes_ = 1;
};

}  // namespace MediaCore
