#include "core/OnePass.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <typeinfo>

#include "base/ErrorReport.h"
#include "libfilter/AlignedMemory.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

namespace {

thread_local OnePassCopy* t_active = nullptr;
// A mark for each row of the pass on this thread, kept from frame to frame so that a pass
// allocates nothing once the frame size settles. One pass runs on a thread at a time.
thread_local AlignedBuffer t_marks;

// Ids of the effects that run in one pass; ids stay small.
constexpr unsigned kIdRoom = 256;
bool g_onePassIds[kIdRoom];

}  // namespace

OnePassCopy::OnePassCopy(CVideoFrame& source, CVideoFrame& target) {
    size_t rows = 0;
    for (; planeCount_ < kMaxPlanes; ++planeCount_) {
        const CVideoFrame::PlaneRecord* from = source.GetBuffer(planeCount_);
        const CVideoFrame::PlaneRecord* to = target.GetBuffer(planeCount_);
        if (from == nullptr || to == nullptr) break;
        planes_[planeCount_] = {to->data, from->data, to->pitch, to->rows, rows};
        rows += to->rows;
    }
    if (t_marks.Size() < rows) {
        if (rows > UINT32_MAX) Raise(ErrorFile::kVideoFrame, __LINE__, ErrorText::kMallocFailed);
        t_marks.Resize(static_cast<unsigned>(rows), ErrorFile::kVideoFrame, __LINE__);
    }
    done_ = t_marks.Data();
    if (rows != 0) std::memset(done_, 0, rows);
    t_active = this;
}

OnePassCopy::~OnePassCopy() {
    t_active = nullptr;
}

OnePassCopy* OnePassCopy::Active() {
    return t_active;
}

const OnePassCopy::PlanePair* OnePassCopy::Find(const uint8_t* row, unsigned& index) const {
    for (unsigned i = 0; i < planeCount_; ++i) {
        const PlanePair& plane = planes_[i];
        if (plane.target == nullptr || plane.pitch == 0) continue;
        if (row < plane.target || row >= plane.target + plane.pitch * plane.rows) continue;
        index = static_cast<unsigned>((row - plane.target) / plane.pitch);
        return &plane;
    }
    return nullptr;
}

void OnePassCopy::Stage(const uint8_t* row) {
    unsigned y = 0;
    if (const PlanePair* plane = Find(row, y)) StageRow(*plane, y);
}

const uint8_t* OnePassCopy::SourceOf(const uint8_t* row) const {
    unsigned y = 0;
    const PlanePair* plane = Find(row, y);
    return plane == nullptr || plane->source == nullptr ? nullptr
                                                        : plane->source + plane->pitch * y;
}

void OnePassCopy::StageRow(const PlanePair& plane, unsigned y) {
    uint8_t& done = done_[plane.firstRow + y];
    if (done != 0) return;
    uint8_t* to = plane.target + plane.pitch * y;
    if (plane.source != nullptr) {
        libcore_memcpy(to, plane.source + plane.pitch * y, plane.pitch);
    } else {
        std::memset(to, 0, plane.pitch);
    }
    done = 1;
}

const uint8_t* OnePassCopy::Take(uint8_t* row, size_t bytes) {
    unsigned y = 0;
    const PlanePair* plane = Find(row, y);
    if (plane == nullptr || plane->source == nullptr || done_[plane->firstRow + y] != 0) {
        if (plane != nullptr) StageRow(*plane, y);
        return row;
    }
    const uint8_t* from = plane->source + plane->pitch * y;
    if (bytes < plane->pitch) libcore_memcpy(row + bytes, from + bytes, plane->pitch - bytes);
    done_[plane->firstRow + y] = 1;
    return from;
}

void OnePassCopy::Overwritten(const uint8_t* first, unsigned rows) {
    unsigned y = 0;
    const PlanePair* plane = Find(first, y);
    if (plane == nullptr) return;
    const unsigned end = std::min(plane->rows, y + rows);
    std::memset(done_ + plane->firstRow + y, 1, end - std::min(y, end));
}

void OnePassCopy::Finish() {
    for (unsigned i = 0; i < planeCount_; ++i) {
        if (planes_[i].target == nullptr) continue;
        for (unsigned y = 0; y < planes_[i].rows; ++y)
            StageRow(planes_[i], y);
    }
}

bool OnePassFits(GVideoFrame& source, GVideoFrame& target) {
    if (&source == &target || typeid(source) != typeid(CVideoFrame) ||
        typeid(target) != typeid(CVideoFrame)) {
        return false;
    }
    auto& from = static_cast<CVideoFrame&>(source);
    auto& to = static_cast<CVideoFrame&>(target);
    if (from.GetBufferCount() != to.GetBufferCount() ||
        from.GetBufferCount() > OnePassCopy::kMaxPlanes) {
        return false;
    }
    // A pass carries whole planes over, so a frame cropped at the bottom (whose copy stops at
    // the crop) goes the copying way.
    const auto whole = [](CVideoFrame& frame, unsigned i) {
        const CVideoFrame::PlaneRecord* record = frame.GetBuffer(i);
        unsigned rowBytes = 0, pitch = 0, rows = 0;
        const unsigned char* data = frame.GetBuffer(i, &rowBytes, &pitch, &rows);
        return record->data != nullptr && data == record->data && rows == record->rows;
    };
    for (unsigned i = 0; i < from.GetBufferCount(); ++i) {
        if (!whole(from, i) || !whole(to, i) || from.GetBuffer(i)->rows != to.GetBuffer(i)->rows ||
            from.GetBuffer(i)->pitch != to.GetBuffer(i)->pitch) {
            return false;
        }
    }
    return true;
}

bool RunsInOnePass(unsigned id) {
    return id < kIdRoom && g_onePassIds[id];
}

OnePassRegistration::OnePassRegistration(unsigned id) {
    if (id < kIdRoom) g_onePassIds[id] = true;
}

}  // namespace MediaCore
