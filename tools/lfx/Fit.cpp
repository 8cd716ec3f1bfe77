#include "Fit.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace lfx {

void EvenSize(Even even, int& width, int& height) {
    if (even == Even::Refuse) return;
    const int step = even == Even::Crop ? -1 : 1;
    if (width % 2 != 0) width += step;
    if (height % 2 != 0) height += step;
}

FramePtr FitFrame(const AVFrame& in, int width, int height) {
    const auto format = static_cast<AVPixelFormat>(in.format);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    FramePtr out = MakeFrame(format, width, height);
    av_frame_copy_props(out.get(), &in);
    const int element = format == AV_PIX_FMT_BGRA ? 4 : descriptor->comp[0].step;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        const int shiftX = chroma ? descriptor->log2_chroma_w : 0;
        const int shiftY = chroma ? descriptor->log2_chroma_h : 0;
        const int inWidth = AV_CEIL_RSHIFT(in.width, shiftX);
        const int inHeight = AV_CEIL_RSHIFT(in.height, shiftY);
        const int outWidth = AV_CEIL_RSHIFT(width, shiftX);
        const int kept = std::min(inWidth, outWidth) * element;
        for (int y = 0; y < AV_CEIL_RSHIFT(height, shiftY); ++y) {
            const uint8_t* source = in.data[plane] + std::min(y, inHeight - 1) * in.linesize[plane];
            uint8_t* line = out->data[plane] + y * out->linesize[plane];
            std::memcpy(line, source, kept);
            for (int x = kept; x < outWidth * element; x += element)
                std::memcpy(line + x, line + kept - element, element);
        }
    }
    return out;
}

}  // namespace lfx
