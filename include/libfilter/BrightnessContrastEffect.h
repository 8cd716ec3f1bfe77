// Brightness, contrast and colour saturation.
#pragma once

#include <cstdint>

#include "libfilter/AlignedMemory.h"
#include "libfilter/EffectBase.h"

namespace MediaCore {

// Three double properties from -100 to 100, all "0" at first: "brightness", "contrast" and
// "saturation". Brightness and contrast map every packed colour byte through a 256-entry table
// (and planar luma through the same shape with half the brightness step); saturation scales
// each packed pixel's colours about their mean, or planar chroma about 127.
class CBrightnessContrastEffect : public CImageEffectBase {
public:
    CBrightnessContrastEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    void Rebuild();
    const int32_t* Table() const { return reinterpret_cast<const int32_t*>(table_.Data()); }

    AlignedBuffer table_{16};  // 256 signed 32-bit entries, rebuilt on every property change
    bool active_ = false;      // brightness or contrast is not 0
    double saturation_ = 0.0;
    double brightness_ = 0.0;
    double contrast_ = 0.0;
    // The integer forms of the three values, derived with the table.
    int contrastScale_ = 256;    // bytes move from 127 by this many 256ths of their distance
    int tableOffset_ = 127;      // the packed table's value at 127
    int lumaOffset_ = 127;       // the same for planar luma, with half the brightness step
    int saturationScale_ = 512;  // colour distances scale by this many 256ths
};

}  // namespace MediaCore
