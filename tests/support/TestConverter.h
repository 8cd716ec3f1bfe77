// A deterministic host controller for tests: its converters resample plane by plane (nearest
// byte), keep their last frame until the next Convert or Release, and can be told to fail.
#pragma once

#include <memory>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Stereo3D.h"

namespace testing_support {

// A frame over memory it owns; Free on it does nothing, as on frames a converter hands out.
struct OwnedFrame {
    std::unique_ptr<MediaCore::CVideoFrame> frame;
    std::vector<std::vector<uint8_t>> planes;
};

// `in` as `format` at width x height (0 keeps the input's): output plane p, byte (y, x) is input
// plane min(p, last) byte (y * inRows / rows, x * inRowBytes / rowBytes), rows in memory order.
// Pitches are row bytes + `padding`. Null for an unknown format or an input without memory.
std::unique_ptr<OwnedFrame> Resample(MediaCore::GVideoFrame* in, int format, unsigned width,
                                     unsigned height, unsigned padding = 0);

class TestController : public MediaCore::CConverterController {
public:
    enum class Failure { None, NoConverter, NullConvert, HalfSize };
    struct Request {
        int format;
        unsigned width, height;
        int option;
    };

    MediaCore::GFrameConverter* CreateFrameConverter(int format, unsigned width, unsigned height,
                                                     int option) override;

    Failure failure = Failure::None;
    unsigned padding = 0;  // pitch padding of converted frames
    std::vector<Request> requests;
    int live = 0;  // converters made and not yet released
    int converts = 0;
};

}  // namespace testing_support
