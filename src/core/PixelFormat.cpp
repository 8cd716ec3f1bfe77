#include "libfilter/PixelFormat.h"

#include "base/ErrorReport.h"
#include "libfilter/SystemBase.h"

namespace MediaCore {

namespace {

constexpr unsigned Ratio(unsigned num, unsigned den) {
    return num | (den << 16);
}

PixelFormatLayout Packed(unsigned rowBytes, unsigned rows, unsigned ratio) {
    PixelFormatLayout layout;
    layout.packed = true;
    layout.planeCount = 1;
    layout.planes[0] = {rowBytes, rows, ratio, 1};
    return layout;
}

// Planar YUV with chroma planes subsampled by (hs, vs) shifts, plus an optional full-size
// alpha plane.
PixelFormatLayout PlanarYuv(unsigned w, unsigned h, unsigned hs, unsigned vs, bool alpha) {
    PixelFormatLayout layout;
    layout.packed = false;
    layout.planeCount = alpha ? 4 : 3;
    layout.planes[0] = {w, h, Ratio(1, 1), 1};
    const PlaneLayout chroma{w >> hs, h >> vs, Ratio(1, 1u << hs), 1u << vs};
    layout.planes[1] = chroma;
    layout.planes[2] = chroma;
    if (alpha) layout.planes[3] = {w, h, Ratio(1, 1), 1};
    return layout;
}

}  // namespace

PixelFormatLayout GetPixelFormatLayout(int format, unsigned w, unsigned h) {
    switch (format) {
        case PIXFMT_YUV420P:
        case PIXFMT_YUV420P_12:
        case PIXFMT_YUV420P_25:
        case PIXFMT_YUV420P_26:
        case PIXFMT_YUV420P_72:
            return PlanarYuv(w, h, 1, 1, false);
        case PIXFMT_YUV422P:
        case PIXFMT_YUV422P_13:
        case PIXFMT_YUV422P_74:
            return PlanarYuv(w, h, 1, 0, false);
        case PIXFMT_YUV444P:
        case PIXFMT_YUV444P_14:
            return PlanarYuv(w, h, 0, 0, false);
        case PIXFMT_YUV410P:
            return PlanarYuv(w, h, 2, 2, false);
        case PIXFMT_YUV411P:
            return PlanarYuv(w, h, 2, 0, false);
        case PIXFMT_YUV440P:
            return PlanarYuv(w, h, 0, 1, false);
        case PIXFMT_YUVA420P:
            return PlanarYuv(w, h, 1, 1, true);
        case PIXFMT_PLANAR4_FULL:
            return PlanarYuv(w, h, 0, 0, true);
        case PIXFMT_TWOPLANE_11: {
            // Declared with two planes of which only the first is ever usable.
            PixelFormatLayout layout;
            layout.packed = false;
            layout.planeCount = 2;
            layout.planes[0] = {w, h, Ratio(1, 1), 1};
            layout.planes[1] = {0, 0, 0, 0};
            return layout;
        }
        case PIXFMT_GRAY8:
            return Packed(w, h, Ratio(1, 1));
        case PIXFMT_MONO1_9:
        case PIXFMT_MONO1_10:
            return Packed(w >> 3, h, Ratio(1, 8));
        case PIXFMT_PACKED422_1:
        case PIXFMT_PACKED422_17:
            return Packed(2 * w, h, Ratio(4, 2));
        case PIXFMT_PACKED411:
            return Packed((2 * w * 3) >> 2, h, Ratio(6, 4));
        case PIXFMT_PACKED24_2:
        case PIXFMT_PACKED24_3:
            return Packed(3 * w, h, Ratio(3, 1));
        case PIXFMT_PACKED32_27:
        case PIXFMT_PACKED32_28:
        case PIXFMT_PACKED32_29:
        case PIXFMT_BGRA32:
            return Packed(4 * w, h, Ratio(4, 1));
        case PIXFMT_PACKED48_41:
        case PIXFMT_PACKED48_42:
            return Packed(6 * w, h, Ratio(6, 1));
        case PIXFMT_PACKED16_43:
        case PIXFMT_PACKED16_44:
        case PIXFMT_PACKED16_45:
        case PIXFMT_PACKED16_46:
        case PIXFMT_PACKED16_47:
        case PIXFMT_PACKED16_48:
        case PIXFMT_PACKED16_49:
        case PIXFMT_PACKED16_50:
            return Packed(2 * w, h, Ratio(2, 1));
        default:
            break;
    }
    LF_RAISE(ErrorFile::kVideoFrame,
             SystemBase::GStringFormat::Format("Bad pixel format:%d", format));
}

}  // namespace MediaCore
