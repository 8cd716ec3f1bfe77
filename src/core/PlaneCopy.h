// Copying a converted or rebuilt plane back into a frame, as far as both planes reach.
#pragma once

#include <algorithm>
#include <cstring>

#include "core/Planes.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

// Copies `src` into `dst`: one block when the pitches agree, else row by row. Rows and row
// bytes are those both planes have, so a source of another size never reads or writes past
// either plane.
inline void CopyPlaneInto(const Plane& dst, const Plane& src) {
    if (dst.data == nullptr || src.data == nullptr || dst.data == src.data) return;
    const unsigned rows = std::min(dst.rows, src.rows);
    if (rows == 0) return;
    if (dst.pitch == src.pitch) {
        libcore_memcpy(dst.data, src.data, size_t{rows} * dst.pitch);
        return;
    }
    const unsigned bytes = std::min(dst.rowBytes, src.rowBytes);
    if (bytes == 0) return;
    for (unsigned y = 0; y < rows; ++y)
        libcore_memcpy(dst.Row(y), src.Row(y), bytes);
}

// Every plane of `src` into the plane of the same index of `dst`.
inline void CopyPlanesInto(GVideoFrame* dst, GVideoFrame* src, unsigned planes) {
    for (unsigned i = 0; i < planes; ++i)
        CopyPlaneInto(GetPlane(dst, i), GetPlane(src, i));
}

}  // namespace MediaCore
