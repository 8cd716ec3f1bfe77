// NumPy arrays as the library's frames: the layouts the module takes, checked with the
// interpreter held, and the pixel work around the effects, done with it released.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

namespace pylf {

namespace py = pybind11;

// What the caller's message says the module takes.
extern const char* const kFrameContract;

// Where a frame's pixels are, plane by plane, and how much of each plane the caller's arrays
// hold (a copy moves that much).
struct Planes {
    int format = 0;
    unsigned width = 0;
    unsigned height = 0;
    unsigned count = 0;
    unsigned char* data[3] = {};
    int pitch[3] = {};
    unsigned rowBytes[3] = {};
    unsigned rows[3] = {};
};

// Three-channel pixels, which the effects see as BGRA: taken in before and written out after.
struct PackedRgb {
    const unsigned char* in = nullptr;
    long inPitch = 0;
    unsigned char* out = nullptr;
    long outPitch = 0;
    bool rgb = false;  // red first (Pillow); else blue first (OpenCV)
};

// One call's frame: what the effects run on, and the copies or conversions around them.
class CFrameJob {
public:
    // Checks `frame` and `order` (None or a string); throws TypeError or ValueError naming what
    // was expected. In place the pixels must be writable; otherwise `result` receives a new
    // array (or tuple of planes) of the same shape, which the effects work on.
    CFrameJob(py::handle frame, py::handle order, bool inPlace, py::object* result);

    // Without the interpreter: copies the input into the result, or converts three channels
    // into BGRA, so that Work() holds the pixels the effects change.
    void Before();
    const Planes& Work() const { return work_; }
    // Without the interpreter: writes converted pixels back to three channels.
    void After();

private:
    void TakeArray(const py::array& array, py::handle order, bool inPlace, py::object* result);
    void TakePlanes(const py::sequence& planes, bool inPlace, py::object* result);

    Planes work_;
    Planes source_;  // for a copy: the caller's pixels, read once
    bool copy_ = false;
    bool converts_ = false;
    PackedRgb rgb_;
};

}  // namespace pylf
