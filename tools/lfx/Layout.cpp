#include "Layout.h"

#include "libfilter/PixelFormat.h"

namespace lfx {

AVPixelFormat FfmpegFormat(Layout layout) {
    return layout == Layout::Bgra ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P;
}

int LibraryFormat(Layout layout) {
    return layout == Layout::Bgra ? MediaCore::PIXFMT_BGRA32 : MediaCore::PIXFMT_YUV420P;
}

const char* LayoutName(Layout layout) {
    return layout == Layout::Bgra ? "bgra" : "yuv420p";
}

}  // namespace lfx
