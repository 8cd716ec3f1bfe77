// The frame copy between random frames: mismatched formats and sizes, different pitches, row
// orders and crops, frames without memory, border data, clones and sub frames. The copy may
// refuse, but never reads or writes outside either frame's planes.
#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

#include "FuzzSupport.h"
#include "libfilter/libfilter.h"

using namespace MediaCore;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    auto source = fuzzing::FuzzFrame::Make(input);
    if (!source) return 0;
    // Mostly a frame the copy accepts, so the plane copy itself is what runs.
    auto target = input.ConsumeIntegralInRange(0, 3) != 0
                      ? fuzzing::FuzzFrame::MakeLike(input, *source)
                      : fuzzing::FuzzFrame::Make(input);
    if (!target) return 0;
    CVideoFrame& src = source->Frame();
    CVideoFrame& dst = target->Frame();
    const std::vector<uint8_t> border =
        input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, 64));
    src.SetBorderData(const_cast<uint8_t*>(border.data()), static_cast<int>(border.size()));
    src.SetTimeStamp(input.ConsumeIntegral<int>());
    if (input.ConsumeBool()) src.CopySubsetFrame(&dst);
    CopyVideoFrame(&dst, &src);
    CopyVideoFrame(&src, &src);
    CopyVideoFrame(nullptr, &src);
    CopyVideoFrame(&dst, nullptr);
    // A clone owns one block holding every plane; copying back into it must fit as well.
    if (GVideoFrame* clone = src.Clone()) {
        CopyVideoFrame(clone, &src);
        CopyVideoFrame(&dst, clone);
        clone->Free();
    }
    uint8_t sample[3], out[3];
    input.ConsumeData(sample, sizeof sample);
    MergeYUVRedBlue(&sample[0], &sample[1], &sample[2], nullptr, nullptr, nullptr, &out[0], &out[1],
                    &out[2]);
    return 0;
}
