// Mirror: reverses a frame's column order, row order, or both, in place.
#pragma once

#include <cstdint>

#include "libfilter/EffectBase.h"

namespace MediaCore {

// "mirror" = 1 reverses the columns, "vertical" = 1 the rows; any other value is off. With both
// on, the middle row and the middle column of odd sizes keep their order.
class CReverseVideoImageEffect : public CImageEffectBase {
public:
    CReverseVideoImageEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    int32_t mirror_ = 0;
    int32_t vertical_ = 0;
};

}  // namespace MediaCore
