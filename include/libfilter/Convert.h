// libconvert: a host controller whose frame converters change pixel format and size, for hosts
// (and tools) that run the stereo and rotation effects outside an engine of their own.
//
// Converters take any frame of formats 0, 2, 3, 4, 5, 6, 7, 12, 13, 30, 33, 35 or 90 (planar YUV
// in limited range; 2 is R, G, B; 3 is B, G, R; 30 is B, G, R, A) to their target format and
// size (a width or height of 0 keeps the input's). A frame a converter returns stays its own
// until its next Convert or its Release; Free on it does nothing.
#pragma once

#include "libfilter/GController.h"

extern "C" {
// A new controller; release it with libconvert_DestroyController.
MediaCore::GController* libconvert_CreateController();
// Destroys a controller made by libconvert_CreateController (null is ignored). Converters it
// made must be released first.
void libconvert_DestroyController(MediaCore::GController*);
}
