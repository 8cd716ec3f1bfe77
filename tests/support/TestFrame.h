// Host-side pixel memory for frames under test, with row padding and guard bytes around every
// plane so a test sees any write outside the pixels it expects to change.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Siblings.h"

namespace testing_support {

struct FrameShape {
    int format;
    unsigned width;
    unsigned height;
    unsigned padding = 0;   // bytes after each row's pixels
    bool bottomUp = false;  // rows handed over with negative pitches
};

std::string ShapeName(const FrameShape& shape);

class TestImage {
public:
    static constexpr unsigned kGuard = 64;
    static constexpr uint8_t kGuardByte = 0xA5;

    // Fills every plane (padding included) with pseudo-random bytes from `seed`.
    TestImage(const FrameShape& shape, uint32_t seed);

    MediaCore::CVideoFrame& Frame() { return *frame_; }
    const FrameShape& Shape() const { return shape_; }
    unsigned PlaneCount() const { return static_cast<unsigned>(planes_.size()); }
    unsigned RowBytes(unsigned plane) const { return planes_[plane].rowBytes; }
    unsigned Rows(unsigned plane) const { return planes_[plane].rows; }
    unsigned Pitch(unsigned plane) const { return planes_[plane].pitch; }
    // Row y of a plane counted from the top of the picture, whatever the memory order.
    uint8_t* Row(unsigned plane, unsigned y);
    // Every byte of every plane, padding and guards included.
    std::vector<uint8_t> Snapshot() const;
    bool GuardsIntact() const;

private:
    struct PlaneMemory {
        std::vector<uint8_t> bytes;  // guard, rows x pitch, guard
        unsigned rowBytes, rows, pitch;
        uint8_t* Start() { return bytes.data() + kGuard; }
    };
    FrameShape shape_;
    std::vector<PlaneMemory> planes_;
    std::unique_ptr<MediaCore::CVideoFrame> frame_;
};

// Counts the reports liblog's sink takes from the moment it is made.
class ReportWatch {
public:
    ReportWatch() : start_(liblog_GetReportCount()) {}
    unsigned Count() const { return liblog_GetReportCount() - start_; }
    std::string LastMessage() const { return GetGException()->GetMessage(); }
    std::string LastFile() const { return GetGException()->GetFile(); }

private:
    unsigned start_;
};

}  // namespace testing_support
