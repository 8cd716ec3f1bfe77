// A deterministic host controller for tests: its converters resample plane by plane (nearest
// byte), keep their last frame until the next Convert or Release, and can be told to fail.
#pragma once

#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Stereo3D.h"

namespace testing_support {

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
