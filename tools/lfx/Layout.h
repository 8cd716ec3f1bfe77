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
// The layout for a source in `format` unless asked otherwise: yuv420p for YUV thinned both
// ways, which loses nothing; bgra for RGB and for 4:2:2 and 4:4:4, whose chroma it keeps.
Layout LayoutFor(AVPixelFormat format);
// The planar YUV format that keeps a source's chroma through bgra: yuv444p or yuv422p for
// such sources, AV_PIX_FMT_NONE for others.
AVPixelFormat ChromaToKeep(AVPixelFormat source, Layout layout);
// Bits of the source's samples.
int BitDepth(AVPixelFormat format);
// "bgra" or "yuv420p".
const char* LayoutName(Layout layout);

}  // namespace lfx
