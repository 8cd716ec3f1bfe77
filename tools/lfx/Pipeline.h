// Runs decode, effects and encode as a pipeline: one thread reads the source, N workers each
// with their own effect chain convert and process frames, and the calling thread puts them
// back in order and encodes them. Bounded queues keep every stage at the pace of the slowest.
#pragma once

#include <cstdint>
#include <vector>

#include "EffectChain.h"
#include "Encoder.h"
#include "Layout.h"
#include "Progress.h"
#include "Source.h"

namespace lfx {

struct PipelineSettings {
    Layout layout = Layout::Bgra;
    int width = 0;  // of the frames the effects get; the source's cut or grown to it
    int height = 0;
    int workers = 1;
    int64_t frameLimit = -1;  // -1: every frame of the source
};

// Frames written. Throws a UserError (after stopping every thread) when a stage fails, or
// Interrupted when a stopping signal arrives.
int64_t RunPipeline(FrameSource& source, const std::vector<ChainStep>& steps, Encoder& encoder,
                    const PipelineSettings& settings, Progress& progress);

}  // namespace lfx
