// Mirror: every move is an exchange of two units (a byte of a planar plane, or a whole BGRA
// pixel), so the frame is turned in place without scratch memory.
#include "libfilter/MirrorEffect.h"

#include <algorithm>
#include <cstring>

#include "core/Described.h"
#include "core/Planes.h"
#include "core/Simd.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore {

namespace {

// Exchanges unit i of `front` with the i-th unit counted back from `backEnd`, for i < count.
// The two ranges never overlap.
using SwapReversedFn = void (*)(uint8_t* front, uint8_t* backEnd, size_t count);
// Exchanges two rows' first `bytes` bytes.
using SwapFn = void (*)(uint8_t* a, uint8_t* b, size_t bytes);

void SwapReversed8Scalar(uint8_t* front, uint8_t* backEnd, size_t count) {
    for (size_t i = 0; i < count; ++i)
        std::swap(front[i], *(backEnd - 1 - i));
}

void SwapReversed32Scalar(uint8_t* front, uint8_t* backEnd, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint8_t* a = front + 4 * i;
        uint8_t* b = backEnd - 4 * (i + 1);
        uint32_t va, vb;
        std::memcpy(&va, a, 4);
        std::memcpy(&vb, b, 4);
        std::memcpy(a, &vb, 4);
        std::memcpy(b, &va, 4);
    }
}

void SwapScalar(uint8_t* a, uint8_t* b, size_t bytes) {
    std::swap_ranges(a, a + bytes, b);
}

#if LF_X86_64
// SSE2 has no byte shuffle: reverse the dwords, then the words in each dword, then the bytes.
inline __m128i Reverse8Sse2(__m128i x) {
    x = _mm_shuffle_epi32(x, 0x1B);
    x = _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, 0xB1), 0xB1);
    return _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
}
inline __m128i Reverse32Sse2(__m128i x) {
    return _mm_shuffle_epi32(x, 0x1B);
}

// Takes a 16-byte block from each end, reverses both in register and stores them crosswise.
template <__m128i (*Reverse)(__m128i), SwapReversedFn Tail, size_t kUnit>
void SwapReversedSse2(uint8_t* front, uint8_t* backEnd, size_t count) {
    const size_t bytes = count * kUnit;
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        auto* f = reinterpret_cast<__m128i*>(front + i);
        auto* b = reinterpret_cast<__m128i*>(backEnd - i - 16);
        const __m128i x = _mm_loadu_si128(f);
        const __m128i y = _mm_loadu_si128(b);
        _mm_storeu_si128(f, Reverse(y));
        _mm_storeu_si128(b, Reverse(x));
    }
    Tail(front + i, backEnd - i, (bytes - i) / kUnit);
}

void SwapSse2(uint8_t* a, uint8_t* b, size_t bytes) {
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        auto* p = reinterpret_cast<__m128i*>(a + i);
        auto* q = reinterpret_cast<__m128i*>(b + i);
        const __m128i x = _mm_loadu_si128(p);
        _mm_storeu_si128(p, _mm_loadu_si128(q));
        _mm_storeu_si128(q, x);
    }
    SwapScalar(a + i, b + i, bytes - i);
}

// Reverses the bytes inside each 16-byte lane, then exchanges the lanes.
LF_TARGET_AVX2 inline __m256i Reverse8Avx2(__m256i x) {
    const __m256i lane = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15,
                                          14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(x, lane), 0x4E);
}
LF_TARGET_AVX2 inline __m256i Reverse32Avx2(__m256i x) {
    return _mm256_permutevar8x32_epi32(x, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}

template <__m256i (*Reverse)(__m256i), SwapReversedFn Tail, size_t kUnit>
LF_TARGET_AVX2 void SwapReversedAvx2(uint8_t* front, uint8_t* backEnd, size_t count) {
    const size_t bytes = count * kUnit;
    size_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        auto* f = reinterpret_cast<__m256i*>(front + i);
        auto* b = reinterpret_cast<__m256i*>(backEnd - i - 32);
        const __m256i x = _mm256_loadu_si256(f);
        const __m256i y = _mm256_loadu_si256(b);
        _mm256_storeu_si256(f, Reverse(y));
        _mm256_storeu_si256(b, Reverse(x));
    }
    _mm256_zeroupper();  // the SSE2 form finishes without the AVX-SSE switch penalty
    Tail(front + i, backEnd - i, (bytes - i) / kUnit);
}

LF_TARGET_AVX2 void SwapAvx2(uint8_t* a, uint8_t* b, size_t bytes) {
    size_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        auto* p = reinterpret_cast<__m256i*>(a + i);
        auto* q = reinterpret_cast<__m256i*>(b + i);
        const __m256i x = _mm256_loadu_si256(p);
        _mm256_storeu_si256(p, _mm256_loadu_si256(q));
        _mm256_storeu_si256(q, x);
    }
    _mm256_zeroupper();
    SwapSse2(a + i, b + i, bytes - i);
}
#endif

constexpr Simd::Variant<SwapReversedFn> kSwapReversed8[] = {
    {Simd::kScalar, SwapReversed8Scalar},
#if LF_X86_64
    {Simd::kSse2, SwapReversedSse2<Reverse8Sse2, SwapReversed8Scalar, 1>},
    {Simd::kAvx2,
     SwapReversedAvx2<Reverse8Avx2, SwapReversedSse2<Reverse8Sse2, SwapReversed8Scalar, 1>, 1>},
#endif
};

constexpr Simd::Variant<SwapReversedFn> kSwapReversed32[] = {
    {Simd::kScalar, SwapReversed32Scalar},
#if LF_X86_64
    {Simd::kSse2, SwapReversedSse2<Reverse32Sse2, SwapReversed32Scalar, 4>},
    {Simd::kAvx2,
     SwapReversedAvx2<Reverse32Avx2, SwapReversedSse2<Reverse32Sse2, SwapReversed32Scalar, 4>, 4>},
#endif
};

constexpr Simd::Variant<SwapFn> kSwapRows[] = {
    {Simd::kScalar, SwapScalar},
#if LF_X86_64
    {Simd::kSse2, SwapSse2},
    {Simd::kAvx2, SwapAvx2},
#endif
};

// Turns one plane seen as rows of n units of `unit` bytes. Units past the last whole one and
// the pitch padding stay where they are.
void MirrorPlane(const Plane& p, size_t unit, bool horizontal, bool vertical) {
    if (p.Empty()) return;
    const SwapReversedFn swapReversed = Simd::Pick(unit == 1 ? kSwapReversed8 : kSwapReversed32);
    const size_t n = p.rowBytes / unit;
    const size_t hn = n / 2, on = n % 2;
    const unsigned hh = p.rows / 2, oh = p.rows % 2;
    if (horizontal && n < 2) return;
    if (vertical && (p.rows < 2 || n < 1)) return;
    if (horizontal && vertical) {
        // Each unit of a row pair goes to its point reflection; the middle column (odd n)
        // and the middle row (odd height) are not visited at all.
        for (unsigned i = 0; i < hh; ++i) {
            uint8_t* top = p.Row(hh - 1 - i);
            uint8_t* bottom = p.Row(hh + oh + i);
            swapReversed(top, bottom + n * unit, hn);
            swapReversed(top + (hn + on) * unit, bottom + hn * unit, hn);
        }
    } else if (horizontal) {
        for (unsigned y = 0; y < p.rows; ++y)
            swapReversed(p.Row(y), p.Row(y) + n * unit, hn);
    } else if (vertical) {
        const SwapFn swapRows = Simd::Pick(kSwapRows);
        for (unsigned i = 0; i < hh; ++i)
            swapRows(p.Row(hh - 1 - i), p.Row(hh + oh + i), n * unit);
    }
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kMirrorProperties[] = {
    {"mirror", PROPERTY_INT32, "0", PropertyKind::Flag, 0, 1, RangeBound::Fixed,
     "reverse the columns (left and right)"},
    {"vertical", PROPERTY_INT32, "0", PropertyKind::Flag, 0, 1, RangeBound::Fixed,
     "reverse the rows (top and bottom)"},
};
constexpr ShowcaseSetting kMirrorShowcase[] = {{"mirror", 1, RangeBound::Fixed}};
constexpr EffectDescription kMirror = {
    AVPROCESSOR_REVERSE,
    "mirror",
    "reverses the columns (mirror=1), the rows (vertical=1) or both",
    EffectMaking::Factory,
    "MediaCore::CReverseVideoImageEffect",
    false,
    MakeEffect<CReverseVideoImageEffect>,
    kMirrorProperties,
    CountOf(kMirrorProperties),
    kMirrorShowcase,
    CountOf(kMirrorShowcase)};
LF_DESCRIBE_EFFECT(kMirror);

CReverseVideoImageEffect::CReverseVideoImageEffect() : CImageEffectBase(AVPROCESSOR_REVERSE) {}

int CReverseVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "mirror") {
        mirror_ = node.parsed.i32;
    } else if (name == "vertical") {
        vertical_ = node.parsed.i32;
    }
    return result;
}

bool CReverseVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    const bool horizontal = mirror_ == 1;
    const bool vertical = vertical_ == 1;
    if (!horizontal && !vertical) return true;
    const int format = frame->GetPixelFormat();
    switch (FamilyOf(format)) {
        case FormatFamily::PackedBgra:
            MirrorPlane(GetPackedPlane(frame), 4, horizontal, vertical);
            break;
        case FormatFamily::PlanarYuv:
            for (unsigned i = 0; i < PlanarPlaneCount(format); ++i)
                MirrorPlane(GetPlane(frame, i), 1, horizontal, vertical);
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

}  // namespace MediaCore
