// Every effect the build serves on frames of any format, size, padding, row order and crop,
// with property values set between frames, at every instruction-set level. A read or write
// outside a plane, undefined behaviour or an exception reaching the host is a crash, and so is
// any change ProcFrame makes to the frame it was given, which it works on a copy of.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "core/Simd.h"

using namespace MediaCore;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    Simd::SetLevelLimit(static_cast<Simd::Level>(input.ConsumeIntegralInRange(0, 3)));
    const fuzzing::EffectPtr effect = fuzzing::CreateEffect(input);
    if (!effect) return 0;
    const std::vector<std::string> names = fuzzing::PropertyNames(*effect);
    // Several frames on one effect: state kept from an earlier frame (tables, held views,
    // drawn noise) must suit the next one, whatever its size.
    const int frames = input.ConsumeIntegralInRange(1, 3);
    for (int f = 0; f < frames && input.remaining_bytes() > 0; ++f) {
        const int settings = input.ConsumeIntegralInRange(0, 4);
        for (int s = 0; s < settings && !names.empty(); ++s) {
            const std::string& name =
                names[input.ConsumeIntegralInRange<size_t>(0, names.size() - 1)];
            effect->SetProperty(name.c_str(), fuzzing::FuzzValue(input, name).c_str());
        }
        auto frame = fuzzing::FuzzFrame::Make(input);
        if (!frame) continue;
        ImagePostion position{};
        if (input.ConsumeBool()) {
            effect->ProcFrameInPlace(&position, f, &frame->Frame());
        } else {
            const std::vector<uint8_t> before = frame->Snapshot();
            effect->ProcFrame(&position, f, &frame->Frame());
            if (frame->Snapshot() != before) {
                std::fprintf(stderr, "ProcFrame changed the frame it was given\n");
                std::abort();
            }
        }
    }
    return 0;
}
