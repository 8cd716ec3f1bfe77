#include "Frames.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "libfilter/PixelFormat.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace pylf {

const char* const kFrameContract =
    "a uint8 numpy array H x W x 4 (BGRA), H x W x 3 (with order='bgr' or 'rgb'), "
    "(H*3/2) x W (I420), or a tuple (y, u, v) of YUV420P planes";

namespace {

using MediaCore::PIXFMT_BGRA32;
using MediaCore::PIXFMT_YUV420P;

// Every plane stays within the library's 32-bit offsets; the position record holds 16-bit sides.
constexpr long kMaxPlaneBytes = INT_MAX;
constexpr long kMaxSide = 65535;

[[noreturn]] void Refuse(const std::string& what) {
    throw py::value_error(what);
}

std::string Join(const py::array& a, const ssize_t* values) {
    std::string text = "(";
    for (ssize_t i = 0; i < a.ndim(); ++i)
        text += (i ? ", " : "") + std::to_string(values[i]);
    return text + (a.ndim() == 1 ? ",)" : ")");
}

std::string Shape(const py::array& a) {
    return "shape " + Join(a, a.shape());
}

std::string Strides(const py::array& a) {
    return "strides " + Join(a, a.strides());
}

std::string TypeName(py::handle object) {
    if (py::isinstance<py::array>(object))
        return "a " + std::string(py::str(object.attr("dtype"))) + " array";
    return Py_TYPE(object.ptr())->tp_name;
}

// The byte step along `axis`; an axis of one element, or an empty array, may carry any step, so
// it counts as `usual`.
long Step(const py::array& a, int axis, long usual) {
    return a.shape(axis) <= 1 || a.size() == 0 ? usual : static_cast<long>(a.strides(axis));
}

unsigned char* Data(const py::array& a) {
    return static_cast<unsigned char*>(const_cast<void*>(a.data()));
}

py::array Bytes(py::handle object, const char* what) {
    if (!py::isinstance<py::array_t<uint8_t>>(object)) {
        throw py::type_error(std::string(what) + " must be a uint8 numpy array, not " +
                             TypeName(object) + "; a frame is " + kFrameContract);
    }
    return py::reinterpret_borrow<py::array>(object);
}

void CheckSides(long width, long height) {
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide) {
        Refuse("a frame is 1 to 65535 pixels wide and high, not " + std::to_string(width) + " x " +
               std::to_string(height));
    }
}

void CheckRows(long pitch, long rowBytes, long rows, const std::string& what) {
    if (pitch < rowBytes) {
        Refuse(what + " rows must run down in memory at least " + std::to_string(rowBytes) +
               " bytes apart, not " + std::to_string(pitch));
    }
    if (pitch > kMaxPlaneBytes || pitch * (rows > 0 ? rows - 1 : 0) + rowBytes > kMaxPlaneBytes)
        Refuse(what + " planes are limited to 2 GiB");
}

void SetPlane(Planes& planes, unsigned index, unsigned char* data, long pitch, long rowBytes,
              long rows) {
    planes.data[index] = data;
    planes.pitch[index] = static_cast<int>(pitch);
    planes.rowBytes[index] = static_cast<unsigned>(rowBytes);
    planes.rows[index] = static_cast<unsigned>(rows);
}

Planes Frame(int format, long width, long height, unsigned count) {
    Planes planes;
    planes.format = format;
    planes.width = static_cast<unsigned>(width);
    planes.height = static_cast<unsigned>(height);
    planes.count = count;
    return planes;
}

Planes BgraPlanes(const py::array& a) {
    const long height = a.shape(0), width = a.shape(1);
    CheckSides(width, height);
    if (Step(a, 2, 1) != 1 || Step(a, 1, 4) != 4) {
        Refuse("BGRA pixels must be 4 adjacent bytes each, side by side along a row, not " +
               Strides(a) + " (np.ascontiguousarray makes such an array)");
    }
    const long pitch = Step(a, 0, width * 4);
    CheckRows(pitch, width * 4, height, "BGRA");
    Planes planes = Frame(PIXFMT_BGRA32, width, height, 1);
    SetPlane(planes, 0, Data(a), pitch, width * 4, height);
    return planes;
}

// OpenCV's and PyAV's I420: the Y rows, then the U plane and the V plane, each packed tight.
Planes I420Planes(const py::array& a) {
    const long rows = a.shape(0), width = a.shape(1);
    const long height = rows / 3 * 2;
    if (rows % 3 != 0 || width % 2 != 0 || Step(a, 1, 1) != 1 || Step(a, 0, width) != width) {
        Refuse(
            "a two-dimensional frame is I420: a C-contiguous (H*3/2) x W array with H and W "
            "even, not " +
            Shape(a) + ", " + Strides(a));
    }
    CheckSides(width, height);
    CheckRows(width, width, rows, "I420");
    Planes planes = Frame(PIXFMT_YUV420P, width, height, 3);
    unsigned char* y = Data(a);
    unsigned char* u = y + width * height;
    const long chroma = (width / 2) * (height / 2);
    SetPlane(planes, 0, y, width, width, height);
    SetPlane(planes, 1, u, width / 2, width / 2, height / 2);
    SetPlane(planes, 2, u + chroma, width / 2, width / 2, height / 2);
    return planes;
}

// Chroma planes of odd-sized frames may be rounded down (the library's own layout) or up
// (FFmpeg's); the effects touch the rounded-down part.
bool FitsChroma(long side, long lumaSide) {
    return side == lumaSide / 2 || side == (lumaSide + 1) / 2;
}

Planes YuvPlanes(const py::array (&p)[3]) {
    static const char* const names[] = {"y", "u", "v"};
    for (int i = 0; i < 3; ++i) {
        if (p[i].ndim() != 2)
            Refuse(std::string("the ") + names[i] + " plane must be two-dimensional, not " +
                   Shape(p[i]));
    }
    const long height = p[0].shape(0), width = p[0].shape(1);
    CheckSides(width, height);
    Planes planes = Frame(PIXFMT_YUV420P, width, height, 3);
    for (unsigned i = 0; i < 3; ++i) {
        const long rows = p[i].shape(0), rowBytes = p[i].shape(1);
        if (i > 0 && (!FitsChroma(rows, height) || !FitsChroma(rowBytes, width))) {
            Refuse(std::string("the ") + names[i] + " plane of a " + std::to_string(height) +
                   " x " + std::to_string(width) + " YUV420P frame is half its height and width " +
                   "(rounded down or up), not " + Shape(p[i]));
        }
        if (Step(p[i], 1, 1) != 1)
            Refuse(std::string("the ") + names[i] + " plane's samples must be adjacent, not " +
                   Strides(p[i]));
        const long pitch = Step(p[i], 0, rowBytes);
        CheckRows(pitch, rowBytes, rows, std::string("the ") + names[i] + " plane's");
        SetPlane(planes, i, Data(p[i]), pitch, rowBytes, rows);
    }
    return planes;
}

std::string OrderName(py::handle order) {
    if (order.is_none()) return "";
    if (!py::isinstance<py::str>(order))
        throw py::type_error("order must be 'bgr', 'rgb' or None, not " + TypeName(order));
    return order.cast<std::string>();
}

void CheckWritable(const py::array& a) {
    if (!a.writeable()) {
        Refuse(
            "the array is read-only, and effect(frame) changes it in place; "
            "effect.apply(frame) returns a changed copy instead");
    }
}

// A new array of the same shape whose data starts on a 64-byte boundary, as the library's
// widest vector loads like it; NumPy's own large arrays start 16 bytes past one.
py::array NewLike(const py::array& a) {
    constexpr size_t kAlignment = 64;
    const size_t bytes = static_cast<size_t>(a.size());
    void* data = std::aligned_alloc(kAlignment, (bytes / kAlignment + 1) * kAlignment);
    if (data == nullptr) throw std::bad_alloc();
    py::capsule owner(data, [](void* block) { std::free(block); });
    return py::array_t<uint8_t>(std::vector<ssize_t>(a.shape(), a.shape() + a.ndim()),
                                static_cast<uint8_t*>(data), owner);
}

// A block per thread for three-channel frames in BGRA, kept for the thread's next frame.
unsigned char* Scratch(size_t bytes) {
    thread_local std::unique_ptr<unsigned char[]> block;
    thread_local size_t size = 0;
    if (bytes > size) {
        block.reset();
        block.reset(new unsigned char[bytes]);
        size = bytes;
    }
    return block.get();
}

void CopyPlanes(const Planes& from, const Planes& to) {
    for (unsigned i = 0; i < from.count; ++i) {
        for (unsigned row = 0; row < from.rows[i]; ++row) {
            std::memcpy(to.data[i] + static_cast<size_t>(row) * to.pitch[i],
                        from.data[i] + static_cast<size_t>(row) * from.pitch[i], from.rowBytes[i]);
        }
    }
}

// Blue-first or red-first triples to BGRA with an opaque alpha, and back, one row at a time.
void ToBgraRow(const unsigned char* s, unsigned char* d, unsigned from, unsigned width,
               bool redFirst) {
    for (unsigned x = from; x < width; ++x) {
        d[4 * x] = s[3 * x + (redFirst ? 2 : 0)];
        d[4 * x + 1] = s[3 * x + 1];
        d[4 * x + 2] = s[3 * x + (redFirst ? 0 : 2)];
        d[4 * x + 3] = 255;
    }
}

void FromBgraRow(const unsigned char* s, unsigned char* d, unsigned from, unsigned width,
                 bool redFirst) {
    for (unsigned x = from; x < width; ++x) {
        d[3 * x + (redFirst ? 2 : 0)] = s[4 * x];
        d[3 * x + 1] = s[4 * x + 1];
        d[3 * x + (redFirst ? 0 : 2)] = s[4 * x + 2];
    }
}

#if defined(__x86_64__)
// Four pixels per step, one byte shuffle each way. A step reads or writes 16 bytes of the
// three-byte row, so the steps stop two pixels early and the plain loop finishes the row.
__attribute__((target("ssse3"))) void ToBgraRowSsse3(const unsigned char* s, unsigned char* d,
                                                     unsigned width, bool redFirst) {
    const __m128i order = redFirst
                              ? _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1)
                              : _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    unsigned x = 0;
    for (; x + 6 <= width; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * x),
                         _mm_or_si128(_mm_shuffle_epi8(v, order), alpha));
    }
    ToBgraRow(s, d, x, width, redFirst);
}

__attribute__((target("ssse3"))) void FromBgraRowSsse3(const unsigned char* s, unsigned char* d,
                                                       unsigned width, bool redFirst) {
    const __m128i order =
        redFirst ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
                 : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    unsigned x = 0;
    for (; x + 6 <= width; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * x), _mm_shuffle_epi8(v, order));
    }
    FromBgraRow(s, d, x, width, redFirst);
}

const bool kHasSsse3 = __builtin_cpu_supports("ssse3");
#endif

void ToBgra(const PackedRgb& c, const Planes& work) {
    for (unsigned y = 0; y < work.height; ++y) {
        const unsigned char* s = c.in + static_cast<long>(y) * c.inPitch;
        unsigned char* d = work.data[0] + static_cast<size_t>(y) * work.pitch[0];
#if defined(__x86_64__)
        if (kHasSsse3) {
            ToBgraRowSsse3(s, d, work.width, c.rgb);
            continue;
        }
#endif
        ToBgraRow(s, d, 0, work.width, c.rgb);
    }
}

void FromBgra(const PackedRgb& c, const Planes& work) {
    for (unsigned y = 0; y < work.height; ++y) {
        const unsigned char* s = work.data[0] + static_cast<size_t>(y) * work.pitch[0];
        unsigned char* d = c.out + static_cast<long>(y) * c.outPitch;
#if defined(__x86_64__)
        if (kHasSsse3) {
            FromBgraRowSsse3(s, d, work.width, c.rgb);
            continue;
        }
#endif
        FromBgraRow(s, d, 0, work.width, c.rgb);
    }
}

}  // namespace

CFrameJob::CFrameJob(py::handle frame, py::handle order, bool inPlace, py::object* result) {
    if (py::isinstance<py::array>(frame)) {
        TakeArray(Bytes(frame, "the frame"), order, inPlace, result);
    } else if ((PyTuple_Check(frame.ptr()) || PyList_Check(frame.ptr())) && py::len(frame) == 3) {
        if (!order.is_none()) Refuse("order applies to H x W x 3 arrays, not YUV420P planes");
        TakePlanes(py::reinterpret_borrow<py::sequence>(frame), inPlace, result);
    } else {
        throw py::type_error(std::string("expected ") + kFrameContract + ", not " +
                             TypeName(frame));
    }
}

void CFrameJob::TakeArray(const py::array& a, py::handle order, bool inPlace, py::object* result) {
    const std::string name = OrderName(order);
    const bool packed = a.ndim() == 3 && (a.shape(2) == 4 || a.shape(2) == 3);
    if (!packed && a.ndim() != 2)
        Refuse(std::string("expected ") + kFrameContract + ", not " + Shape(a));
    if (inPlace) CheckWritable(a);
    if (a.ndim() == 2 || a.shape(2) == 4) {
        if (a.ndim() == 2 ? !name.empty() : !name.empty() && name != "bgra")
            Refuse("order applies to H x W x 3 arrays; " + Shape(a) + " is " +
                   (a.ndim() == 2 ? "I420" : "BGRA"));
        work_ = a.ndim() == 2 ? I420Planes(a) : BgraPlanes(a);
        if (!inPlace) {
            source_ = work_;
            copy_ = true;
            py::array copy = NewLike(a);
            work_ = a.ndim() == 2 ? I420Planes(copy) : BgraPlanes(copy);
            *result = copy;
        }
        return;
    }
    if (name != "bgr" && name != "rgb") {
        Refuse(
            "an H x W x 3 frame needs its channel order: order='bgr' (OpenCV) or "
            "order='rgb' (Pillow), not " +
            (name.empty() ? std::string("None") : "'" + name + "'"));
    }
    const long height = a.shape(0), width = a.shape(1);
    CheckSides(width, height);
    if (Step(a, 2, 1) != 1 || Step(a, 1, 3) != 3)
        Refuse("pixels must be 3 adjacent bytes each, side by side along a row, not " + Strides(a));
    rgb_.inPitch = Step(a, 0, width * 3);
    CheckRows(rgb_.inPitch, width * 3, height, "three-channel");
    rgb_.in = Data(a);
    rgb_.rgb = name == "rgb";
    rgb_.out = Data(a);
    rgb_.outPitch = rgb_.inPitch;
    if (!inPlace) {
        py::array copy = NewLike(a);
        rgb_.out = Data(copy);
        rgb_.outPitch = width * 3;
        *result = copy;
    }
    work_ = Frame(PIXFMT_BGRA32, width, height, 1);
    SetPlane(work_, 0, Scratch(static_cast<size_t>(width) * height * 4), width * 4, width * 4,
             height);
    converts_ = true;
}

void CFrameJob::TakePlanes(const py::sequence& planes, bool inPlace, py::object* result) {
    static const char* const names[] = {"the y plane", "the u plane", "the v plane"};
    py::array arrays[3];
    for (int i = 0; i < 3; ++i) {
        arrays[i] = Bytes(planes[i], names[i]);
        if (inPlace) CheckWritable(arrays[i]);
    }
    work_ = YuvPlanes(arrays);
    if (inPlace) return;
    source_ = work_;
    copy_ = true;
    py::array copies[3] = {NewLike(arrays[0]), NewLike(arrays[1]), NewLike(arrays[2])};
    work_ = YuvPlanes(copies);
    *result = py::make_tuple(copies[0], copies[1], copies[2]);
}

void CFrameJob::Before() {
    if (copy_) CopyPlanes(source_, work_);
    if (converts_) ToBgra(rgb_, work_);
}

void CFrameJob::After() {
    if (converts_) FromBgra(rgb_, work_);
}

}  // namespace pylf
