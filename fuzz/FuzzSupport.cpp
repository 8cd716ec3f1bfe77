#include "FuzzSupport.h"

#include <algorithm>
#include <cstring>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define FUZZ_HAS_ASAN 1
#endif
#endif

#include "libfilter/Siblings.h"

namespace fuzzing {

namespace {

using namespace MediaCore;

// Every format number the library knows, and some it must refuse.
constexpr int kFormats[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 17,
                            18, 25, 26, 27, 28, 29, 30, 33, 35, 41, 42, 43, 44, 45, 46, 47,
                            48, 49, 50, 72, 74, 90, -1, 15, 91, 30, 0,  35, 90, 4,  6,  7};

// Pixel contents: noise, or the extremes where clamps and saturation show.
void Fill(uint8_t* bytes, size_t size, uint32_t seed, uint8_t mode) {
    if (mode == 1 || mode == 2) {
        std::fill(bytes, bytes + size, mode == 1 ? 0 : 255);
        return;
    }
    uint32_t state = seed | 1;
    for (size_t i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = static_cast<uint8_t>(state);
    }
}

constexpr uint8_t kGuardByte = 0xA5;

// Guard areas fault under AddressSanitizer on any access but the snapshot's.
void Poison(uint8_t* bytes, size_t size, bool poisoned) {
#ifdef FUZZ_HAS_ASAN
    if (poisoned) {
        ASAN_POISON_MEMORY_REGION(bytes, size);
    } else {
        ASAN_UNPOISON_MEMORY_REGION(bytes, size);
    }
#else
    (void)bytes, (void)size, (void)poisoned;
#endif
}

}  // namespace

void FuzzFrame::FreeBlock::operator()(uint8_t* block) const {
    Poison(block, total, false);
    std::free(block);
}

std::vector<uint8_t> FuzzFrame::Snapshot() const {
    std::vector<uint8_t> all;
    for (const auto& plane : planes_) {
        uint8_t* block = plane.get();
        const size_t total = plane.get_deleter().total;
        Poison(block, total, false);
        all.insert(all.end(), block, block + total);
        Poison(block, kGuard, true);
        Poison(block + total - kGuard, kGuard, true);
    }
    for (unsigned i = 0; i < frame_->GetBufferCount(); ++i) {
        const auto* record = reinterpret_cast<const uint8_t*>(frame_->GetBuffer(i));
        all.insert(all.end(), record, record + sizeof(CVideoFrame::PlaneRecord));
    }
    return all;
}

std::unique_ptr<FuzzFrame> FuzzFrame::Make(FuzzedDataProvider& input) {
    const int format = input.PickValueInArray(kFormats);
    // Mostly small frames; now and then rows wider than full HD, so vector loops run long, or
    // narrow frames hundreds of rows tall, whose thinned chroma planes may hold no bytes a row.
    const int build = input.ConsumeIntegralInRange(0, 15);
    const bool wide = build == 0, tall = build == 1;
    const unsigned width = input.ConsumeIntegralInRange<unsigned>(0, wide ? 2000 : tall ? 4 : 80);
    const unsigned height = input.ConsumeIntegralInRange<unsigned>(0, wide ? 4 : tall ? 700 : 40);
    return MakeShaped(input, format, width, height);
}

std::unique_ptr<FuzzFrame> FuzzFrame::MakeLike(FuzzedDataProvider& input, FuzzFrame& like) {
    return MakeShaped(input, like.format_, like.width_, like.height_);
}

std::unique_ptr<FuzzFrame> FuzzFrame::MakeShaped(FuzzedDataProvider& input, int format,
                                                 unsigned width, unsigned height) {
    try {
        return std::unique_ptr<FuzzFrame>(new FuzzFrame(input, format, width, height));
    } catch (...) {
        return nullptr;  // "Bad pixel format"
    }
}

FuzzFrame::FuzzFrame(FuzzedDataProvider& input, int format, unsigned width, unsigned height)
    : format_(format), width_(width), height_(height) {
    const bool bottomUp = input.ConsumeBool();
    frame_ = std::make_unique<CVideoFrame>(false, format, width, height, !bottomUp);
    // Below 0 a pitch is shorter than the row the format declares.
    const int padding = input.ConsumeIntegralInRange(-8, 40);
    const uint32_t seed = input.ConsumeIntegral<uint32_t>();
    const uint8_t mode = input.ConsumeIntegralInRange<uint8_t>(0, 3);
    const bool withMemory = input.ConsumeIntegralInRange(0, 31) != 0;
    std::vector<unsigned char*> data;
    std::vector<int> pitches;
    for (unsigned i = 0; i < frame_->GetBufferCount(); ++i) {
        const CVideoFrame::PlaneRecord* record = frame_->GetBuffer(i);
        const int pitch = std::max(0, static_cast<int>(record->rowBytes) + padding);
        const size_t size = size_t{record->rows} * static_cast<size_t>(pitch);
        auto* block = static_cast<uint8_t*>(std::malloc(2 * kGuard + size));
        if (block == nullptr) std::abort();
        planes_.emplace_back(block, FreeBlock{2 * kGuard + size});
        std::memset(block, kGuardByte, 2 * kGuard + size);
        uint8_t* const pixels = block + kGuard;
        Fill(pixels, size, seed + i, mode);
        Poison(block, kGuard, true);
        Poison(pixels + size, kGuard, true);
        // A bottom-up caller hands over its top row, the last one in memory.
        const size_t top = record->rows == 0 ? 0 : size_t{record->rows - 1} * pitch;
        data.push_back(bottomUp ? pixels + top : pixels);
        pitches.push_back(bottomUp ? -pitch : pitch);
    }
    if (withMemory && !data.empty()) frame_->SetBuffer(data.data(), pitches.data(), nullptr);
    if (input.ConsumeBool()) {
        frame_->CropRightAndBottom(input.ConsumeIntegralInRange<unsigned>(0, width),
                                   input.ConsumeIntegralInRange<unsigned>(0, height));
    }
}

EffectPtr CreateEffect(FuzzedDataProvider& input) {
    // An id anywhere in the factory's range picks the first effect served at or after it.
    const unsigned id = input.ConsumeIntegralInRange(0u, 31u);
    const auto& effects = testing_support::ServedEffects();
    for (const testing_support::ServedEffect& effect : effects) {
        if (effect.id >= id) return EffectPtr(effect.Create());
    }
    return EffectPtr(effects.front().Create());
}

std::string FuzzValue(FuzzedDataProvider& input, const std::string& name) {
    if (testing_support::RepeatsWork(name))
        return std::to_string(input.ConsumeIntegralInRange(-3, 3));
    switch (input.ConsumeIntegralInRange(0, 3)) {
        case 0:
            return std::to_string(input.ConsumeIntegralInRange(-4, 300));
        case 1:
            return std::to_string(input.ConsumeIntegral<int32_t>());
        case 2: {
            const auto& texts = testing_support::EdgeTexts();
            return texts[input.ConsumeIntegralInRange<size_t>(0, texts.size() - 1)];
        }
        default:
            return input.ConsumeRandomLengthString(24);
    }
}

std::vector<std::string> PropertyNames(GProcessor& processor) {
    std::vector<std::string> names;
    if (GStringList* list = processor.GetPropertyNames()) {
        for (unsigned i = 0; i < list->GetCount(); ++i)
            names.push_back(list->GetAt(i)->GetString());
        list->Free();
    }
    return names;
}

void BoundPassCounts(FuzzedDataProvider& input, GProcessor& processor) {
    for (const std::string& name : PropertyNames(processor)) {
        if (testing_support::RepeatsWork(name))
            processor.SetProperty(name.c_str(), FuzzValue(input, name).c_str());
    }
}

}  // namespace fuzzing

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    GetLogger()->SetLevel(LOG_LEVEL_OFF);
    static testing_support::SilentSink sink;
    return 0;
}
