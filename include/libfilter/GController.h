// What the library asks of its host engine: frame converters.
#pragma once

#include "libfilter/GVideoFrame.h"

namespace MediaCore {

// Stereo presentations.
enum Type3D : unsigned {
    TYPE3D_NONE = 0,
    TYPE3D_RED_BLUE = 1,
    TYPE3D_GREEN_MAGENTA = 2,
    TYPE3D_SIDE_BY_SIDE = 3,
    TYPE3D_TOP_BOTTOM = 4,
};

// A host converter. A frame returned by Convert stays owned by the converter until its next
// Convert or its Release; calling Free on it must be harmless. Slot order is ABI.
class GFrameConverter {
public:
    virtual void GetTarget(int* option, int* pixelFormat) = 0;
    virtual GVideoFrame* Convert(GVideoFrame* in) = 0;
    virtual void Release() = 0;

protected:
    ~GFrameConverter() = default;
};

// The host controller. The library calls only slot 7. Slot order is ABI.
class GController {
public:
    virtual void Reserved0() = 0;
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;
    virtual void Reserved3() = 0;
    virtual void Reserved4() = 0;
    virtual void Reserved5() = 0;
    virtual void Reserved6() = 0;
    virtual GFrameConverter* CreateFrameConverter(int pixelFormat, unsigned width, unsigned height,
                                                  int option) = 0;

protected:
    ~GController() = default;
};

}  // namespace MediaCore
