// Emboss: every sample replaced by its difference from the one above, scaled and centred.
#include "libfilter/EmbossEffect.h"

#include "core/LoopForms.h"
#include "core/Planes.h"
#include "libfilter/Siblings.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore {

namespace {

// Row kernels: rewrite `row` from itself and `above` (still unembossed) over `bytes` bytes.
using PixelRowFn = void (*)(uint8_t* row, const uint8_t* above, size_t bytes, int level);
using ByteRowFn = void (*)(uint8_t* row, const uint8_t* above, size_t bytes, uint32_t level);

// Packed rule: d = (c - a) x level, taken in 64 bits so no level overflows; below -128 gives 0,
// above 127 gives 255, else d + 128. Alpha (byte 3) is kept.
LF_SCALAR_RULE void EmbossPixelsRule(uint8_t* row, const uint8_t* above, size_t bytes, int level) {
    for (size_t j = 0; j < bytes; ++j) {
        if ((j & 3) == 3) continue;
        const int64_t d = int64_t{row[j] - above[j]} * level;
        row[j] = static_cast<uint8_t>(d < -128 ? 0 : d > 127 ? 255 : d + 128);
    }
}

// Plane rule: v = (c - a) x level + 128 in wrapping unsigned 32-bit arithmetic, 255 from 255 up.
// A negative product wraps to a large number and so gives 255, unlike the packed rule's 0.
LF_SCALAR_RULE void EmbossBytesRule(uint8_t* row, const uint8_t* above, size_t bytes,
                                    uint32_t level) {
    for (size_t j = 0; j < bytes; ++j) {
        const uint32_t v = static_cast<uint32_t>(row[j] - above[j]) * level + 128u;
        row[j] = v >= 255u ? 255 : static_cast<uint8_t>(v);
    }
}

// The vector forms multiply 16-bit lanes. Both rules only ask on which side of -128, 0, 127 and
// 255 around the centre a product falls, and a nonzero product with a factor beyond +-129 falls
// on the same side as the product with that factor cut to +-129 (both exceed 128 in size with
// the same sign). So difference and level are clamped to +-129 and the product fits 16 bits.
constexpr int kReach = 129;

constexpr int16_t ReducedLevel(int64_t level) {
    return static_cast<int16_t>(level < -kReach ? -kReach : level > kReach ? kReach : level);
}

// The plane rule equals the clamped one only while the true product cannot wrap 32 bits
// (|level| below 2^23 read as signed); larger levels take the rule itself.
constexpr bool PlaneLevelReduces(uint32_t level) {
    constexpr int32_t kNoWrapLevel = 1 << 23;
    const auto l = static_cast<int32_t>(level);
    return l > -kNoWrapLevel && l < kNoWrapLevel;
}

// The clamped forms one byte at a time, for the tails the vector blocks leave.
template <bool kPacked>
void EmbossReducedTail(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level) {
    for (size_t j = 0; j < bytes; ++j) {
        const int d = row[j] - above[j];
        const int t = (d < -kReach ? -kReach : d > kReach ? kReach : d) * level;
        if (kPacked) {
            if ((j & 3) != 3)
                row[j] = static_cast<uint8_t>((t < -128 ? -128 : t > 127 ? 127 : t) + 128);
        } else {
            row[j] = t + 128 < 0 || t + 128 > 255 ? 255 : static_cast<uint8_t>(t + 128);
        }
    }
}

#if LF_X86_64
// Each block: widen to 16 bits, clamp the difference, multiply by the clamped level, then
// packed: saturate to -128 .. 127, add 128 and keep alpha; plane: add 128 and saturate to
// 0 .. 255, with negative results forced to 255.
inline __m128i ClampedProduct(__m128i c, __m128i a, __m128i level) {
    const __m128i d = _mm_sub_epi16(c, a);
    const __m128i clamped =
        _mm_max_epi16(_mm_min_epi16(d, _mm_set1_epi16(kReach)), _mm_set1_epi16(-kReach));
    return _mm_mullo_epi16(clamped, level);
}

template <bool kPacked>
size_t EmbossBlocksSse2(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level) {
    const __m128i zero = _mm_setzero_si128(), l = _mm_set1_epi16(level);
    size_t j = 0;
    for (; j + 16 <= bytes; j += 16) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + j));
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + j));
        const __m128i lo =
            ClampedProduct(_mm_unpacklo_epi8(c, zero), _mm_unpacklo_epi8(a, zero), l);
        const __m128i hi =
            ClampedProduct(_mm_unpackhi_epi8(c, zero), _mm_unpackhi_epi8(a, zero), l);
        __m128i out;
        if constexpr (kPacked) {
            const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
            out = _mm_xor_si128(_mm_packs_epi16(lo, hi), _mm_set1_epi8(-128));
            out = _mm_or_si128(_mm_andnot_si128(alpha, out), _mm_and_si128(alpha, c));
        } else {
            const __m128i centre = _mm_set1_epi16(128);
            const __m128i tl = _mm_add_epi16(lo, centre), th = _mm_add_epi16(hi, centre);
            out =
                _mm_or_si128(_mm_packus_epi16(tl, th),
                             _mm_packs_epi16(_mm_cmplt_epi16(tl, zero), _mm_cmplt_epi16(th, zero)));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + j), out);
    }
    return j;
}

LF_TARGET_AVX2 inline __m256i ClampedProduct(__m256i c, __m256i a, __m256i level) {
    const __m256i d = _mm256_sub_epi16(c, a);
    const __m256i clamped = _mm256_max_epi16(_mm256_min_epi16(d, _mm256_set1_epi16(kReach)),
                                             _mm256_set1_epi16(-kReach));
    return _mm256_mullo_epi16(clamped, level);
}

// Unpacking and packing both work within 128-bit lanes, so bytes come back in order.
template <bool kPacked>
LF_TARGET_AVX2 size_t EmbossBlocksAvx2(uint8_t* row, const uint8_t* above, size_t bytes,
                                       int16_t level) {
    const __m256i zero = _mm256_setzero_si256(), l = _mm256_set1_epi16(level);
    size_t j = 0;
    for (; j + 32 <= bytes; j += 32) {
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + j));
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(above + j));
        const __m256i lo =
            ClampedProduct(_mm256_unpacklo_epi8(c, zero), _mm256_unpacklo_epi8(a, zero), l);
        const __m256i hi =
            ClampedProduct(_mm256_unpackhi_epi8(c, zero), _mm256_unpackhi_epi8(a, zero), l);
        __m256i out;
        if constexpr (kPacked) {
            const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
            out = _mm256_xor_si256(_mm256_packs_epi16(lo, hi), _mm256_set1_epi8(-128));
            out = _mm256_blendv_epi8(out, c, alpha);
        } else {
            const __m256i centre = _mm256_set1_epi16(128);
            const __m256i tl = _mm256_add_epi16(lo, centre), th = _mm256_add_epi16(hi, centre);
            out = _mm256_or_si256(
                _mm256_packus_epi16(tl, th),
                _mm256_packs_epi16(_mm256_cmpgt_epi16(zero, tl), _mm256_cmpgt_epi16(zero, th)));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(row + j), out);
    }
    return j;
}
#endif

using BlocksFn = size_t (*)(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level);

// A vector form: whole blocks, then the clamped rule for the tail. Blocks are a multiple of 4
// bytes, so the tail starts on a pixel and alpha stays in phase.
template <BlocksFn kBlocks>
void EmbossPixelsVector(uint8_t* row, const uint8_t* above, size_t bytes, int level) {
    const int16_t reduced = ReducedLevel(level);
    const size_t done = kBlocks(row, above, bytes, reduced);
    EmbossReducedTail<true>(row + done, above + done, bytes - done, reduced);
}

template <BlocksFn kBlocks>
void EmbossBytesVector(uint8_t* row, const uint8_t* above, size_t bytes, uint32_t level) {
    if (!PlaneLevelReduces(level)) return EmbossBytesRule(row, above, bytes, level);
    const int16_t reduced = ReducedLevel(static_cast<int32_t>(level));
    const size_t done = kBlocks(row, above, bytes, reduced);
    EmbossReducedTail<false>(row + done, above + done, bytes - done, reduced);
}

constexpr Simd::Variant<PixelRowFn> kPixelRow[] = {
    {Simd::kScalar, EmbossPixelsRule},
#if LF_X86_64
    {Simd::kSse2, EmbossPixelsVector<EmbossBlocksSse2<true>>},
    {Simd::kAvx2, EmbossPixelsVector<EmbossBlocksAvx2<true>>},
#endif
};

constexpr Simd::Variant<ByteRowFn> kByteRow[] = {
    {Simd::kScalar, EmbossBytesRule},
#if LF_X86_64
    {Simd::kSse2, EmbossBytesVector<EmbossBlocksSse2<false>>},
    {Simd::kAvx2, EmbossBytesVector<EmbossBlocksAvx2<false>>},
#endif
};

// Bottom-up, each row from the row above while that one is still unchanged, so no scratch is
// needed; row 0 is never rewritten. Nothing happens for a single row or an empty width.
template <class Level>
void EmbossRowsUpward(uint8_t* data, size_t bytes, unsigned pitch, unsigned height, Level level,
                      void (*row)(uint8_t*, const uint8_t*, size_t, Level)) {
    if (data == nullptr || bytes == 0 || height < 2) return;
    for (unsigned y = height - 1; y > 0; --y)
        row(data + size_t{y} * pitch, data + size_t{y - 1} * pitch, bytes, level);
}

void EmbossRgba32(unsigned int* pixels, int width, unsigned int pitch, unsigned int height,
                  int level) {
    if (width <= 0) return;
    EmbossRowsUpward(reinterpret_cast<uint8_t*>(pixels), size_t(width) * 4, pitch, height, level,
                     Simd::Pick(kPixelRow));
}

void EmbossComponent(unsigned char* plane, int width, unsigned int pitch, unsigned int height,
                     unsigned int level) {
    if (width <= 0) return;
    EmbossRowsUpward(plane, size_t(width), pitch, height, level, Simd::Pick(kByteRow));
}

// A plane without memory or rows is never handed to a kernel.
bool Reachable(const Plane& plane) {
    return plane.data != nullptr && plane.rows != 0;
}

}  // namespace

EmbossRgba32Kernel emboss_effect_rgba32 = EmbossRgba32;
EmbossComponentKernel emboss_effect_component = EmbossComponent;

CEmbossVideoImageEffect::CEmbossVideoImageEffect() : CImageEffectBase(AVPROCESSOR_EMBOSS) {
    libcore_GetCpuCapability();  // asked as the engine expects; the kernels pick their own forms
    AddProperty("emboss_level", PropertyNode::Int32(5));
}

int CEmbossVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "emboss_level") level_ = static_cast<uint32_t>(node.parsed.i32);
    return result;
}

bool CEmbossVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra: {
            const Plane plane = GetPackedPlane(frame);
            if (Reachable(plane)) {
                emboss_effect_rgba32(reinterpret_cast<unsigned int*>(plane.data),
                                     static_cast<int>(plane.rowBytes / 4), plane.pitch, plane.rows,
                                     static_cast<int>(level_));
            }
            break;
        }
        case FormatFamily::PlanarYuv:
            // A fourth plane, where there is one, is left as it is.
            for (unsigned i = 0; i < 3; ++i) {
                const Plane plane = GetPlane(frame, i);
                if (Reachable(plane)) {
                    emboss_effect_component(plane.data, static_cast<int>(plane.rowBytes),
                                            plane.pitch, plane.rows, level_);
                }
            }
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

}  // namespace MediaCore
