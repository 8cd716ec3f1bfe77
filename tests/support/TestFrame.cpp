#include "support/TestFrame.h"

#include <random>

#include "core/Simd.h"
#include "libfilter/libfilter.h"

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
    // Every width from 1 to 70 and a full-HD row, each with its own padding, row order and
    // height, so that over the widths every combination meets odd and even sizes.
    constexpr unsigned kPaddings[] = {0, 3, 13};
    constexpr unsigned kHeights[] = {7, 8, 3, 4, 1, 2, 5, 6};
    std::vector<FrameShape> shapes;
    for (int format : formats) {
        for (unsigned i = 0; i <= 70; ++i) {
            const bool bottomUp = (i / 3) % 2 == 1;
            shapes.push_back(
                {format, i < 70 ? i + 1 : 1920, kHeights[i % 8], kPaddings[i % 3], bottomUp});
        }
    }
    return shapes;
}

namespace {

// Processes `frame` in place through the effect's video face, as a host does.
void RunInPlace(MediaCore::GProcessor* effect, MediaCore::GVideoFrame& frame) {
    using namespace MediaCore;
    auto* video = static_cast<GVideoProcessor*>(effect->GetInterface(kVideoProcessorInterface));
    ImagePostion position{};
    video->ProcFrameInPlace(&position, 0, &frame);
}

}  // namespace

std::string FirstLevelDiffering(MediaCore::GProcessor* effect, const FrameShape& shape, bool crop,
                                uint32_t seed) {
    using namespace MediaCore;
    auto run = [&](int level) {
        TestImage image(shape, seed);
        if (crop) image.Frame().CropRightAndBottom(shape.width / 3, 2);
        Simd::SetLevelLimit(static_cast<Simd::Level>(level));
        RunInPlace(effect, image.Frame());
        Simd::SetLevelLimit(Simd::kAvx512);
        return image.Snapshot();
    };
    const std::vector<uint8_t> reference = run(Simd::kScalar);
    for (int level = Simd::kSse2; level <= Simd::HostLevel(); ++level) {
        if (run(level) != reference) return Simd::LevelName(static_cast<Simd::Level>(level));
    }
    return "";
}

FactoryEffect::FactoryEffect(unsigned id, const PropertyList& settings)
    : FactoryEffect(libfilter_GetFilter(nullptr, id), settings) {}

FactoryEffect::FactoryEffect(MediaCore::GVideoProcessor* made, const PropertyList& settings)
    : p(made) {
    Set(settings);
}

FactoryEffect::~FactoryEffect() {
    p->Free();
}

bool FactoryEffect::Set(const PropertyList& settings) {
    bool all = true;
    for (const auto& [name, value] : settings)
        all = p->SetProperty(name.c_str(), value.c_str()) && all;
    return all;
}

void FactoryEffect::Run(MediaCore::GVideoFrame& frame) {
    RunInPlace(p, frame);
}

std::string FirstShapeDiffering(MediaCore::GProcessor* effect,
                                const std::vector<FrameShape>& shapes, uint32_t seed) {
    for (const FrameShape& shape : shapes) {
        for (bool crop : {false, true}) {
            const std::string where = ShapeName(shape) + (crop ? " cropped, " : ", ");
            const std::string level = FirstLevelDiffering(effect, shape, crop, seed++);
            if (!level.empty()) return where + level + " against scalar";
        }
    }
    return "";
}

std::string FirstForeignFormatChanged(MediaCore::GProcessor* effect) {
    using namespace MediaCore;
    for (int format : {1, 2, 3, 5, 8, 11, 14, 17, 18, 27, 33, 41, 43}) {
        TestImage image({format, 8, 4, 2}, 3);
        const std::vector<uint8_t> before = image.Snapshot();
        RunInPlace(effect, image.Frame());
        if (image.Snapshot() != before) return "format " + std::to_string(format);
    }
    for (int posed : {-1, 31, 36, 64, 91}) {
        HostFrame frame(false, PIXFMT_BGRA32, 2, 2, true);
        std::vector<unsigned char> pixels(16, 7);
        unsigned char* data[] = {pixels.data()};
        int pitches[] = {8};
        frame.SetBuffer(data, pitches, nullptr);
        frame.posedFormat = posed;
        RunInPlace(effect, frame);
        if (pixels != std::vector<unsigned char>(16, 7)) return "posed " + std::to_string(posed);
    }
    return "";
}

}  // namespace testing_support
