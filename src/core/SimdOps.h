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
    /* Lanes of a and b interleaved (a first), within each 128-bit block. */                   \
    ATTR static void UnpackLo8(V& r, const V& a, const V& b) { r = P##unpacklo_epi8(a, b); }    \
    ATTR static void UnpackHi8(V& r, const V& a, const V& b) { r = P##unpackhi_epi8(a, b); }    \
    ATTR static void UnpackLo16(V& r, const V& a, const V& b) { r = P##unpacklo_epi16(a, b); }  \
    ATTR static void UnpackHi16(V& r, const V& a, const V& b) { r = P##unpackhi_epi16(a, b); }  \
    ATTR static void UnpackLo32(V& r, const V& a, const V& b) { r = P##unpacklo_epi32(a, b); }  \
    ATTR static void UnpackHi32(V& r, const V& a, const V& b) { r = P##unpackhi_epi32(a, b); }  \
    ATTR static void UnpackLo64(V& r, const V& a, const V& b) { r = P##unpacklo_epi64(a, b); }  \
    ATTR static void UnpackHi64(V& r, const V& a, const V& b) { r = P##unpackhi_epi64(a, b); }  \
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
    ATTR static void Splat8(V& r, int v) { r = P##set1_epi8(static_cast<char>(v)); }           \
    ATTR static void MaxU8(V& r, const V& a, const V& b) { r = P##max_epu8(a, b); }              \
    ATTR static void MinU8(V& r, const V& a, const V& b) { r = P##min_epu8(a, b); }              \
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
// Comparisons answer all ones in each lane where they hold, else zero: bytes equal, or signed
// 32-bit lanes a > b. (AVX-512 compares into masks, so its forms widen the mask.)
#define LF_COMPARE_OPS(ATTR, P)                                                                  \
    ATTR static void CmpEq8(V& r, const V& a, const V& b) { r = P##cmpeq_epi8(a, b); }          \
    ATTR static void CmpGt32(V& r, const V& a, const V& b) { r = P##cmpgt_epi32(a, b); }

// Operations for gathers, fills and saturating sums. Each level also has FromBlocks, which
// builds a vector from the 128-bit blocks block(0), block(1), ... (block 0 lowest), and
// StoreLowHalves, which stores the low 8 bytes of each 128-bit block one after another.
#define LF_GATHER_OPS(ATTR, P, SI)                                                               \
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
    // Half a vector of bytes from p, each byte doubled (a 2:1 chroma row under its luma).
    static void LoadDoubledBytes(V& r, const void* p) {
        const V half = _mm_loadl_epi64(static_cast<const V*>(p));
        r = _mm_unpacklo_epi8(half, half);
    }
    // The even bytes (or 32-bit lanes) of a, then those of b, in order.
    static void EvenBytes(V& r, const V& a, const V& b) {
        const V low = _mm_set1_epi16(0x00FF);
        r = _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
    }
    static void EvenLanes32(V& r, const V& a, const V& b) {
        r = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0x88));
    }
    // The bytes (or 32-bit lanes) of a in reverse order. SSE2 has no byte shuffle: reverse the
    // dwords, then the words in each dword, then the bytes in each word.
    static void ReverseBytes(V& r, const V& a) {
        r = _mm_shuffle_epi32(a, 0x1B);
        r = _mm_shufflehi_epi16(_mm_shufflelo_epi16(r, 0xB1), 0xB1);
        r = _mm_or_si128(_mm_slli_epi16(r, 8), _mm_srli_epi16(r, 8));
    }
    static void ReverseLanes32(V& r, const V& a) { r = _mm_shuffle_epi32(a, 0x1B); }
    // Half a vector of bytes from p, zero-extended to 16-bit lanes in order.
    static void LoadWiden8(V& r, const void* p) {
        r = _mm_unpacklo_epi8(_mm_loadl_epi64(static_cast<const V*>(p)), _mm_setzero_si128());
    }
    // Signed 16-bit lanes clamped to 0..255, stored in order as half a vector of bytes.
    static void StoreNarrowU8(void* p, const V& a) {
        _mm_storel_epi64(static_cast<V*>(p), _mm_packus_epi16(a, a));
    }
    LF_VECTOR_OPS(, _mm_, si128)
    LF_COMPARE_OPS(, _mm_)
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
    LF_TARGET_AVX2 static void LoadDoubledBytes(V& r, const void* p) {
        const __m128i half = _mm_loadu_si128(static_cast<const __m128i*>(p));
        r = _mm256_set_m128i(_mm_unpackhi_epi8(half, half), _mm_unpacklo_epi8(half, half));
    }
    LF_TARGET_AVX2 static void EvenBytes(V& r, const V& a, const V& b) {
        const V low = _mm256_set1_epi16(0x00FF);
        r = _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
        r = _mm256_permute4x64_epi64(r, 0xD8);
    }
    LF_TARGET_AVX2 static void EvenLanes32(V& r, const V& a, const V& b) {
        const __m256 picked =
            _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88);
        r = _mm256_permute4x64_epi64(_mm256_castps_si256(picked), 0xD8);
    }
    // The bytes inside each 16-byte block reversed, then the blocks exchanged.
    LF_TARGET_AVX2 static void ReverseBytes(V& r, const V& a) {
        const V block = _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15,
                                         14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
        r = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(a, block), 0x4E);
    }
    LF_TARGET_AVX2 static void ReverseLanes32(V& r, const V& a) {
        r = _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
    }
    LF_TARGET_AVX2 static void LoadWiden8(V& r, const void* p) {
        r = _mm256_cvtepu8_epi16(_mm_loadu_si128(static_cast<const __m128i*>(p)));
    }
    LF_TARGET_AVX2 static void StoreNarrowU8(void* p, const V& a) {
        const V packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, a), 0xD8);
        _mm_storeu_si128(static_cast<__m128i*>(p), _mm256_castsi256_si128(packed));
    }
    // Two 16-byte loads into the low and the high block.
    LF_TARGET_AVX2 static void LoadBlocks(V& r, const void* low, const void* high) {
        r = _mm256_loadu2_m128i(static_cast<const __m128i*>(high),
                                static_cast<const __m128i*>(low));
    }
    // A store past the caches to a 32-byte aligned address; StreamFence orders it.
    LF_TARGET_AVX2 static void StoreStreaming(void* p, const V& a) {
        _mm256_stream_si256(static_cast<V*>(p), a);
    }
    LF_VECTOR_OPS(LF_TARGET_AVX2, _mm256_, si256)
    LF_COMPARE_OPS(LF_TARGET_AVX2, _mm256_)
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
    LF_TARGET_AVX512 static void LoadDoubledBytes(V& r, const void* p) {
        const V wide = _mm512_cvtepu8_epi16(_mm256_loadu_si256(static_cast<const __m256i*>(p)));
        r = _mm512_or_si512(wide, _mm512_slli_epi16(wide, 8));
    }
    LF_TARGET_AVX512 static void LoadWiden8(V& r, const void* p) {
        r = _mm512_cvtepu8_epi16(_mm256_loadu_si256(static_cast<const __m256i*>(p)));
    }
    LF_TARGET_AVX512 static void StoreNarrowU8(void* p, const V& a) {
        const V clamped = _mm512_max_epi16(a, _mm512_setzero_si512());
        _mm256_storeu_si256(static_cast<__m256i*>(p), _mm512_cvtusepi16_epi8(clamped));
    }
    LF_TARGET_AVX512 static void CmpEq8(V& r, const V& a, const V& b) {
        r = _mm512_movm_epi8(_mm512_cmpeq_epi8_mask(a, b));
    }
    LF_TARGET_AVX512 static void CmpGt32(V& r, const V& a, const V& b) {
        r = _mm512_maskz_mov_epi32(_mm512_cmpgt_epi32_mask(a, b), _mm512_set1_epi32(-1));
    }
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
#undef LF_COMPARE_OPS

// Makes streamed stores visible before the stores that follow.
inline void StreamFence() {
    _mm_sfence();
}
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

// How a walk meets memory: kernels of many operations a vector ask for memory ahead; kernels
// of one or two operations only stream, two vectors a step so that loads and stores overlap,
// and the hardware's own prefetching serves them better.
enum class Walk { Prefetch, Stream };

// Calls block(p) on each whole vector of the span from its start, then tail(p, bytes), the
// scalar rule, on the 0 to kBytes - 1 bytes left. Prefetches never fault, so asking past the
// span's end is harmless.
template <class I, Walk kWalk = Walk::Prefetch, class Block, class Tail>
inline void ForEachVector(uint8_t* p, size_t bytes, Block&& block, Tail&& tail) {
    size_t i = 0;
    if constexpr (kWalk == Walk::Stream) {
        for (; i + 2 * I::kBytes <= bytes; i += 2 * I::kBytes) {
            block(p + i);
            block(p + i + I::kBytes);
        }
    }
    for (; i + I::kBytes <= bytes; i += I::kBytes) {
        if constexpr (kWalk == Walk::Prefetch) __builtin_prefetch(p + i + kPrefetchAhead, 1);
        block(p + i);
    }
    tail(p + i, bytes - i);
}

}  // namespace MediaCore::Simd

#endif
