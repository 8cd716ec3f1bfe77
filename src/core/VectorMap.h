// In-place maps over a span of bytes, one vector at a time.
//
// The walk starts at the span's first byte and takes whole vectors only, so 4-byte pixels
// stay in phase with the vector lanes; it answers how many bytes it did and leaves the rest
// to the kernel's scalar rule. `op` is a function object taking and answering one vector; for
// the AVX2 walk its call operator must carry LF_TARGET_AVX2 itself (a lambda would not
// inherit the target and could not be inlined).
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/Simd.h"

#if LF_X86_64
#include <immintrin.h>

namespace MediaCore::Simd {

template <class Op>
size_t MapSse2(uint8_t* p, size_t bytes, const Op& op) {
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        auto* q = reinterpret_cast<__m128i*>(p + i);
        _mm_storeu_si128(q, op(_mm_loadu_si128(q)));
    }
    return i;
}

// Two vectors a step while the span lasts, so their loads and stores overlap.
template <class Op>
LF_TARGET_AVX2 size_t MapAvx2(uint8_t* p, size_t bytes, const Op& op) {
    size_t i = 0;
    for (; i + 64 <= bytes; i += 64) {
        auto* q = reinterpret_cast<__m256i*>(p + i);
        const __m256i a = _mm256_loadu_si256(q);
        const __m256i b = _mm256_loadu_si256(q + 1);
        _mm256_storeu_si256(q, op(a));
        _mm256_storeu_si256(q + 1, op(b));
    }
    for (; i + 32 <= bytes; i += 32) {
        auto* q = reinterpret_cast<__m256i*>(p + i);
        _mm256_storeu_si256(q, op(_mm256_loadu_si256(q)));
    }
    return i;
}

}  // namespace MediaCore::Simd
#endif
