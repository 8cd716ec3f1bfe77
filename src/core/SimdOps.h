// One set of names for the integer vector operations of every x86-64 level, so that a kernel's
// vector form is written once, as a template over the level, and built for each level.
//
// A kernel's vector form is a member template `K::Run<I>(args...)` calling `I::Op(...)`, with I
// one of Sse2, Avx2 and Avx512; its Variant entries are RunSse2<K>, RunAvx2<K> and RunAvx512<K>.
// Their target and `flatten` attributes inline the form and its operations into them, compiled
// for that level. Operations write their result to their first argument and take vectors by
// reference, because a vector passed by value between functions built for different levels
// would change the calling convention.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/Simd.h"

#if LF_X86_64
#include <immintrin.h>

#define LF_KERNEL_SSE2 __attribute__((flatten))
#define LF_KERNEL_AVX2 __attribute__((target("avx2"), flatten))
#define LF_KERNEL_AVX512 __attribute__((target("avx512f,avx512bw"), flatten))

namespace MediaCore::Simd {

// P is the intrinsic prefix (_mm_, _mm256_, _mm512_) and SI the whole-register suffix.
// Lanes are named by width: 8, 16, 32 or 64 bits; U marks unsigned.
// clang-format off
#define LF_VECTOR_OPS(ATTR, P, SI)                                                                \
    ATTR static void Load(V& r, const void* p) { r = P##loadu_##SI(static_cast<const V*>(p)); }  \
    ATTR static void Store(void* p, const V& a) { P##storeu_##SI(static_cast<V*>(p), a); }       \
    ATTR static void Zero(V& r) { r = P##setzero_##SI(); }                                      \
    ATTR static void Splat16(V& r, int v) { r = P##set1_epi16(static_cast<int16_t>(v)); }       \
    ATTR static void Splat32(V& r, uint32_t v) { r = P##set1_epi32(static_cast<int>(v)); }      \
    ATTR static void And(V& r, const V& a, const V& b) { r = P##and_##SI(a, b); }               \
    ATTR static void Or(V& r, const V& a, const V& b) { r = P##or_##SI(a, b); }                 \
    ATTR static void Xor(V& r, const V& a, const V& b) { r = P##xor_##SI(a, b); }               \
    /* ~a & b */                                                                                 \
    ATTR static void AndNot(V& r, const V& a, const V& b) { r = P##andnot_##SI(a, b); }         \
    ATTR static void Add16(V& r, const V& a, const V& b) { r = P##add_epi16(a, b); }            \
    ATTR static void Sub16(V& r, const V& a, const V& b) { r = P##sub_epi16(a, b); }            \
    ATTR static void Add32(V& r, const V& a, const V& b) { r = P##add_epi32(a, b); }            \
    ATTR static void Sub32(V& r, const V& a, const V& b) { r = P##sub_epi32(a, b); }            \
    ATTR static void Max16(V& r, const V& a, const V& b) { r = P##max_epi16(a, b); }            \
    ATTR static void Min16(V& r, const V& a, const V& b) { r = P##min_epi16(a, b); }            \
    /* Unsigned (a + b + 1) >> 1 of 16-bit lanes, without overflow. */                          \
    ATTR static void AverageU16(V& r, const V& a, const V& b) { r = P##avg_epu16(a, b); }       \
    /* High 16 bits of each signed or unsigned 16 x 16-bit product; low 16 bits. */             \
    ATTR static void MulHi16(V& r, const V& a, const V& b) { r = P##mulhi_epi16(a, b); }        \
    ATTR static void MulHiU16(V& r, const V& a, const V& b) { r = P##mulhi_epu16(a, b); }       \
    ATTR static void MulLo16(V& r, const V& a, const V& b) { r = P##mullo_epi16(a, b); }        \
    /* Each 32-bit lane: a0 * b0 + a1 * b1 of its two signed 16-bit halves. */                   \
    ATTR static void MulAddPairs16(V& r, const V& a, const V& b) { r = P##madd_epi16(a, b); }   \
    /* Each 64-bit lane: the sum of its eight bytes, in its low 16 bits. */                      \
    ATTR static void SumBytes64(V& r, const V& a) { r = P##sad_epu8(a, P##setzero_##SI()); }    \
    /* Bytes of a and b interleaved into 16-bit lanes (a low), within each 128-bit block. */    \
    ATTR static void UnpackLo8(V& r, const V& a, const V& b) { r = P##unpacklo_epi8(a, b); }    \
    ATTR static void UnpackHi8(V& r, const V& a, const V& b) { r = P##unpackhi_epi8(a, b); }    \
    ATTR static void UnpackLo32(V& r, const V& a, const V& b) { r = P##unpacklo_epi32(a, b); }  \
    /* Signed 16-bit lanes of a then b, clamped to 0..255, within each 128-bit block. */         \
    ATTR static void PackU8(V& r, const V& a, const V& b) { r = P##packus_epi16(a, b); }        \
    /* The same, clamped to -128..127. */                                                        \
    ATTR static void PackS8(V& r, const V& a, const V& b) { r = P##packs_epi16(a, b); }         \
    template <int n> ATTR static void ShiftLeft16(V& r, const V& a) { r = P##slli_epi16(a, n); } \
    template <int n> ATTR static void ShiftLeft32(V& r, const V& a) { r = P##slli_epi32(a, n); } \
    template <int n> ATTR static void ShiftRight16(V& r, const V& a) { r = P##srli_epi16(a, n); } \
    template <int n> ATTR static void ShiftRight32(V& r, const V& a) { r = P##srli_epi32(a, n); } \
    /* Signed 16-bit lanes shifted right, copying the sign bit in. */                            \
    template <int n> ATTR static void ShiftRightSigned16(V& r, const V& a) { r = P##srai_epi16(a, n); } \
    /* Lanes 0..3 of each 64-bit lane take its lanes i0..i3 (16-bit lanes). */                   \
    template <int i0, int i1, int i2, int i3>                                                    \
    ATTR static void Shuffle16In64(V& r, const V& a) {                                           \
        constexpr int order = i0 | i1 << 2 | i2 << 4 | i3 << 6;                                  \
        r = P##shufflehi_epi16(P##shufflelo_epi16(a, order), order);                             \
    }

// Levels with byte shuffles (AVX2 and up) also have ShuffleBytes, where byte i of each 128-bit
// block of a takes byte b[i] & 15 of the block, or 0 where b[i] has its top bit set, and
// MulAddBytes, where each 16-bit lane is a0 * b0 + a1 * b1 of its unsigned bytes of a and
// signed bytes of b.
#define LF_BYTE_SHUFFLE_OPS(ATTR, P)                                                             \
    static constexpr bool kByteShuffle = true;                                                  \
    ATTR static void ShuffleBytes(V& r, const V& a, const V& b) { r = P##shuffle_epi8(a, b); }  \
    ATTR static void MulAddBytes(V& r, const V& a, const V& b) { r = P##maddubs_epi16(a, b); }

// Operations for gathers, fills and saturating sums. Each level also has FromBlocks, which
// builds a vector from the 128-bit blocks block(0), block(1), ... (block 0 lowest), and
// StoreLowHalves, which stores the low 8 bytes of each 128-bit block one after another.
#define LF_GATHER_OPS(ATTR, P, SI)                                                               \
    ATTR static void Splat8(V& r, uint8_t v) { r = P##set1_epi8(static_cast<char>(v)); }        \
    /* Bytes of a where mask is set, of b elsewhere. */                                          \
    ATTR static void Select(V& r, const V& mask, const V& a, const V& b) {                       \
        r = P##or_##SI(P##and_##SI(mask, a), P##andnot_##SI(mask, b));                           \
    }                                                                                            \
    /* Unsigned bytes a + b, clamped to 255. */                                                  \
    ATTR static void AddSaturateU8(V& r, const V& a, const V& b) { r = P##adds_epu8(a, b); }    \
    /* 64-bit lanes shifted left by n bits, n known at run time. */                              \
    ATTR static void ShiftLeft64By(V& r, const V& a, int n) {                                    \
        r = P##sll_epi64(a, _mm_cvtsi32_si128(n));                                               \
    }
// clang-format on

struct Sse2 {
    using V = __m128i;
    static constexpr size_t kBytes = 16;
    static constexpr bool kByteShuffle = false;
    LF_VECTOR_OPS(, _mm_, si128)
    LF_GATHER_OPS(, _mm_, si128)
    template <class Block>
    static void FromBlocks(V& r, Block&& block) {
        r = block(0);
    }
    static void StoreLowHalves(void* p, const V& a) { _mm_storel_epi64(static_cast<V*>(p), a); }
};

struct Avx2 {
    using V = __m256i;
    static constexpr size_t kBytes = 32;
    LF_VECTOR_OPS(LF_TARGET_AVX2, _mm256_, si256)
    LF_BYTE_SHUFFLE_OPS(LF_TARGET_AVX2, _mm256_)
    LF_GATHER_OPS(LF_TARGET_AVX2, _mm256_, si256)
    template <class Block>
    LF_TARGET_AVX2 static void FromBlocks(V& r, Block&& block) {
        r = _mm256_set_m128i(block(1), block(0));
    }
    LF_TARGET_AVX2 static void StoreLowHalves(void* p, const V& a) {
        _mm_storeu_si128(static_cast<__m128i*>(p),
                         _mm256_castsi256_si128(_mm256_permute4x64_epi64(a, 0x08)));
    }
};

// GCC 12's 512-bit shifts and unpacks start from a deliberately undefined register, which its
// uninitialised-use checks mistake for a fault.
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
struct Avx512 {
    using V = __m512i;
    static constexpr size_t kBytes = 64;
    LF_VECTOR_OPS(LF_TARGET_AVX512, _mm512_, si512)
    LF_BYTE_SHUFFLE_OPS(LF_TARGET_AVX512, _mm512_)
    LF_GATHER_OPS(LF_TARGET_AVX512, _mm512_, si512)
    template <class Block>
    LF_TARGET_AVX512 static void FromBlocks(V& r, Block&& block) {
        r = _mm512_inserti64x4(_mm512_zextsi256_si512(_mm256_set_m128i(block(1), block(0))),
                               _mm256_set_m128i(block(3), block(2)), 1);
    }
    LF_TARGET_AVX512 static void StoreLowHalves(void* p, const V& a) {
        const V even = _mm512_setr_epi64(0, 2, 4, 6, 0, 2, 4, 6);
        _mm256_storeu_si256(static_cast<__m256i*>(p),
                            _mm512_castsi512_si256(_mm512_permutexvar_epi64(even, a)));
    }
};
#if !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#undef LF_VECTOR_OPS
#undef LF_BYTE_SHUFFLE_OPS
#undef LF_GATHER_OPS

template <class K, class... Args>
LF_KERNEL_SSE2 void RunSse2(Args... args) {
    K::template Run<Sse2>(args...);
}
template <class K, class... Args>
LF_KERNEL_AVX2 void RunAvx2(Args... args) {
    K::template Run<Avx2>(args...);
}
template <class K, class... Args>
LF_KERNEL_AVX512 void RunAvx512(Args... args) {
    K::template Run<Avx512>(args...);
}

// A vector whose 16-bit lanes repeat `lanes`: one value per byte of a 4-byte pixel, for bytes
// widened to 16 bits with UnpackLo8 / UnpackHi8.
template <class I>
inline void SplatPixel16(typename I::V& r, const int16_t (&lanes)[4]) {
    auto pair = [](int16_t low, int16_t high) {
        return static_cast<uint16_t>(low) | uint32_t{static_cast<uint16_t>(high)} << 16;
    };
    typename I::V high;
    I::Splat32(r, pair(lanes[0], lanes[1]));
    I::Splat32(high, pair(lanes[2], lanes[3]));
    I::UnpackLo32(r, r, high);
}

// How far ahead of a kernel's in-place walk memory is asked for: kernels that do more than a
// few operations a vector otherwise wait on each new line, even within the processor's caches.
constexpr size_t kPrefetchAhead = 2048;

// Calls block(p) on each whole vector of the span from its start, then tail(p, bytes), the
// scalar rule, on the 0 to kBytes - 1 bytes left. Prefetches never fault, so asking past the
// span's end is harmless.
template <class I, class Block, class Tail>
inline void ForEachVector(uint8_t* p, size_t bytes, Block&& block, Tail&& tail) {
    size_t i = 0;
    for (; i + I::kBytes <= bytes; i += I::kBytes) {
        __builtin_prefetch(p + i + kPrefetchAhead, 1);
        block(p + i);
    }
    tail(p + i, bytes - i);
}

}  // namespace MediaCore::Simd

#endif
