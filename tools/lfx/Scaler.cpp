#include "Scaler.h"

#include <new>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "Errors.h"

namespace lfx {

namespace {

int SwsSpace(AVColorSpace space) {
    switch (space) {
        case AVCOL_SPC_BT709:
            return SWS_CS_ITU709;
        case AVCOL_SPC_FCC:
            return SWS_CS_FCC;
        case AVCOL_SPC_SMPTE240M:
            return SWS_CS_SMPTE240M;
        case AVCOL_SPC_BT2020_NCL:
        case AVCOL_SPC_BT2020_CL:
            return SWS_CS_BT2020;
        default:
            return SWS_CS_ITU601;
    }
}

bool IsRgb(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

bool IsFullRangeYuv(AVPixelFormat format) {
    return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P ||
           format == AV_PIX_FMT_YUVJ444P || format == AV_PIX_FMT_YUVJ440P;
}

bool FullRange(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    return IsRgb(format) || IsFullRangeYuv(format) || frame.color_range == AVCOL_RANGE_JPEG;
}

}  // namespace

AVColorSpace EffectiveColorSpace(AVColorSpace tagged, int height) {
    if (tagged != AVCOL_SPC_UNSPECIFIED && tagged != AVCOL_SPC_RGB) return tagged;
    return height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

FramePtr Scaler::Convert(FramePtr in, AVPixelFormat format, AVColorSpace space, int width,
                         int height) {
    if (width <= 0) width = in->width;
    if (height <= 0) height = in->height;
    const bool fullOut = IsRgb(format) || IsFullRangeYuv(format);
    if (in->format == format && in->width == width && in->height == height &&
        FullRange(*in) == fullOut) {
        return in;
    }
    const auto inFormat = static_cast<AVPixelFormat>(in->format);
    context_.reset(sws_getCachedContext(context_.release(), in->width, in->height, inFormat, width,
                                        height, format, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr,
                                        nullptr, nullptr));
    if (!context_) {
        Fail(std::string("cannot convert ") + av_get_pix_fmt_name(inFormat) + " frames to " +
             av_get_pix_fmt_name(format));
    }
    const int* coefficients = sws_getCoefficients(SwsSpace(EffectiveColorSpace(space, height)));
    sws_setColorspaceDetails(context_.get(), coefficients, FullRange(*in) ? 1 : 0, coefficients,
                             fullOut ? 1 : 0, 0, 1 << 16, 1 << 16);
    FramePtr out = MakeFrame(format, width, height);
    av_frame_copy_props(out.get(), in.get());
    out->color_range = fullOut ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    sws_scale(context_.get(), in->data, in->linesize, 0, in->height, out->data, out->linesize);
    return out;
}

}  // namespace lfx
