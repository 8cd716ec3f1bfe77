// The two pixel layouts lfx hands to effects.
#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <string>

namespace lfx {

enum class Layout { Bgra, Yuv420p };

// The FFmpeg format of a layout's frames, and the library's number for it.
AVPixelFormat FfmpegFormat(Layout layout);
int LibraryFormat(Layout layout);
// "bgra" or "yuv420p".
const char* LayoutName(Layout layout);

}  // namespace lfx
