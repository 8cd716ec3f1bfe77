// Rotation by a quarter turn: scale so the turned picture fits, turn it onto a black frame of
// the input's size, and write that back into the input.
#include "libfilter/Rotate90X.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/PlaneCopy.h"
#include "core/Planes.h"
#include "core/SimdOps.h"
#include "libfilter/SystemBase.h"

namespace MediaCore {

namespace {

constexpr const char kFile[] = "Rotate90X.cpp";
// The fourth converter argument: scaling, and plain format conversion.
constexpr int kScalerOption = 4;
constexpr int kFormatOption = 16;

// What the turn reads and writes. Output pixel (r, c), for r < sw and c < sh, lands at
// (y0 + r, x0 + c) and shows source pixel (SourceRow(c), SourceColumn(r)).
struct TurnGeometry {
    int sw, sh, x0, y0, direction;
    Plane src[3];
    Plane dst[3];

    unsigned Rows(const Plane& p) const { return p.Empty() ? 0 : p.rows; }

    // Direction 1 takes column sw - r, direction 2 row sh - c: neither subtracts 1, so the
    // first output row (1) or column (2) repeats its neighbour after the clamp.
    unsigned SourceRow(int c) const {
        const int row = direction == 1 ? c : sh - c;
        return std::min(
            {static_cast<unsigned>(row), static_cast<unsigned>(sh - 1), src[0].rows - 1});
    }
    unsigned SourceColumn(int r) const {
        const int column = direction == 1 ? sw - r : r;
        return std::min(
            {static_cast<unsigned>(column), static_cast<unsigned>(sw - 1), src[0].rowBytes - 1});
    }
    // The chroma sample of a luma position, kept inside the chroma plane.
    const uint8_t& Chroma(unsigned plane, unsigned row, unsigned column) const {
        const Plane& p = src[plane];
        return p.Row(std::min(row / 2, p.rows - 1))[std::min(column / 2, p.rowBytes - 1)];
    }
};

// Scalar rule: every output pixel writes its Y and, at half its position, its U and V, so in
// each 2 x 2 block the last pixel written gives the chroma. Writes that would leave a plane of
// the result (odd sizes) are dropped.
void TurnYuvScalar(const TurnGeometry& g, std::vector<const uint8_t*>&, std::vector<uint32_t>&) {
    for (int r = 0; r < g.sw; ++r) {
        const unsigned column = g.SourceColumn(r);
        const unsigned oy = static_cast<unsigned>(g.y0 + r);
        for (int c = 0; c < g.sh; ++c) {
            const unsigned row = g.SourceRow(c);
            const unsigned ox = static_cast<unsigned>(g.x0 + c);
            if (oy < g.Rows(g.dst[0]) && ox < g.dst[0].rowBytes) {
                g.dst[0].Row(oy)[ox] = g.src[0].Row(row)[column];
            }
            for (unsigned p = 1; p < 3; ++p) {
                if (oy / 2 < g.Rows(g.dst[p]) && ox / 2 < g.dst[p].rowBytes) {
                    g.dst[p].Row(oy / 2)[ox / 2] = g.Chroma(p, row, column);
                }
            }
        }
    }
}

// out[r][c] = rows[c][columns[r]] for r < rowCount, c < columnCount, element by element.
void GatherTransposed(uint8_t* out, size_t pitch, const uint8_t* const* rows,
                      const uint32_t* columns, unsigned r0, unsigned r1, unsigned c0, unsigned c1) {
    for (unsigned r = r0; r < r1; ++r) {
        uint8_t* line = out + r * pitch;
        for (unsigned c = c0; c < c1; ++c)
            line[c] = rows[c][columns[r]];
    }
}

#if LF_X86_64
// The same gather in 16 x 16 tiles wherever a tile's source columns run in steps of +1 or -1
// (then 16 loads of 16 bytes and one transpose give the tile), element by element elsewhere.
// Tiles are one 16-byte vector wide.
struct GatherTransposedVectors {
    // Transposes the 16 x 16 bytes held in m[0..15] (m[j] byte i becomes m[i] byte j).
    template <class I>
    static void Transpose16(typename I::V m[16]) {
        typename I::V t[16];
        for (int i = 0; i < 8; ++i) {
            I::UnpackLo8(t[i], m[2 * i], m[2 * i + 1]);
            I::UnpackHi8(t[i + 8], m[2 * i], m[2 * i + 1]);
        }
        for (int i = 0; i < 4; ++i) {
            I::UnpackLo16(m[i], t[2 * i], t[2 * i + 1]);
            I::UnpackHi16(m[i + 4], t[2 * i], t[2 * i + 1]);
            I::UnpackLo16(m[i + 8], t[8 + 2 * i], t[8 + 2 * i + 1]);
            I::UnpackHi16(m[i + 12], t[8 + 2 * i], t[8 + 2 * i + 1]);
        }
        for (int q = 0; q < 4; ++q) {
            I::UnpackLo32(t[4 * q + 0], m[4 * q + 0], m[4 * q + 1]);
            I::UnpackHi32(t[4 * q + 1], m[4 * q + 0], m[4 * q + 1]);
            I::UnpackLo32(t[4 * q + 2], m[4 * q + 2], m[4 * q + 3]);
            I::UnpackHi32(t[4 * q + 3], m[4 * q + 2], m[4 * q + 3]);
        }
        for (int q = 0; q < 4; ++q) {
            I::UnpackLo64(m[4 * q + 0], t[4 * q + 0], t[4 * q + 2]);
            I::UnpackHi64(m[4 * q + 1], t[4 * q + 0], t[4 * q + 2]);
            I::UnpackLo64(m[4 * q + 2], t[4 * q + 1], t[4 * q + 3]);
            I::UnpackHi64(m[4 * q + 3], t[4 * q + 1], t[4 * q + 3]);
        }
    }

    template <class I>
    static void Run(uint8_t* out, size_t pitch, const uint8_t* const* rows, const uint32_t* columns,
                    unsigned rowCount, unsigned columnCount) {
        static_assert(I::kBytes == 16, "a tile is one 16-byte vector wide");
        const unsigned tiledColumns = columnCount & ~15u;
        unsigned r = 0;
        for (; r + 16 <= rowCount; r += 16) {
            const bool up = columns[r + 15] == columns[r] + 15;
            const bool down = columns[r] == columns[r + 15] + 15;
            bool steps = up || down;
            for (unsigned i = 1; steps && i < 16; ++i)
                steps = columns[r + i] == (up ? columns[r] + i : columns[r] - i);
            if (!steps) {
                GatherTransposed(out, pitch, rows, columns, r, r + 16, 0, columnCount);
                continue;
            }
            const uint32_t first = up ? columns[r] : columns[r + 15];
            for (unsigned c = 0; c < tiledColumns; c += 16) {
                typename I::V m[16];
                for (unsigned j = 0; j < 16; ++j)
                    I::Load(m[j], rows[c + j] + first);
                Transpose16<I>(m);
                for (unsigned i = 0; i < 16; ++i)
                    I::Store(out + (r + (up ? i : 15 - i)) * pitch + c, m[i]);
            }
            GatherTransposed(out, pitch, rows, columns, r, r + 16, tiledColumns, columnCount);
        }
        GatherTransposed(out, pitch, rows, columns, r, rowCount, 0, columnCount);
    }
};

// The rule's result plane by plane: luma is a plain gather; each chroma sample of the result
// takes the value of the last output pixel that writes it, worked out per chroma row and column.
void TurnYuvSse2(const TurnGeometry& g, std::vector<const uint8_t*>& rowTable,
                 std::vector<uint32_t>& columnTable) {
    auto gather = [&](const Plane& dst, unsigned top, unsigned left, unsigned rowCount,
                      unsigned columnCount, auto sourceRow, auto sourceColumn) {
        if (dst.Empty() || top >= dst.rows || left >= dst.rowBytes) return;
        rowCount = std::min(rowCount, dst.rows - top);
        columnCount = std::min(columnCount, dst.rowBytes - left);
        rowTable.resize(columnCount);
        columnTable.resize(rowCount);
        for (unsigned c = 0; c < columnCount; ++c)
            rowTable[c] = sourceRow(c);
        for (unsigned r = 0; r < rowCount; ++r)
            columnTable[r] = sourceColumn(r);
        Simd::RunSse2<GatherTransposedVectors>(dst.Row(top) + left, dst.pitch, rowTable.data(),
                                               columnTable.data(), rowCount, columnCount);
    };
    const auto sw = static_cast<unsigned>(g.sw), sh = static_cast<unsigned>(g.sh);
    const auto x0 = static_cast<unsigned>(g.x0), y0 = static_cast<unsigned>(g.y0);
    gather(
        g.dst[0], y0, x0, sw, sh, [&](unsigned c) { return g.src[0].Row(g.SourceRow(c)); },
        [&](unsigned r) { return g.SourceColumn(r); });
    // Chroma row R is written last by output row min(2R + 1 - y0, sw - 1), and chroma column C
    // by output column min(2C + 1 - x0, sh - 1).
    const unsigned top = y0 / 2, left = x0 / 2;
    const unsigned chromaRows = (y0 + sw - 1) / 2 + 1 - top;
    const unsigned chromaColumns = (x0 + sh - 1) / 2 + 1 - left;
    for (unsigned p = 1; p < 3; ++p) {
        const Plane& src = g.src[p];
        gather(
            g.dst[p], top, left, chromaRows, chromaColumns,
            [&](unsigned k) {
                const unsigned c = std::min(2 * (left + k) + 1 - x0, sh - 1);
                return src.Row(std::min(g.SourceRow(static_cast<int>(c)) / 2, src.rows - 1));
            },
            [&](unsigned k) {
                const unsigned r = std::min(2 * (top + k) + 1 - y0, sw - 1);
                return std::min(g.SourceColumn(static_cast<int>(r)) / 2, src.rowBytes - 1);
            });
    }
}
#endif

using TurnYuvFn = void (*)(const TurnGeometry& g, std::vector<const uint8_t*>& rowTable,
                           std::vector<uint32_t>& columnTable);

constexpr Simd::Variant<TurnYuvFn> kTurnYuv[] = {
    {Simd::kScalar, TurnYuvScalar},
#if LF_X86_64
    {Simd::kSse2, TurnYuvSse2},
#endif
};

// Packed BGRA: blue, green and red of each output pixel from the scaled frame; alpha is not
// written. No flow of the effect reaches it (BGRA input is turned as YUV), so it stays plain.
void TurnBgra(const TurnGeometry& g) {
    const Plane& src = g.src[0];
    const Plane& dst = g.dst[0];
    const unsigned srcPixels = src.rowBytes / 4, dstPixels = dst.rowBytes / 4;
    if (srcPixels == 0) return;
    for (int r = 0; r < g.sw; ++r) {
        const unsigned oy = static_cast<unsigned>(g.y0 + r);
        if (oy >= g.Rows(dst)) break;
        const unsigned column = std::min({static_cast<unsigned>(g.direction == 1 ? g.sw - r : r),
                                          static_cast<unsigned>(g.sw - 1), srcPixels - 1});
        for (int c = 0; c < g.sh; ++c) {
            const unsigned ox = static_cast<unsigned>(g.x0 + c);
            if (ox >= dstPixels) break;
            const unsigned row = g.SourceRow(c);
            std::memcpy(dst.Row(oy) + size_t{ox} * 4, src.Row(row) + size_t{column} * 4, 3);
        }
    }
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kRotate90Properties[] = {
    {"rotate90_angle", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 360, RangeBound::Fixed,
     "90 or 270 picks the turn; other angles keep the last one"},
};
constexpr ShowcaseSetting kRotate90Showcase[] = {{"rotate90_angle", 90, RangeBound::Fixed}};
constexpr EffectDescription kRotate90 = {
    AVPROCESSOR_ROTATE90,
    "rotate90",
    "quarter turn (rotate90_angle 90 or 270), scaled to fit the frame",
    EffectMaking::Factory,
    "MediaCore::CRotate90X",
    true,
    MakeEffectWithController<CRotate90X>,
    kRotate90Properties,
    CountOf(kRotate90Properties),
    kRotate90Showcase,
    CountOf(kRotate90Showcase)};
LF_DESCRIBE_EFFECT(kRotate90);

CRotate90X::CRotate90X(GController* controller)
    : CImageEffectBase(AVPROCESSOR_ROTATE90), controller_(controller) {}

// Converters first, then the result frame with its memory.
CRotate90X::~CRotate90X() {
    scaled_ = nullptr;
    scaler_.reset();
    toYuv_.reset();
    fromYuv_.reset();
    bgraToYuv_.reset();
    yuvToBgra_.reset();
    ReleaseResult();
}

int CRotate90X::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CImageEffectBase::OnSetProperty(name, node);
    if (name == "rotate90_angle") {
        int angle = node.parsed.i32;
        if (angle < 0) angle += 360;
        // Other angles (0, 180, ...) keep the direction in force.
        if (angle == 90) direction_ = 1;
        if (angle == 270) direction_ = 2;
    }
    return result;
}

bool CRotate90X::ProcFrameInner(ImagePostion* position, int, GVideoFrame* frame) {
    return LF_GUARDED(kFile, [&] { return Rotate(position, frame); });
}

bool CRotate90X::Rotate(ImagePostion* position, GVideoFrame* frame) {
    LF_REQUIRE(kFile, frame);
    LF_REQUIRE(kFile, position);
    const int format = frame->GetPixelFormat();
    if (format == PIXFMT_YUV420P) return RotateYuv(position, frame);
    if (format == PIXFMT_BGRA32) {
        return RotateConverted(position, frame, bgraToYuv_, yuvToBgra_, format);
    }
    if (format != otherFormat_) {
        toYuv_.reset();
        fromYuv_.reset();
        otherFormat_ = format;
    }
    return RotateConverted(position, frame, toYuv_, fromYuv_, format);
}

// BGRA asks for its way back first, other formats for the way to YUV first.
void CRotate90X::PrepareConverters(ConverterPtr& toYuv, ConverterPtr& back, int format) {
    if (toYuv && back) return;
    LF_REQUIRE(kFile, controller_);
    auto make = [&](ConverterPtr& converter, int target) {
        if (!converter) {
            converter.reset(controller_->CreateFrameConverter(target, 0, 0, kFormatOption));
        }
    };
    if (format == PIXFMT_BGRA32) make(back, format);
    make(toYuv, PIXFMT_YUV420P);
    make(back, format);
    LF_REQUIRE(kFile, back.get());
    LF_REQUIRE(kFile, toYuv.get());
}

// Other formats are turned as YUV 4:2:0 and converted back; packed BGRA gets only plane 0 back.
bool CRotate90X::RotateConverted(ImagePostion* position, GVideoFrame* frame, ConverterPtr& toYuv,
                                 ConverterPtr& back, int format) {
    PrepareConverters(toYuv, back, format);
    GVideoFrame* yuv = toYuv->Convert(frame);
    LF_REQUIRE(kFile, yuv);
    if (!RotateYuv(position, yuv)) return false;
    GVideoFrame* turned = back->Convert(yuv);
    LF_REQUIRE(kFile, turned);
    CopyPlanesInto(frame, turned, format == PIXFMT_BGRA32 ? 1 : turned->GetBufferCount());
    return true;
}

bool CRotate90X::RotateYuv(ImagePostion* position, GVideoFrame* frame) {
    unsigned width = 0, height = 0;
    frame->GetDimension(&width, &height);
    if (width != inputWidth_ || height != inputHeight_) {
        scaled_ = nullptr;
        scaler_.reset();
        ReleaseResult();
    }
    if (!scaler_ && !PrepareImageCvt(frame)) return false;
    if (!ResultReady() && !PrepareRstFrame(static_cast<unsigned>(workingFormat_), frame)) {
        LF_RAISE(kFile, "rotate x effect can not prepare result frame");
    }
    scaled_ = scaler_->Convert(frame);
    LF_REQUIRE(kFile, scaled_);
    int direction = direction_;
    if (!frame->IsTopDown()) direction = direction == 1 ? 2 : direction == 2 ? 1 : direction;
    Turn(result_.get(), direction, workingFormat_ == PIXFMT_BGRA32);
    const unsigned planes = frame->GetBufferCount();
    CopyPlanesInto(frame, result_.get(), planes);
    position->left = static_cast<uint16_t>(x0_);
    position->top = static_cast<uint16_t>(y0_);
    position->word0 = 0;
    position->word1 = 3;
    position->width = static_cast<uint16_t>(sh_);
    position->height = static_cast<uint16_t>(sw_);
    return true;
}

bool CRotate90X::PrepareImageCvt(GVideoFrame* frame) {
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, frame);
        const int format = frame->GetPixelFormat();
        if (format != PIXFMT_YUV420P && format != PIXFMT_BGRA32) {
            LF_RAISE(kFile, "rotate effect only support BGRA, yuv420");
        }
        workingFormat_ = format;
        unsigned w = 0, h = 0;
        frame->GetDimension(&w, &h);
        if (uint64_t{w} * h == 0) LF_RAISE(kFile, "rotate image effect find input image w/h is 0");
        // Scaled so that the turned picture (sh wide, sw high) fits; both sides even.
        const double scale =
            static_cast<double>(std::min(w, h)) / static_cast<double>(std::max(w, h));
        inputWidth_ = w;
        inputHeight_ = h;
        sh_ = static_cast<int>(h * scale) & ~1;
        sw_ = static_cast<int>(w * scale) & ~1;
        scaled_ = nullptr;
        scaler_.reset();
        LF_REQUIRE(kFile, controller_);
        scaler_.reset(controller_->CreateFrameConverter(workingFormat_, static_cast<unsigned>(sw_),
                                                        static_cast<unsigned>(sh_), kScalerOption));
        LF_REQUIRE(kFile, scaler_.get());
        return true;
    });
}

bool CRotate90X::PrepareRstFrame(unsigned format, GVideoFrame* input) {
    return LF_GUARDED(kFile, [&] {
        if (format != PIXFMT_YUV420P && format != PIXFMT_BGRA32) {
            LF_RAISE(kFile, SystemBase::GStringFormat::Format(
                                "rotate 90 effect only support BGRA/yuv pixfmt, value:%d", format));
        }
        LF_REQUIRE(kFile, input);
        MakeResultFrame(format, input);
        return true;
    });
}

// A black frame of the input's size, over memory of our own laid out with the input's pitches
// (widened where a pitch would not hold a row of the result).
void CRotate90X::MakeResultFrame(unsigned format, GVideoFrame* input) {
    ReleaseResult();
    unsigned width = 0, height = 0;
    input->GetDimension(&width, &height);
    std::unique_ptr<CVideoFrame, ResultFree> made(
        new CVideoFrame(true, static_cast<int>(format), width, height, true));
    std::vector<std::unique_ptr<uint8_t[]>> planes;
    for (unsigned i = 0; i < made->GetBufferCount(); ++i) {
        CVideoFrame::PlaneRecord* record = made->GetBuffer(i);
        const unsigned pitch = std::max(GetPlane(input, i).pitch, record->rowBytes);
        const size_t size = size_t{pitch} * record->rows;
        const uint8_t black = format == PIXFMT_BGRA32 ? 0 : i == 0 ? 16 : 128;
        std::unique_ptr<uint8_t[]> memory(new (std::nothrow) uint8_t[size == 0 ? 1 : size]);
        if (!memory) LF_RAISE(kFile, ErrorText::kMallocFailed);
        std::memset(memory.get(), black, size);
        record->data = memory.get();
        record->pitch = pitch;
        planes.push_back(std::move(memory));
    }
    result_ = std::move(made);
    resultPlanes_ = std::move(planes);
}

void CRotate90X::ReleaseResult() {
    if (result_) FreeVideoFrameBuffer(result_.get());
    result_.reset();
    resultPlanes_.clear();
}

bool CRotate90X::ResultReady() const {
    return result_ && !resultPlanes_.empty() &&
           std::all_of(resultPlanes_.begin(), resultPlanes_.end(),
                       [](const auto& plane) { return plane != nullptr; });
}

// For packed BGRA this releases plane 0 of the effect's own result frame whatever frame is
// given; for YUV every plane of the given frame, when that frame is the effect's own.
void CRotate90X::FreeVideoFrameBuffer(CVideoFrame* frame) {
    if (frame == nullptr || !result_) return;
    const int format = frame->GetPixelFormat();
    const bool own = frame == result_.get();
    if (format != PIXFMT_BGRA32 && !(format == PIXFMT_YUV420P && own)) return;
    const size_t count =
        format == PIXFMT_BGRA32 ? std::min<size_t>(1, resultPlanes_.size()) : resultPlanes_.size();
    for (size_t i = 0; i < count; ++i) {
        resultPlanes_[i].reset();
        result_->GetBuffer(static_cast<unsigned>(i))->data = nullptr;
    }
}

bool CRotate90X::ProcessYUV90(GVideoFrame* result, int direction) {
    return LF_GUARDED(kFile, [&] {
        Turn(result, direction, false);
        return true;
    });
}

bool CRotate90X::ProcessBGRA90(GVideoFrame* result, int direction) {
    return LF_GUARDED(kFile, [&] {
        Turn(result, direction, true);
        return true;
    });
}

void CRotate90X::Turn(GVideoFrame* result, int direction, bool packed) {
    LF_REQUIRE(kFile, result);
    LF_REQUIRE(kFile, scaled_);
    x0_ = static_cast<int>(inputWidth_ / 2) - sh_ / 2;
    y0_ = static_cast<int>(inputHeight_ / 2) - sw_ / 2;
    if (sw_ <= 0 || sh_ <= 0) return;
    if (direction != 1 && direction != 2) {
        LF_RAISE(kFile,
                 SystemBase::GStringFormat::Format("rotate direction invalid, val%d", direction));
    }
    TurnGeometry g{sw_, sh_, x0_, y0_, direction, {}, {}};
    const unsigned planes = packed ? 1 : 3;
    for (unsigned i = 0; i < planes; ++i) {
        g.src[i] = GetPlane(scaled_, i);
        g.dst[i] = GetPlane(result, i);
        // A scaled frame without some plane has nothing to turn.
        if (g.src[i].Empty()) return;
    }
    if (x0_ < 0 || y0_ < 0) return;
    if (packed) {
        TurnBgra(g);
    } else {
        Simd::Pick(kTurnYuv)(g, rowTable_, columnTable_);
    }
}

}  // namespace MediaCore
