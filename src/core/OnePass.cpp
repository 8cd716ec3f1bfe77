#include "core/OnePass.h"

#include <algorithm>
#include <cstring>

#include "libfilter/Siblings.h"

namespace MediaCore {

namespace {

thread_local OnePassCopy* t_active = nullptr;

// Ids of the effects that run in one pass; ids stay small.
constexpr unsigned kIdRoom = 256;
bool g_onePassIds[kIdRoom];

}  // namespace

OnePassCopy::OnePassCopy(CVideoFrame& source, CVideoFrame& target) : previous_(t_active) {
    for (unsigned i = 0;; ++i) {
        const CVideoFrame::PlaneRecord* from = source.GetBuffer(i);
        const CVideoFrame::PlaneRecord* to = target.GetBuffer(i);
        if (from == nullptr || to == nullptr) break;
        planes_.push_back(
            {to->data, from->data, to->pitch, to->rows, std::vector<uint8_t>(to->rows, 0)});
    }
    t_active = this;
}

OnePassCopy::~OnePassCopy() {
    t_active = previous_;
}

OnePassCopy* OnePassCopy::Active() {
    return t_active;
}

OnePassCopy::PlanePair* OnePassCopy::Find(const uint8_t* row, unsigned& index) {
    for (PlanePair& plane : planes_) {
        if (plane.target == nullptr || plane.pitch == 0) continue;
        if (row < plane.target || row >= plane.target + plane.pitch * plane.rows) continue;
        index = static_cast<unsigned>((row - plane.target) / plane.pitch);
        return &plane;
    }
    return nullptr;
}

void OnePassCopy::Stage(const uint8_t* row) {
    unsigned y = 0;
    PlanePair* plane = Find(row, y);
    if (plane == nullptr || plane->done[y]) return;
    uint8_t* to = plane->target + plane->pitch * y;
    if (plane->source != nullptr) {
        libcore_memcpy(to, plane->source + plane->pitch * y, plane->pitch);
    } else {
        std::memset(to, 0, plane->pitch);
    }
    plane->done[y] = 1;
}

void OnePassCopy::Overwritten(const uint8_t* first, unsigned rows) {
    unsigned y = 0;
    PlanePair* plane = Find(first, y);
    if (plane == nullptr) return;
    const unsigned end = std::min(plane->rows, y + rows);
    for (; y < end; ++y)
        plane->done[y] = 1;
}

void OnePassCopy::Finish() {
    for (PlanePair& plane : planes_) {
        if (plane.target == nullptr) continue;
        for (unsigned y = 0; y < plane.rows; ++y)
            Stage(plane.target + plane.pitch * y);
    }
}

bool RunsInOnePass(unsigned id) {
    return id < kIdRoom && g_onePassIds[id];
}

OnePassRegistration::OnePassRegistration(unsigned id) {
    if (id < kIdRoom) g_onePassIds[id] = true;
}

}  // namespace MediaCore
