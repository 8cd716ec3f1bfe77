// The video-processor face the factory hands to a host.
#pragma once

#include <cstdint>

#include "libfilter/GProcessor.h"
#include "libfilter/GVideoFrame.h"

namespace MediaCore {

// Position record passed with each frame (the name is the interface's own spelling).
struct ImagePostion {
    uint16_t left;
    uint16_t top;
    uint32_t word0;
    uint32_t word1;
    uint16_t width;
    uint16_t height;
};

// Slot order is ABI: GProcessor's eight operations, then these five; no destructor slots.
class GVideoProcessor : public GProcessor {
public:
    virtual bool Seek(unsigned int position) = 0;
    virtual unsigned GetDuration() = 0;
    virtual GVideoFrame* ProcFrame(ImagePostion* position, int n, GVideoFrame* frame) = 0;
    virtual void ProcFrameInPlace(ImagePostion* position, int n, GVideoFrame* frame) = 0;
    virtual void BlendFrame(const ImagePostion* position, int n, GVideoFrame* a,
                            GVideoFrame* b) = 0;

protected:
    ~GVideoProcessor() = default;
};

// Interface name under which every effect registers its GVideoProcessor face.
constexpr const char* kVideoProcessorInterface = "libcorevideoprocinterface";

}  // namespace MediaCore
