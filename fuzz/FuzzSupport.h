// What the fuzzers share: frames shaped by the input (any format number, sizes from 0 up,
// pitch padding or short pitches, either row order, a crop, pixels drawn from the input), whose
// every plane is its own heap block of rows x pitch bytes between two poisoned guard areas, so
// AddressSanitizer faults on the first byte an effect reads or writes outside a plane and a
// snapshot shows any change at all; property values; and, by linking it,
// every target's LLVMFuzzerInitialize, which sends the library's reports nowhere and silences
// the log (the fuzzers provoke them by the million).
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/GProcessor.h"
#include "libfilter/GVideoProcessor.h"
#include "support/EffectRoster.h"

namespace fuzzing {

class FuzzFrame {
public:
    // Null when the library refuses the format (as it must for numbers that name none).
    static std::unique_ptr<FuzzFrame> Make(FuzzedDataProvider& input);
    // A frame of this format and size, with padding, row order, pixels and crop from the input.
    static std::unique_ptr<FuzzFrame> MakeShaped(FuzzedDataProvider& input, int format,
                                                 unsigned width, unsigned height);
    // The same format and size as `like`, with its own padding, row order and pixels.
    static std::unique_ptr<FuzzFrame> MakeLike(FuzzedDataProvider& input, FuzzFrame& like);

    MediaCore::CVideoFrame& Frame() { return *frame_; }
    // Every byte of every plane with its guards, and every plane record: what a call that
    // promises to leave the frame alone must not change.
    std::vector<uint8_t> Snapshot() const;

    static constexpr size_t kGuard = 32;

private:
    struct FreeBlock {
        size_t total;  // guards included
        void operator()(uint8_t* block) const;
    };
    FuzzFrame(FuzzedDataProvider& input, int format, unsigned width, unsigned height);

    int format_;
    unsigned width_, height_;
    std::unique_ptr<MediaCore::CVideoFrame> frame_;
    std::vector<std::unique_ptr<uint8_t, FreeBlock>> planes_;  // guard, rows x pitch, guard
    std::vector<size_t> sizes_;                                // rows x pitch of each
};

struct FreeProcessor {
    void operator()(MediaCore::GVideoProcessor* processor) const { processor->Free(); }
};
using EffectPtr = std::unique_ptr<MediaCore::GVideoProcessor, FreeProcessor>;

// A new effect of this build chosen by id (the next served one when the id is not), so an input
// keeps naming the same effect as more effects land; null when the library refuses.
EffectPtr CreateEffect(FuzzedDataProvider& input);

// A property value as hosts send them: small and boundary numbers, fractions, words that do
// not parse, and raw text. Pass counts ("..._count") repeat the whole frame's work, so theirs
// stay small (negative ones included), or an input would run for hours by design.
std::string FuzzValue(FuzzedDataProvider& input, const std::string& name);

// Sets every pass count of a processor to a small value from the input.
void BoundPassCounts(FuzzedDataProvider& input, MediaCore::GProcessor& processor);

// The property names a processor lists.
std::vector<std::string> PropertyNames(MediaCore::GProcessor& processor);

}  // namespace fuzzing
