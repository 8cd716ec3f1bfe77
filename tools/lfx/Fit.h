// Making an odd-sized picture even for encoders of thinned chroma, which need whole chroma pairs.
#pragma once

#include "Ffmpeg.h"

namespace lfx {

enum class Even { Refuse, Crop, Pad };

// The size `even` makes of width x height: the odd side cut or grown by one pixel.
void EvenSize(Even even, int& width, int& height);

// `in` (BGRA or planar YUV) at width x height: cut at the right and bottom, or grown there by
// repeating the last column and row.
FramePtr FitFrame(const AVFrame& in, int width, int height);

}  // namespace lfx
