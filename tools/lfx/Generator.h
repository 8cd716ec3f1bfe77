// The built-in clip used when no input is given: scrolling colour bars, a gray ramp, a hue
// gradient, a fine checkerboard and two moving shapes, so every effect has something to show.
#pragma once

#include "Source.h"

namespace lfx {

struct ClipSettings {
    int width = 1280;
    int height = 720;
    int rate = 25;  // frames a second
    double seconds = 3.0;
};

class GeneratedSource final : public FrameSource {
public:
    // Throws a UserError for a size or length that makes no clip.
    explicit GeneratedSource(const ClipSettings& settings);

    const SourceInfo& Info() const override { return info_; }
    bool Next(StreamItem& item) override;

    // Frame `index` of the clip, in BGRA, time stamp `index` in 1/rate units.
    FramePtr Draw(int index) const;

private:
    ClipSettings settings_;
    SourceInfo info_;
    int next_ = 0;
};

}  // namespace lfx
