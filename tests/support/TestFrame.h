// Host-side pixel memory for frames under test, with row padding and guard bytes around every
// plane so a test sees any write outside the pixels it expects to change.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/GProcessor.h"
#include "libfilter/GVideoProcessor.h"
#include "libfilter/Siblings.h"
#include "support/EffectRoster.h"

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

// A host frame that counts its copies and frees, and can pose as another format or fail to
// copy (silently or with an error left in the sink).
class HostFrame : public MediaCore::CVideoFrame {
public:
    using CVideoFrame::CVideoFrame;

    int GetPixelFormat() override {
        return posedFormat >= -1 ? posedFormat : CVideoFrame::GetPixelFormat();
    }
    MediaCore::GVideoFrame* Clone() override;
    void Free() override;

    static int clones;
    static int frees;
    int posedFormat = -2;  // -2: answer the real format
    enum class CloneFailure { None, Silent, WithError } cloneFailure = CloneFailure::None;
    bool isCopy = false;
};

// Frame shapes for comparing a kernel's forms over the given formats: widths 1 to 70 and 1920,
// odd and even heights, pitch padding and both row orders (callers add a right/bottom crop).
std::vector<FrameShape> KernelShapes(const std::vector<int>& formats);

// Runs `effect` in place on the same random frame at every instruction-set level this machine
// has and returns the first level whose bytes differ from the scalar rule's ("" if none).
std::string FirstLevelDiffering(MediaCore::GProcessor* effect, const FrameShape& shape, bool crop,
                                uint32_t seed);

// An effect under test, released with its Free: one from the factory by id, or one the host
// built itself. `settings` are set in order.
struct FactoryEffect {
    explicit FactoryEffect(unsigned id, const PropertyList& settings = {});
    explicit FactoryEffect(MediaCore::GVideoProcessor* made, const PropertyList& settings = {});
    ~FactoryEffect();
    FactoryEffect(const FactoryEffect&) = delete;
    FactoryEffect& operator=(const FactoryEffect&) = delete;
    // Sets each property in order; false when any was refused.
    bool Set(const PropertyList& settings);
    // Processes the frame in place, as a host does.
    void Run(MediaCore::GVideoFrame& frame);
    MediaCore::GVideoProcessor* p;
};

// Every shape, uncropped and cropped: FirstLevelDiffering. "" when all agree, else the first
// shape that differs and how.
std::string FirstShapeDiffering(MediaCore::GProcessor* effect,
                                const std::vector<FrameShape>& shapes, uint32_t seed = 1);

// Runs `effect` in place on frames of formats no effect reads (frames of ours, and format
// numbers only a host frame can answer) and names the first one it changed ("" if none).
std::string FirstForeignFormatChanged(MediaCore::GProcessor* effect);

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
