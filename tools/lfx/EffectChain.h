// A chain of configured effects run in place on frames of one layout.
#pragma once

#include <string>
#include <vector>

#include "Available.h"
#include "Ffmpeg.h"

namespace lfx {

// An effect as the person asked for it on the command line.
struct EffectRequest {
    std::string name;
    PropertyList properties;
};

// A request checked against the effects this process has.
struct ChainStep {
    const AvailableEffect* effect;
    PropertyList properties;
};

// Checks names, property names and property texts against the effects' ranges; throws a
// UserError on the first problem. Colours come back as the decimal texts the effects read.
std::vector<ChainStep> ResolveChain(const std::vector<EffectRequest>& requests);

// Checks the properties whose range ends at the frame's width or height; throws a UserError.
void CheckFrameBounds(const std::vector<ChainStep>& steps, unsigned width, unsigned height);

// One instance of every step. Effects are single-threaded: each worker thread has its own chain.
class EffectChain {
public:
    // Makes the effects and sets their properties; throws a UserError when the library refuses.
    explicit EffectChain(const std::vector<ChainStep>& steps);

    // Runs every effect on `frame` (BGRA or YUV420P); `index` numbers the frame. A frame that is
    // not writable (still shared with the decoder) is replaced by a frame of our own holding
    // the result. Throws a UserError when an effect reports a failure.
    void Apply(FramePtr& frame, int index);

private:
    struct Instance {
        const AvailableEffect* effect;
        EffectPtr processor;
    };
    std::vector<Instance> effects_;
};

}  // namespace lfx
