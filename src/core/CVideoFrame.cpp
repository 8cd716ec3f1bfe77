#include "libfilter/CVideoFrame.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/ErrorReport.h"
#include "core/OnePass.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

constexpr const char* kFile = ErrorFile::kVideoFrame;

namespace {

// Copies land on 16-byte boundaries inside one block.
constexpr unsigned kBlockAlignment = 16;

size_t RoundUp16(size_t n) {
    return (n + 15) & ~static_cast<size_t>(15);
}

// Set by CloneLayout for the one copy it makes on this thread, with the frame whose memory
// that copy may take over.
thread_local bool t_layoutOnly = false;
thread_local CVideoFrame* t_donor = nullptr;

// Copies a plane's rows x pitch bytes to `target` (zeros for a plane never given memory),
// points the plane there and returns the room it took. With `layoutOnly` the bytes are left
// for a one-pass effect to bring over.
size_t CopyPlaneInto(CVideoFrame::PlaneRecord& plane, unsigned char* target, bool layoutOnly) {
    const size_t size = size_t{plane.rows} * plane.pitch;
    if (layoutOnly) {
        // nothing to copy yet
    } else if (plane.data != nullptr) {
        libcore_memcpy(target, plane.data, size);
    } else {
        std::memset(target, 0, size);  // a plane never given memory copies as zeros
    }
    plane.data = target;
    return RoundUp16(size);
}

}  // namespace

CVideoFrame::CVideoFrame(bool freeDeletes, int format, unsigned width, unsigned height,
                         bool topDown)
    : format_(format),
      width_(width),
      height_(height),
      topDown_(topDown),
      freeDeletes_(freeDeletes) {
    const PixelFormatLayout layout = GetPixelFormatLayout(format, width, height);
    planes_.resize(layout.packed ? 1 : layout.planeCount);
    ApplyLayout(layout);
}

// Writes the current size's geometry into the existing plane records; pointers and pitches
// stay as they are.
void CVideoFrame::ApplyLayout(const PixelFormatLayout& layout) {
    packed_ = layout.packed;
    const size_t count = std::min<size_t>(planes_.size(), layout.packed ? 1 : layout.planeCount);
    for (size_t i = 0; i < count; ++i) {
        const PlaneLayout& p = layout.planes[i];
        planes_[i].rowBytes = p.rowBytes;
        planes_[i].rows = p.rows;
        planes_[i].cropRatio = p.cropRatio;
        planes_[i].divisor = p.divisor;
    }
}

CVideoFrame::CVideoFrame(const CVideoFrame& other)
    : GVideoFrame(),
      format_(other.format_),
      width_(other.width_),
      height_(other.height_),
      timeStamp_(other.timeStamp_),
      topDown_(other.topDown_),
      packed_(other.packed_),
      canBeModified_(true),
      freeDeletes_(false),
      topFieldFirst_(other.topFieldFirst_),
      interlaced_(other.interlaced_),
      planes_(other.planes_),
      dar_(other.dar_),
      cropRight_(other.cropRight_),
      cropBottom_(other.cropBottom_),
      duration_(other.duration_),
      duplicatedCount_(other.duplicatedCount_),
      duplicatedSecond_(other.duplicatedSecond_),
      ownsMemory_(true),
      borderData_(other.borderData_) {
    const bool layoutOnly = std::exchange(t_layoutOnly, false);  // not for the sub frame
    if (other.subFrame_) subFrame_.reset(other.subFrame_->Clone());

    // Planes with row bytes get their slots first, in plane order. A plane with rows but no
    // row bytes gets no slot, yet it must not keep pointing at the source's memory, where an
    // effect filling its rows x pitch bytes would write into the frame it was copied from: its
    // bytes are copied into a spare area after the slots.
    const auto hasSlot = [](const PlaneRecord& plane) { return plane.rowBytes != 0; };
    const auto needsSpare = [](const PlaneRecord& plane) {
        return plane.rowBytes == 0 && plane.data != nullptr && plane.rows != 0 && plane.pitch != 0;
    };
    size_t total = 0;
    for (const PlaneRecord& plane : planes_) {
        if (hasSlot(plane) || needsSpare(plane))
            total += RoundUp16(size_t{plane.rows} * plane.pitch);
    }
    block_.SetAlignment(kBlockAlignment);
    if (total > UINT32_MAX) LF_RAISE(kFile, ErrorText::kMallocFailed);
    CVideoFrame* donor = layoutOnly ? std::exchange(t_donor, nullptr) : nullptr;
    if (donor != nullptr && donor->block_.Size() == total &&
        donor->block_.Alignment() == kBlockAlignment) {
        // The last copy's memory, warm and already mapped, instead of a fresh block.
        block_.Swap(donor->block_);
    } else {
        block_.Resize(static_cast<unsigned>(total), kFile, __LINE__);
    }

    unsigned char* target = block_.Data();
    for (const bool spare : {false, true}) {
        for (PlaneRecord& plane : planes_) {
            if (spare ? needsSpare(plane) : hasSlot(plane))
                target += CopyPlaneInto(plane, target, layoutOnly);
        }
    }
}

CVideoFrame::~CVideoFrame() = default;

void CVideoFrame::SetSize(unsigned width, unsigned height) {
    cropRight_ = 0;
    cropBottom_ = 0;
    if (width == width_ && height == height_) return;
    const PixelFormatLayout layout = GetPixelFormatLayout(format_, width, height);
    width_ = width;
    height_ = height;
    ApplyLayout(layout);
}

void CVideoFrame::SetBuffer(unsigned char** data, int* pitches, void* userData) {
    if (data == nullptr || pitches == nullptr) {
        GuardedCall(kFile, __LINE__, [] { LF_RAISE(kFile, ErrorText::kNullPointer); });
        return;
    }
    topDown_ = pitches[0] > 0;
    for (size_t i = 0; i < planes_.size(); ++i) {
        PlaneRecord& plane = planes_[i];
        if (topDown_) {
            plane.data = data[i];
            plane.pitch = static_cast<unsigned>(pitches[i]);
        } else {
            // The caller hands its top row and a negative pitch; keep the row lowest in memory.
            plane.pitch = 0u - static_cast<unsigned>(pitches[i]);
            const intptr_t back = plane.rows == 0 ? 0 : intptr_t{plane.rows - 1} * pitches[i];
            plane.data =
                reinterpret_cast<unsigned char*>(reinterpret_cast<intptr_t>(data[i]) + back);
        }
    }
    userData_ = userData;
}

void CVideoFrame::SetDAR(double dar) {
    dar_ = dar;
}
void CVideoFrame::SetTopDown(bool topDown) {
    topDown_ = topDown;
}

unsigned CVideoFrame::GetRequireSize() {
    unsigned total = 0;
    for (const PlaneRecord& plane : planes_)
        total += plane.rows * plane.rowBytes;
    return total;
}

unsigned CVideoFrame::GetTotalSize() {
    unsigned total = 0;
    for (const PlaneRecord& plane : planes_)
        total += plane.rows * plane.pitch;
    return total;
}

CVideoFrame::PlaneRecord* CVideoFrame::GetBuffer(unsigned index) {
    return index < planes_.size() ? &planes_[index] : nullptr;
}

void CVideoFrame::GetDimension(unsigned* w, unsigned* h) {
    if (w != nullptr) *w = width_ - cropRight_;
    if (h != nullptr) *h = height_ - cropBottom_;
}

unsigned char* CVideoFrame::GetBuffer(unsigned index, unsigned* rowBytes, unsigned* pitch,
                                      unsigned* rows) {
    if (index >= planes_.size()) return nullptr;
    const PlaneRecord& plane = planes_[index];
    unsigned bytes = plane.rowBytes;
    const unsigned num = plane.cropRatio & 0xFFFF;
    const unsigned den = plane.cropRatio >> 16;
    // A plane without a ratio (the empty second plane of format 11) loses nothing to a crop.
    if (cropRight_ != 0 && den != 0) {
        const uint64_t cut = uint64_t{num} * cropRight_ / den;
        bytes = cut >= bytes ? 0 : bytes - static_cast<unsigned>(cut);
    }
    if (rowBytes != nullptr) *rowBytes = bytes;
    if (pitch != nullptr) *pitch = plane.pitch;
    // The same number of rows is cut from every plane whatever its subsampling; a cut larger
    // than a plane empties it.
    const unsigned cut = std::min(cropBottom_, plane.rows);
    if (rows != nullptr) *rows = plane.rows - cut;
    if (cut == 0 || topDown_ || plane.data == nullptr) return plane.data;
    return plane.data + size_t{plane.pitch} * cut;
}

bool CVideoFrame::CropRightAndBottom(unsigned right, unsigned bottom) {
    if (right >= width_ || bottom >= height_) return false;
    cropRight_ = right;
    cropBottom_ = bottom;
    return true;
}

void CVideoFrame::Free() {
    if (freeDeletes_) delete this;
}

unsigned CVideoFrame::GetDuplicatedCount(unsigned* second) {
    if (second != nullptr) *second = duplicatedSecond_;
    return duplicatedCount_;
}

void CVideoFrame::SetDuplicatedCount(unsigned count, unsigned second) {
    duplicatedCount_ = count;
    duplicatedSecond_ = second;
}

GVideoFrame* CVideoFrame::Clone() {
    return LF_GUARDED(kFile, [&]() -> GVideoFrame* {
        auto copy = std::make_unique<CVideoFrame>(*this);
        copy->freeDeletes_ = true;
        return copy.release();
    });
}

void CVideoFrame::SetBorderData(void* data, int length) {
    if (data == nullptr) return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    borderData_.assign(bytes, bytes + std::max(length, 0));
}

int CVideoFrame::GetBorderData(void** data, int* length) {
    const int size = static_cast<int>(borderData_.size());
    if (data != nullptr) *data = borderData_.empty() ? nullptr : borderData_.data();
    if (length != nullptr) *length = size;
    return size;
}

void* CVideoFrame::GetInterface(const char* name) {
    return LF_GUARDED(kFile, [&]() -> void* {
        LF_REQUIRE(kFile, name);
        return std::strcmp(name, kSubVideoFrameInterface) == 0 ? subFrame_.get() : nullptr;
    });
}

GVideoFrame* CVideoFrame::CopySubsetFrame(GVideoFrame* frame) {
    if (frame == nullptr) return nullptr;
    subFrame_.reset(frame->Clone());
    return subFrame_.get();
}

CVideoFrame* CloneLayout(CVideoFrame& frame, CVideoFrame* donor) {
    t_layoutOnly = true;
    t_donor = donor;
    GVideoFrame* copy = frame.CVideoFrame::Clone();
    t_layoutOnly = false;
    t_donor = nullptr;
    return static_cast<CVideoFrame*>(copy);
}

}  // namespace MediaCore
