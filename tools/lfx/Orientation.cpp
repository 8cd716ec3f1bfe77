#include "Orientation.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include "Errors.h"

namespace lfx {

namespace {

// Square tiles keep a transpose's reads and writes within the cache.
constexpr int kTile = 32;

struct PlaneView {
    const uint8_t* src;
    int srcPitch;
    uint8_t* dst;
    int dstPitch;
    int width;    // of the output plane, in elements
    int height;   // of the output plane
    int element;  // bytes
};

// Element size as a constant, so each copy is one load and store.
template <int Element>
void OrientPlane(const PlaneView& p, const Orientation& o) {
    for (int y0 = 0; y0 < p.height; y0 += kTile) {
        for (int x0 = 0; x0 < p.width; x0 += kTile) {
            for (int y = y0; y < std::min(y0 + kTile, p.height); ++y) {
                const int sy = o.mirrorY ? p.height - 1 - y : y;
                uint8_t* out = p.dst + static_cast<ptrdiff_t>(y) * p.dstPitch;
                for (int x = x0; x < std::min(x0 + kTile, p.width); ++x) {
                    const int sx = o.mirrorX ? p.width - 1 - x : x;
                    const int row = o.transpose ? sx : sy;
                    const int column = o.transpose ? sy : sx;
                    std::memcpy(
                        out + x * p.element,
                        p.src + static_cast<ptrdiff_t>(row) * p.srcPitch + column * p.element,
                        p.element);
                }
            }
        }
    }
}

}  // namespace

Orientation FromDisplayMatrix(const int32_t* matrix) {
    Orientation o;
    double theta = -std::round(av_display_rotation_get(matrix));
    theta -= 360 * std::floor(theta / 360 + 0.9 / 360);
    if (std::fabs(theta - 90) < 1.0) {
        o.transpose = true;
        o.mirrorX = matrix[3] <= 0;
    } else if (std::fabs(theta - 180) < 1.0) {
        o.mirrorX = matrix[0] < 0;
        o.mirrorY = matrix[4] < 0;
    } else if (std::fabs(theta - 270) < 1.0) {
        o.transpose = true;
        o.mirrorX = matrix[3] < 0;
        o.mirrorY = true;
    } else if (std::fabs(theta) < 1.0) {
        o.mirrorY = matrix[4] < 0;
    }
    return o;
}

Orientation FromDegrees(int degrees) {
    int32_t matrix[9];
    av_display_rotation_set(matrix, -degrees);
    return FromDisplayMatrix(matrix);
}

FramePtr Orient(const AVFrame& in, const Orientation& orientation) {
    const auto format = static_cast<AVPixelFormat>(in.format);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    const bool packed = format == AV_PIX_FMT_BGRA;
    if (descriptor == nullptr || (!packed && (descriptor->flags & AV_PIX_FMT_FLAG_PLANAR) == 0) ||
        descriptor->log2_chroma_w != descriptor->log2_chroma_h) {
        Fail(std::string("cannot turn ") + av_get_pix_fmt_name(format) + " frames");
    }
    const int width = orientation.transpose ? in.height : in.width;
    const int height = orientation.transpose ? in.width : in.height;
    FramePtr out = MakeFrame(format, width, height);
    av_frame_copy_props(out.get(), &in);
    if (orientation.transpose) {
        std::swap(out->sample_aspect_ratio.num, out->sample_aspect_ratio.den);
    }
    const int planes = av_pix_fmt_count_planes(format);
    for (int plane = 0; plane < planes; ++plane) {
        const bool chroma = plane == 1 || plane == 2;
        const int shift = chroma ? descriptor->log2_chroma_w : 0;
        PlaneView view{in.data[plane],
                       in.linesize[plane],
                       out->data[plane],
                       out->linesize[plane],
                       AV_CEIL_RSHIFT(width, shift),
                       AV_CEIL_RSHIFT(height, shift),
                       packed ? 4 : descriptor->comp[0].step};
        if (view.element == 4) {
            OrientPlane<4>(view, orientation);
        } else if (view.element == 2) {
            OrientPlane<2>(view, orientation);
        } else {
            OrientPlane<1>(view, orientation);
        }
    }
    return out;
}

}  // namespace lfx
