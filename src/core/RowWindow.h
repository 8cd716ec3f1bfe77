// In-place 3x3 neighbourhood filtering of a plane through two scratch rows.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/Planes.h"

namespace MediaCore {

// Computes the results of one row from the unfiltered rows above, at and below it: `count`
// bytes, result j from bytes j, j + step and j + 2 * step of each of the three rows. `step` is
// the distance between horizontal neighbours (1 for a plane of bytes, 4 for packed pixels whose
// bytes are filtered channel by channel).
using Filter3x3RowFn = void (*)(const uint8_t* top, const uint8_t* middle, const uint8_t* bottom,
                                uint8_t* out, size_t count, size_t step);

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using ScratchMemory = std::unique_ptr<uint8_t[], FreeDeleter>;

// Scratch memory of at least `bytes` bytes that this thread keeps from frame to frame, so that
// row walks allocate nothing once the frame size settles; null when it cannot grow. One walk
// on a thread uses it at a time.
inline uint8_t* ThreadScratch(size_t bytes) {
    thread_local ScratchMemory memory;
    thread_local size_t size = 0;
    if (bytes > size) {
        ScratchMemory grown(static_cast<uint8_t*>(std::malloc(bytes)));
        if (!grown) return nullptr;
        memory = std::move(grown);
        size = bytes;
    }
    return memory.get();
}

// Filters rows 1 .. rows - 2 of `plane` in place, each from the unfiltered rows around it,
// without copying the plane. Window k (rows k, k + 1, k + 2) writes row k + 1's results to
// scratch row A when k is even and to B when k is odd; row k receives its own results (from
// the other scratch row) only after window k has read it as its top row. After the last window
// scratch A is written to row rows - 2. For an odd row count that is row rows - 2's result; for
// an even count A still holds row rows - 3's, so row rows - 2 repeats the row above it, which
// is the established output of these filters and kept as such.
// The first and last `step` bytes of every row, rows 0 and rows - 1 and the pitch padding are
// never written. Planes under 3 rows or 3 steps wide are left alone. Returns false, with the
// plane untouched, when the scratch rows cannot be had.
[[nodiscard]] inline bool FilterRowsInPlace(const Plane& plane, size_t step,
                                            Filter3x3RowFn filterRow) {
    const size_t width = plane.rowBytes;
    if (plane.data == nullptr || plane.rows < 3 || width < 3 * step) return true;
    uint8_t* const a = ThreadScratch(2 * width);
    if (a == nullptr) return false;
    uint8_t* const b = a + width;
    const size_t count = width - 2 * step;
    for (unsigned k = 0; k + 2 < plane.rows; ++k) {
        uint8_t* const results = k % 2 == 0 ? a : b;
        filterRow(plane.Row(k), plane.Row(k + 1), plane.Row(k + 2), results, count, step);
        if (k > 0) std::memcpy(plane.Row(k) + step, k % 2 == 0 ? b : a, count);
    }
    std::memcpy(plane.Row(plane.rows - 2) + step, a, count);
    return true;
}

}  // namespace MediaCore
