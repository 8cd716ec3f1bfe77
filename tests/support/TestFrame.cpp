#include "support/TestFrame.h"

#include <random>

#include "core/Simd.h"
#include "libfilter/GVideoProcessor.h"

namespace testing_support {

std::string ShapeName(const FrameShape& s) {
    return "fmt" + std::to_string(s.format) + "_" + std::to_string(s.width) + "x" +
           std::to_string(s.height) + "_pad" + std::to_string(s.padding) +
           (s.bottomUp ? "_bottomup" : "_topdown");
}

TestImage::TestImage(const FrameShape& shape, uint32_t seed) : shape_(shape) {
    frame_ = std::make_unique<MediaCore::CVideoFrame>(false, shape.format, shape.width,
                                                      shape.height, !shape.bottomUp);
    std::mt19937 rng(seed);
    std::vector<unsigned char*> data;
    std::vector<int> pitches;
    for (unsigned i = 0; i < frame_->GetBufferCount(); ++i) {
        const auto* record = frame_->GetBuffer(i);
        PlaneMemory plane;
        plane.rowBytes = record->rowBytes;
        plane.rows = record->rows;
        plane.pitch = record->rowBytes + shape.padding;
        plane.bytes.assign(2 * kGuard + size_t{plane.rows} * plane.pitch, kGuardByte);
        for (size_t b = kGuard; b < plane.bytes.size() - kGuard; ++b) {
            plane.bytes[b] = static_cast<uint8_t>(rng());
        }
        planes_.push_back(std::move(plane));
    }
    for (PlaneMemory& plane : planes_) {
        if (shape.bottomUp) {
            // The caller's view: its top row is the last one in memory.
            const size_t top = plane.rows == 0 ? 0 : size_t{plane.rows - 1} * plane.pitch;
            data.push_back(plane.Start() + top);
            pitches.push_back(-static_cast<int>(plane.pitch));
        } else {
            data.push_back(plane.Start());
            pitches.push_back(static_cast<int>(plane.pitch));
        }
    }
    if (!planes_.empty()) frame_->SetBuffer(data.data(), pitches.data(), nullptr);
}

uint8_t* TestImage::Row(unsigned plane, unsigned y) {
    PlaneMemory& p = planes_[plane];
    const unsigned memoryRow = shape_.bottomUp ? p.rows - 1 - y : y;
    return p.Start() + size_t{memoryRow} * p.pitch;
}

std::vector<uint8_t> TestImage::Snapshot() const {
    std::vector<uint8_t> all;
    for (const PlaneMemory& plane : planes_) {
        all.insert(all.end(), plane.bytes.begin(), plane.bytes.end());
    }
    return all;
}

bool TestImage::GuardsIntact() const {
    for (const PlaneMemory& plane : planes_) {
        for (unsigned i = 0; i < kGuard; ++i) {
            if (plane.bytes[i] != kGuardByte) return false;
            if (plane.bytes[plane.bytes.size() - 1 - i] != kGuardByte) return false;
        }
    }
    return true;
}

int HostFrame::clones = 0;
int HostFrame::frees = 0;

MediaCore::GVideoFrame* HostFrame::Clone() {
    if (cloneFailure == CloneFailure::Silent) return nullptr;
    if (cloneFailure == CloneFailure::WithError) {
        GetGException()->SetErrorCode(12, "copy refused", 1, "HostFrame");
        return nullptr;
    }
    ++clones;
    auto* copy = new HostFrame(*this);
    copy->isCopy = true;
    return copy;
}

void HostFrame::Free() {
    if (!isCopy) return;
    ++frees;
    delete this;
}

std::vector<FrameShape> KernelShapes(const std::vector<int>& formats) {
    std::vector<FrameShape> shapes;
    for (int format : formats) {
        for (unsigned width : {1u, 2u, 5u, 17u, 35u, 67u, 130u}) {
            for (unsigned padding : {0u, 3u, 13u}) {
                for (bool bottomUp : {false, true}) {
                    shapes.push_back({format, width, 7, padding, bottomUp});
                }
            }
        }
    }
    return shapes;
}

std::string FirstLevelDiffering(MediaCore::GProcessor* effect, const FrameShape& shape, bool crop,
                                uint32_t seed) {
    using namespace MediaCore;
    auto* processor = static_cast<GVideoProcessor*>(effect->GetInterface(kVideoProcessorInterface));
    auto run = [&](Simd::Level level) {
        TestImage image(shape, seed);
        if (crop) image.Frame().CropRightAndBottom(shape.width / 3, 2);
        ImagePostion position{};
        Simd::SetLevelLimit(level);
        processor->ProcFrameInPlace(&position, 0, &image.Frame());
        Simd::SetLevelLimit(Simd::kAvx512);
        return image.Snapshot();
    };
    const std::vector<uint8_t> reference = run(Simd::kScalar);
    for (int level = Simd::kSse2; level <= Simd::HostLevel(); ++level) {
        if (run(static_cast<Simd::Level>(level)) != reference) {
            return Simd::LevelName(static_cast<Simd::Level>(level));
        }
    }
    return "";
}

}  // namespace testing_support
