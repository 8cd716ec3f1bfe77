// Rows resampled by a fixed column map: which source element each element of an output row
// shows, worked out once per geometry and applied to every row.
//
// For the vector forms the output row is cut in blocks of 16 bytes (or 8, where neighbouring
// elements read up to two elements apart), and each block gets the first source byte it reads
// and the byte offsets of its elements from there, when they all lie in one 16-byte load
// inside the source row; a byte shuffle then gathers the block. Other blocks go to the rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/SimdOps.h"

// Internal to the library: none of it is exported.
#pragma GCC visibility push(hidden)

namespace MediaCore {

struct GatherPlan {
    static constexpr uint32_t kByRule = UINT32_MAX;  // a block gathered element by element

    unsigned unit = 1;  // bytes an element: 1 for plane samples, 4 for BGRA pixels
    unsigned blockBytes = 16;
    std::vector<uint32_t> source;  // the source element of each output element
    std::vector<uint32_t> blockStart;
    std::vector<uint8_t> blockShuffle;  // 16 a block

    // Plans the blocks of `source` for source rows of `sourceElements` elements.
    void Plan(unsigned elementBytes, unsigned bytesPerBlock, size_t sourceElements);

    size_t Count() const { return source.size(); }
    size_t PerBlock() const { return blockBytes / unit; }

    // The rule: output elements begin to end from their source elements.
    void Gather(uint8_t* dst, const uint8_t* src, size_t begin, size_t end) const;
};

#if LF_X86_64
namespace Simd {

// The kBytes / 16 blocks from block `b` on, one to each 128-bit block of `r`; false when one of
// them is left to the rule, and at levels without a byte shuffle.
template <class I>
inline bool GatherBlocks(typename I::V& r, const uint8_t* src, const GatherPlan& plan, size_t b) {
    if constexpr (!I::kByteShuffle) {
        return false;
    } else {
        const uint32_t* start = &plan.blockStart[b];
        for (size_t k = 0; k < I::kBytes / 16; ++k) {
            if (start[k] == GatherPlan::kByRule) return false;
        }
        I::FromBlocks(r, [&](size_t k) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + start[k]));
        });
        typename I::V order;
        I::Load(order, &plan.blockShuffle[b * 16]);
        I::ShuffleBytes(r, r, order);
        return true;
    }
}

// Sixteen bytes of elements from source[0] on, gathered one by one into two 64-bit halves,
// which avoids storing bytes to memory only to load them back as one vector.
inline __m128i GatherElements(const uint8_t* src, const uint32_t* source, unsigned unit) {
    uint64_t half[2] = {0, 0};
    if (unit == 4) {
        for (unsigned j = 0; j < 4; ++j) {
            uint32_t pixel;
            std::memcpy(&pixel, src + size_t{source[j]} * 4, 4);
            half[j / 2] |= uint64_t{pixel} << (32 * (j % 2));
        }
    } else {
        for (unsigned j = 0; j < 16; ++j)
            half[j / 8] |= uint64_t{src[source[j]]} << (8 * (j % 8));
    }
    return _mm_set_epi64x(static_cast<long long>(half[1]), static_cast<long long>(half[0]));
}

}  // namespace Simd
#endif

}  // namespace MediaCore

#pragma GCC visibility pop
