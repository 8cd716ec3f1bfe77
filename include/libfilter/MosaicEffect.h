// Mosaic: pixelates a rectangle of the frame in place with square blocks.
#pragma once

#include <cstdint>

#include "libfilter/EffectBase.h"

namespace MediaCore {

// Fills each block of side 2^"mosaic_step" inside the rectangle ("mosaic_x1", "mosaic_y1") to
// ("mosaic_x2", "mosaic_y2") with the colour of its top-left sample. Only the far edges are
// rounded down to whole blocks, so the last block of a row may reach past the rectangle.
class CMosaicVideoImageEffect : public CImageEffectBase {
public:
    CMosaicVideoImageEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

    // The packed rule on one plane of 32-bit pixels. The plane's memory is height x pitch
    // bytes from `pixels`; nothing outside it is read or written.
    void MosaicRgba32Effect(unsigned char* pixels, unsigned width, unsigned pitch, unsigned height);
    // The planar rule on Y, U and V: plane 0's width and height bound the rectangle, luma rows
    // step by plane 0's pitch and both chroma planes' rows by plane 1's. `code` is 10 x the
    // horizontal chroma shift + the vertical one. Each plane's memory is heights[i] x
    // pitches[i] bytes; nothing outside it is read or written.
    void MosaicComponentEffect(unsigned char* const planes[3], const unsigned widths[3],
                               const unsigned pitches[3], const unsigned heights[3], unsigned code);

private:
    uint32_t x1_ = 0;
    uint32_t y1_ = 0;
    uint32_t x2_ = 0;
    uint32_t y2_ = 0;
    uint32_t step_ = 3;
    [[maybe_unused]] uint32_t cpuCapability_ = 0;  // kept for layout; never read
};

}  // namespace MediaCore
