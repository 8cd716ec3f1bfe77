// Setting every byte of a plane's memory to one value.
#pragma once

#include <cstring>

#include "core/Planes.h"

namespace MediaCore {

// Fills the plane's whole memory, rows x pitch bytes from its lowest row: the pitch padding at
// the end of each row is written too, in one memory fill. Planes without memory are skipped.
inline void FillPlaneMemory(const Plane& plane, uint8_t value) {
    if (plane.data == nullptr) return;
    if (OnePassCopy* copy = OnePassCopy::Active()) copy->Overwritten(plane.data, plane.rows);
    std::memset(plane.data, value, size_t{plane.rows} * plane.pitch);
}

}  // namespace MediaCore
