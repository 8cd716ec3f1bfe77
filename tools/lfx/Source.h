// Where frames come from: a decoded file or the generated clip.
#pragma once

#include <cstdint>
#include <string>

#include "Ffmpeg.h"
#include "Orientation.h"

namespace lfx {

// One element of the stream in presentation order: a video frame or an audio packet to copy.
struct StreamItem {
    FramePtr frame;
    PacketPtr packet;
};

struct SourceInfo {
    int width = 0;
    int height = 0;
    AVRational timeBase{1, 25};  // of the frames' time stamps
    AVRational frameRate{25, 1};
    AVRational sampleAspect{1, 1};  // shape of a pixel
    int64_t frameCount = -1;        // -1 when not known ahead
    AVColorSpace colorSpace = AVCOL_SPC_UNSPECIFIED;
    AVPixelFormat pixelFormat = AV_PIX_FMT_BGRA;  // as decoded
    const AVCodecParameters* audio = nullptr;     // the audio stream to copy, or null
    AVRational audioTimeBase{1, 1};
    Orientation orientation;  // applied to each frame before the effects; size is after it
    std::string name;         // for messages
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const SourceInfo& Info() const = 0;
    // Fills `item` with the next frame or audio packet; false at the end. Throws a UserError.
    virtual bool Next(StreamItem& item) = 0;
};

}  // namespace lfx
