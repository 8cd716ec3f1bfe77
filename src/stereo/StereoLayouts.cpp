// Side by side and top-bottom: each view's every second column or row into one half of the
// output frame.
#include <algorithm>
#include <cstring>

#include "core/SimdOps.h"
#include "stereo/StereoRender.h"

namespace MediaCore::stereo {

namespace {

// Side by side: every second element of a row. The scalar rule walks forward, so it also holds
// when the destination is the source row itself (reads stay at or ahead of writes).

using DecimateFn = void (*)(uint8_t* dst, const uint8_t* src, size_t count);

void DecimateBytesScalar(uint8_t* dst, const uint8_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = src[2 * i];
}

void DecimatePixelsScalar(uint8_t* dst, const uint8_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint32_t pixel;
        std::memcpy(&pixel, src + 8 * i, 4);
        std::memcpy(dst + 4 * i, &pixel, 4);
    }
}

#if LF_X86_64
// The vector forms stop one element short of the end, so a block never reads the byte after
// the last element it needs (which an odd row does not have), and leave the rest to the rule.
// Elements are bytes (Unit 1) or BGRA pixels (Unit 4).
template <unsigned Unit>
struct DecimateVectors {
    template <class I>
    static void Run(uint8_t* dst, const uint8_t* src, size_t count) {
        constexpr size_t kStep = I::kBytes / Unit;
        size_t i = 0;
        for (; i + kStep < count; i += kStep) {
            typename I::V a, b;
            I::Load(a, src + 2 * i * Unit);
            I::Load(b, src + 2 * i * Unit + I::kBytes);
            if constexpr (Unit == 1) {
                I::EvenBytes(a, a, b);
            } else {
                I::EvenLanes32(a, a, b);
            }
            I::Store(dst + i * Unit, a);
        }
        (Unit == 1 ? DecimateBytesScalar : DecimatePixelsScalar)(dst + i * Unit, src + 2 * i * Unit,
                                                                 count - i);
    }
};
#endif

constexpr Simd::Variant<DecimateFn> kDecimateBytes[] = {
    {Simd::kScalar, DecimateBytesScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<DecimateVectors<1>>},
    {Simd::kAvx2, Simd::RunAvx2<DecimateVectors<1>>},
#endif
};

constexpr Simd::Variant<DecimateFn> kDecimatePixels[] = {
    {Simd::kScalar, DecimatePixelsScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<DecimateVectors<4>>},
    {Simd::kAvx2, Simd::RunAvx2<DecimateVectors<4>>},
#endif
};

// Writes `count` elements of `unit` bytes taken from every second element of `src`. A source
// that starts before the destination and reaches into it is being rewritten as it is read (the
// right view is the output frame itself); only the element-by-element rule gives that result.
void Decimate(uint8_t* dst, const uint8_t* src, size_t count, unsigned unit) {
    if (count == 0) return;
    const bool rewritten = src < dst && src + 2 * count * unit > dst;
    if (unit == 4) {
        (rewritten ? DecimatePixelsScalar : Simd::Pick(kDecimatePixels))(dst, src, count);
    } else {
        (rewritten ? DecimateBytesScalar : Simd::Pick(kDecimateBytes))(dst, src, count);
    }
}

// Every second element of each row of `left`, then of `right`, into the halves of `out`'s row.
// An odd row gets one element more than it holds, which lands in its padding when it has some.
void SideBySidePlane(const Plane& out, const Plane& left, const Plane& right, unsigned unit) {
    const unsigned rows = std::min({RowsOf(out), RowsOf(left), RowsOf(right)});
    const unsigned elements = out.rowBytes / unit;
    const unsigned half = (elements + 1) / 2;
    const unsigned leftCount = std::min(half, (left.rowBytes / unit + 1) / 2);
    const unsigned room = out.pitch / unit - half;
    const unsigned rightCount = std::min({half, (right.rowBytes / unit + 1) / 2, room});
    for (unsigned r = 0; r < rows; ++r) {
        Decimate(out.Row(r), left.Row(r), leftCount, unit);
        Decimate(out.Row(r) + size_t{half} * unit, right.Row(r), rightCount, unit);
    }
}

// Even rows of `left` fill the top half of `out`, even rows of `right` the bottom half (one row
// more for an odd height).
void TopBottomPlane(const Plane& out, const Plane& left, const Plane& right) {
    if (out.Empty()) return;
    const unsigned half = out.rows >> 1;
    auto copyRow = [&](const Plane& from, unsigned fromRow, unsigned toRow) {
        const unsigned bytes = std::min(out.rowBytes, from.rowBytes);
        if (from.Row(fromRow) != out.Row(toRow))
            std::memmove(out.Row(toRow), from.Row(fromRow), bytes);
    };
    for (unsigned k = 0; k < half && 2 * k < RowsOf(left); ++k)
        copyRow(left, 2 * k, k);
    for (unsigned k = 0; k < out.rows - half && 2 * k < RowsOf(right); ++k)
        copyRow(right, 2 * k, half + k);
}

}  // namespace

void RenderYuv(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    // A fourth plane, where the format has one, is left as it is.
    for (unsigned i = 0; i < 3; ++i) {
        const Plane o = GetPlane(out, i), l = GetPlane(left, i), r = GetPlane(right, i);
        if (mode == TYPE3D_SIDE_BY_SIDE) SideBySidePlane(o, l, r, 1);
        if (mode == TYPE3D_TOP_BOTTOM) TopBottomPlane(o, l, r);
    }
}

void RenderBgra(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    if (mode == TYPE3D_SIDE_BY_SIDE) {
        SideBySidePlane(GetPackedPlane(out), GetPackedPlane(left), GetPackedPlane(right), 4);
    } else if (mode == TYPE3D_TOP_BOTTOM) {
        TopBottomPlane(GetPlane(out, 0), GetPlane(left, 0), GetPlane(right, 0));
    }
}

}  // namespace MediaCore::stereo
