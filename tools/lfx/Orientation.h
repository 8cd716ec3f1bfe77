// How a video's stored pictures are turned for display, as its display matrix says: a transpose
// (rows become columns), then a left-right and an up-down mirror. Phone videos are stored
// sideways and carry a quarter turn here.
#pragma once

#include <cstdint>

#include "Ffmpeg.h"

namespace lfx {

struct Orientation {
    bool transpose = false;
    bool mirrorX = false;  // left-right
    bool mirrorY = false;  // up-down

    bool Identity() const { return !transpose && !mirrorX && !mirrorY; }
};

// The turn a display matrix (nine 16.16/2.30 fixed-point numbers) asks for, read as FFmpeg's own
// tools read it; angles other than quarter turns are left alone.
Orientation FromDisplayMatrix(const int32_t* matrix);
// The turn for a "rotate" tag in degrees clockwise.
Orientation FromDegrees(int degrees);

// `in` turned; width and height swap with a transpose. Takes BGRA and planar YUV with equal
// horizontal and vertical thinning.
FramePtr Orient(const AVFrame& in, const Orientation& orientation);

}  // namespace lfx
