// Side by side and top-bottom: each view's every second column or row into one half of the
// output frame.
#include <algorithm>
#include <cstring>

#include "core/Simd.h"
#include "stereo/StereoRender.h"

#if LF_X86_64
#include <immintrin.h>
#endif

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
void DecimateBytesSse2(uint8_t* dst, const uint8_t* src, size_t count) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    size_t i = 0;
    for (; i + 16 < count; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i + 16));
        const __m128i packed = _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), packed);
    }
    DecimateBytesScalar(dst + i, src + 2 * i, count - i);
}

void DecimatePixelsSse2(uint8_t* dst, const uint8_t* src, size_t count) {
    size_t i = 0;
    for (; i + 4 < count; i += 4) {
        const __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(src + 8 * i));
        const __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(src + 8 * i + 16));
        _mm_storeu_ps(reinterpret_cast<float*>(dst + 4 * i), _mm_shuffle_ps(a, b, 0x88));
    }
    DecimatePixelsScalar(dst + 4 * i, src + 8 * i, count - i);
}

LF_TARGET_AVX2 void DecimateBytesAvx2(uint8_t* dst, const uint8_t* src, size_t count) {
    const __m256i low = _mm256_set1_epi16(0x00FF);
    size_t i = 0;
    for (; i + 32 < count; i += 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i + 32));
        const __m256i packed =
            _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
    DecimateBytesSse2(dst + i, src + 2 * i, count - i);
}

LF_TARGET_AVX2 void DecimatePixelsAvx2(uint8_t* dst, const uint8_t* src, size_t count) {
    size_t i = 0;
    for (; i + 8 < count; i += 8) {
        const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(src + 8 * i));
        const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(src + 8 * i + 32));
        const __m256d picked = _mm256_castps_pd(_mm256_shuffle_ps(a, b, 0x88));
        _mm256_storeu_ps(reinterpret_cast<float*>(dst + 4 * i),
                         _mm256_castpd_ps(_mm256_permute4x64_pd(picked, 0xD8)));
    }
    DecimatePixelsSse2(dst + 4 * i, src + 8 * i, count - i);
}
#endif

constexpr Simd::Variant<DecimateFn> kDecimateBytes[] = {
    {Simd::kScalar, DecimateBytesScalar},
#if LF_X86_64
    {Simd::kSse2, DecimateBytesSse2},
    {Simd::kAvx2, DecimateBytesAvx2},
#endif
};

constexpr Simd::Variant<DecimateFn> kDecimatePixels[] = {
    {Simd::kScalar, DecimatePixelsScalar},
#if LF_X86_64
    {Simd::kSse2, DecimatePixelsSse2},
    {Simd::kAvx2, DecimatePixelsAvx2},
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
