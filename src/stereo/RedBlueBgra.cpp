// Red-blue on packed BGRA: blue and green from the right view, red from the left, alpha kept.
#include <algorithm>

#include "core/Simd.h"
#include "stereo/StereoRender.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore::stereo {

namespace {

using RgbRedBlueFn = void (*)(uint8_t* out, const uint8_t* left, const uint8_t* right,
                              size_t pixels);

void RgbRedBlueScalar(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
    for (size_t x = 0; x < pixels; ++x) {
        out[4 * x + 0] = right[4 * x + 0];
        out[4 * x + 1] = right[4 * x + 1];
        out[4 * x + 2] = left[4 * x + 2];
    }
}

#if LF_X86_64
// Each block loads all three before it stores, so an output that is one of the views still
// reads that view's own pixel, as the rule does.
void RgbRedBlueSse2(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
    const __m128i fromRight = _mm_set1_epi32(0x0000FFFF);
    const __m128i fromLeft = _mm_set1_epi32(0x00FF0000);
    const __m128i kept = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    size_t x = 0;
    for (; x + 4 <= pixels; x += 4) {
        const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(left + 4 * x));
        const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(right + 4 * x));
        auto* o = reinterpret_cast<__m128i*>(out + 4 * x);
        const __m128i mixed = _mm_or_si128(_mm_and_si128(r, fromRight), _mm_and_si128(l, fromLeft));
        _mm_storeu_si128(o, _mm_or_si128(mixed, _mm_and_si128(_mm_loadu_si128(o), kept)));
    }
    RgbRedBlueScalar(out + 4 * x, left + 4 * x, right + 4 * x, pixels - x);
}

LF_TARGET_AVX2 void RgbRedBlueAvx2(uint8_t* out, const uint8_t* left, const uint8_t* right,
                                   size_t pixels) {
    const __m256i fromRight = _mm256_set1_epi32(0x0000FFFF);
    const __m256i fromLeft = _mm256_set1_epi32(0x00FF0000);
    const __m256i kept = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    size_t x = 0;
    for (; x + 8 <= pixels; x += 8) {
        const __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(left + 4 * x));
        const __m256i r = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(right + 4 * x));
        auto* o = reinterpret_cast<__m256i*>(out + 4 * x);
        const __m256i mixed =
            _mm256_or_si256(_mm256_and_si256(r, fromRight), _mm256_and_si256(l, fromLeft));
        _mm256_storeu_si256(o,
                            _mm256_or_si256(mixed, _mm256_and_si256(_mm256_loadu_si256(o), kept)));
    }
    RgbRedBlueSse2(out + 4 * x, left + 4 * x, right + 4 * x, pixels - x);
}
#endif

constexpr Simd::Variant<RgbRedBlueFn> kRgbRedBlue[] = {
    {Simd::kScalar, RgbRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, RgbRedBlueSse2},
    {Simd::kAvx2, RgbRedBlueAvx2},
#endif
};
}  // namespace

void RgbRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    const Plane l = GetPackedPlane(left), r = GetPackedPlane(right), o = GetPackedPlane(out);
    unsigned width = 0, height = 0;
    left->GetDimension(&width, &height);
    if (width == 0 || height == 0) return;
    width = std::min({width, l.rowBytes / 4, r.rowBytes / 4, o.rowBytes / 4});
    height = std::min({height, RowsOf(l), RowsOf(r), RowsOf(o)});
    const RgbRedBlueFn mix = Simd::Pick(kRgbRedBlue);
    for (unsigned y = 0; y < height; ++y)
        mix(o.Row(y), l.Row(y), r.Row(y), width);
}

}  // namespace MediaCore::stereo
