// Pixel-format conversion and scaling of frames with libswscale. One Scaler per thread.
#pragma once

#include "Ffmpeg.h"

namespace lfx {

// The YUV matrix of a picture: its own tag, or what a picture of that height usually uses.
AVColorSpace EffectiveColorSpace(AVColorSpace tagged, int height);

class Scaler {
public:
    // `in` in `format` at width x height (its own size when those are 0), with `in`'s time
    // stamp and properties. A frame already in that shape is passed on as it is, possibly
    // still shared with the decoder (see av_frame_is_writable).
    // Studio-range YUV is produced for YUV formats, except the full-range "J" formats.
    FramePtr Convert(FramePtr in, AVPixelFormat format, AVColorSpace space, int width = 0,
                     int height = 0);

private:
    ScaleContextPtr context_;
};

}  // namespace lfx
