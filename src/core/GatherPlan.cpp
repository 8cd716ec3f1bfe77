#include "core/GatherPlan.h"

#include <algorithm>
#include <cstring>

namespace MediaCore {

void GatherPlan::Plan(unsigned elementBytes, unsigned bytesPerBlock, size_t sourceElements) {
    unit = elementBytes;
    blockBytes = bytesPerBlock;
    const size_t perBlock = PerBlock();
    const size_t blocks = Count() / perBlock;
    blockStart.assign(blocks, kByRule);
    blockShuffle.assign(blocks * 16, 0);
    for (size_t b = 0; b < blocks; ++b) {
        const uint32_t* columns = &source[b * perBlock];
        const uint64_t first = *std::min_element(columns, columns + perBlock);
        const uint64_t last = *std::max_element(columns, columns + perBlock);
        if ((last - first + 1) * unit > 16 || (first * unit + 16) > uint64_t{sourceElements} * unit)
            continue;
        blockStart[b] = static_cast<uint32_t>(first * unit);
        for (size_t j = 0; j < perBlock; ++j) {
            for (unsigned k = 0; k < unit; ++k)
                blockShuffle[b * 16 + j * unit + k] =
                    static_cast<uint8_t>((columns[j] - first) * unit + k);
        }
    }
}

void GatherPlan::Gather(uint8_t* dst, const uint8_t* src, size_t begin, size_t end) const {
    if (unit == 1) {
        for (size_t x = begin; x < end; ++x)
            dst[x] = src[source[x]];
        return;
    }
    for (size_t x = begin; x < end; ++x)
        std::memcpy(dst + x * 4, src + size_t{source[x]} * 4, 4);
}

}  // namespace MediaCore
