// Pixel format numbers and the plane layout each one has at a given size.
#pragma once

namespace MediaCore {

enum PixelFormat : int {
    PIXFMT_YUV420P = 0,
    PIXFMT_PACKED422_1 = 1,
    PIXFMT_PACKED24_2 = 2,
    PIXFMT_PACKED24_3 = 3,
    PIXFMT_YUV422P = 4,
    PIXFMT_YUV444P = 5,
    PIXFMT_YUV410P = 6,
    PIXFMT_YUV411P = 7,
    PIXFMT_GRAY8 = 8,
    PIXFMT_MONO1_9 = 9,
    PIXFMT_MONO1_10 = 10,
    PIXFMT_TWOPLANE_11 = 11,
    PIXFMT_YUV420P_12 = 12,
    PIXFMT_YUV422P_13 = 13,
    PIXFMT_YUV444P_14 = 14,
    PIXFMT_PACKED422_17 = 17,
    PIXFMT_PACKED411 = 18,
    PIXFMT_YUV420P_25 = 25,
    PIXFMT_YUV420P_26 = 26,
    PIXFMT_PACKED32_27 = 27,
    PIXFMT_PACKED32_28 = 28,
    PIXFMT_PACKED32_29 = 29,
    PIXFMT_BGRA32 = 30,
    PIXFMT_YUV440P = 33,
    PIXFMT_YUVA420P = 35,
    PIXFMT_PACKED48_41 = 41,
    PIXFMT_PACKED48_42 = 42,
    PIXFMT_PACKED16_43 = 43,
    PIXFMT_PACKED16_44 = 44,
    PIXFMT_PACKED16_45 = 45,
    PIXFMT_PACKED16_46 = 46,
    PIXFMT_PACKED16_47 = 47,
    PIXFMT_PACKED16_48 = 48,
    PIXFMT_PACKED16_49 = 49,
    PIXFMT_PACKED16_50 = 50,
    PIXFMT_YUV420P_72 = 72,
    PIXFMT_YUV422P_74 = 74,
    PIXFMT_PLANAR4_FULL = 90,
};

constexpr unsigned kMaxPlanes = 4;

// Geometry of one plane: row bytes, rows, crop ratio (numerator low 16 bits, denominator
// high 16 bits, bytes per pixel) and vertical subsampling divisor.
struct PlaneLayout {
    unsigned rowBytes = 0;
    unsigned rows = 0;
    unsigned cropRatio = 0;
    unsigned divisor = 0;
};

struct PixelFormatLayout {
    bool packed = true;
    unsigned planeCount = 1;
    PlaneLayout planes[kMaxPlanes];
};

// The plane layout of `format` at width x height; raises "Bad pixel format:%d" for a number
// that names no format.
PixelFormatLayout GetPixelFormatLayout(int format, unsigned width, unsigned height);

}  // namespace MediaCore
