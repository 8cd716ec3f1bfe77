#include "Layout.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "libfilter/PixelFormat.h"

namespace lfx {

AVPixelFormat FfmpegFormat(Layout layout) {
    return layout == Layout::Bgra ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P;
}

int LibraryFormat(Layout layout) {
    return layout == Layout::Bgra ? MediaCore::PIXFMT_BGRA32 : MediaCore::PIXFMT_YUV420P;
}

namespace {

bool IsYuv(const AVPixFmtDescriptor* descriptor) {
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) == 0 &&
           descriptor->nb_components >= 3;
}

}  // namespace

Layout LayoutFor(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    const bool thinned =
        IsYuv(descriptor) && descriptor->log2_chroma_w > 0 && descriptor->log2_chroma_h > 0;
    return thinned ? Layout::Yuv420p : Layout::Bgra;
}

AVPixelFormat ChromaToKeep(AVPixelFormat source, Layout layout) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(source);
    if (layout != Layout::Bgra || !IsYuv(descriptor) || descriptor->log2_chroma_h > 0) {
        return AV_PIX_FMT_NONE;
    }
    if (descriptor->log2_chroma_w == 0) return AV_PIX_FMT_YUV444P;
    return descriptor->log2_chroma_w == 1 ? AV_PIX_FMT_YUV422P : AV_PIX_FMT_NONE;
}

int BitDepth(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor != nullptr ? descriptor->comp[0].depth : 8;
}

const char* LayoutName(Layout layout) {
    return layout == Layout::Bgra ? "bgra" : "yuv420p";
}

}  // namespace lfx
