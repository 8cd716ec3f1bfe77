// 2D to 3D: a left and a right view synthesised from one frame by horizontal resampling, then
// rendered back into the frame side by side or top-bottom; colour anaglyphs go to C2DToColor3D.
#include <algorithm>
#include <array>
#include <cstring>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/GatherPlan.h"
#include "core/Planes.h"
#include "libfilter/Stereo3D.h"

namespace MediaCore {

namespace {

constexpr const char kFile[] = "2DTo3D.cpp";

// Which source element each element of an output row shows, for one plane: the view formula
// trunc(x * ratio) + offset, kept inside the source row. Every row of a plane uses the same
// columns, so they are planned once per geometry.
struct ColumnMap {
    GatherPlan plan;

    // A view row: element x shows trunc(x * ratio) + offset.
    void BuildView(unsigned elements, unsigned bytes, double ratio, unsigned offset,
                   unsigned source) {
        if (!Rebuild({0, elements, bytes, source, offset, 0, ratio})) return;
        plan.source.resize(elements);
        for (unsigned x = 0; x < elements; ++x)
            plan.source[x] = Column(x, ratio, offset, source);
        plan.Plan(bytes, 16, source);
    }

    // A side-by-side row made straight from the frame: every second column of the first view,
    // then (as far as the row's pitch has room) every second column of the second view.
    void BuildSideBySide(unsigned elements, unsigned bytes, double ratio, unsigned firstOffset,
                         unsigned secondOffset, unsigned room) {
        if (!Rebuild({1, elements, bytes, room, firstOffset, secondOffset, ratio})) return;
        const unsigned half = (elements + 1) / 2;
        const unsigned second = std::min(half, room > half ? room - half : 0);
        plan.source.resize(size_t{half} + second);
        for (unsigned c = 0; c < half; ++c)
            plan.source[c] = Column(2 * c, ratio, firstOffset, elements);
        for (unsigned c = 0; c < second; ++c)
            plan.source[half + c] = Column(2 * c, ratio, secondOffset, elements);
        plan.Plan(bytes, 8, elements);  // neighbours differ by up to 2 columns
    }

private:
    struct Key {
        int kind;
        unsigned elements, unit, source, offset, second;
        double ratio;
        bool operator==(const Key& k) const {
            return kind == k.kind && elements == k.elements && unit == k.unit &&
                   source == k.source && offset == k.offset && second == k.second &&
                   ratio == k.ratio;
        }
    };

    static uint32_t Column(unsigned x, double ratio, unsigned offset, unsigned source) {
        const auto column = static_cast<uint64_t>(static_cast<double>(x) * ratio) + offset;
        return static_cast<uint32_t>(std::min<uint64_t>(column, source - 1));
    }

    bool Rebuild(const Key& key) {
        if (built_ && key == key_) return false;
        key_ = key;
        built_ = true;
        return true;
    }

    Key key_{};
    bool built_ = false;
};

using GatherFn = void (*)(uint8_t* dst, const uint8_t* src, const GatherPlan& plan);

void GatherScalar(uint8_t* dst, const uint8_t* src, const GatherPlan& plan) {
    plan.Gather(dst, src, 0, plan.Count());
}

#if LF_X86_64
// One load and one byte shuffle per block, a vector's worth of blocks at a time. Blocks of 8
// bytes leave from the low half of each 128-bit block.
struct GatherRow {
    template <class I>
    static void Run(uint8_t* dst, const uint8_t* src, const GatherPlan& plan) {
        constexpr size_t n = I::kBytes / 16;
        const size_t perBlock = plan.PerBlock(), blocks = plan.blockStart.size();
        size_t b = 0;
        for (; b + n <= blocks; b += n) {
            typename I::V v;
            if (!Simd::GatherBlocks<I>(v, src, plan, b)) {
                plan.Gather(dst, src, b * perBlock, (b + n) * perBlock);
            } else if (plan.blockBytes == 16) {
                I::Store(dst + b * 16, v);
            } else {
                I::StoreLowHalves(dst + b * 8, v);
            }
        }
        plan.Gather(dst, src, b * perBlock, plan.Count());
    }
};
#endif

constexpr Simd::Variant<GatherFn> kGather[] = {
    {Simd::kScalar, GatherScalar},
#if LF_X86_64
    {Simd::kAvx2, Simd::RunAvx2<GatherRow>},
    {Simd::kAvx512, Simd::RunAvx512<GatherRow>},
#endif
};

// Fills every row of one view plane from the same plane of the frame. Each frame is read with
// its own pitch, over the rows both have.
void SynthesisePlane(const Plane& view, const Plane& source, ColumnMap& map, unsigned unit,
                     double ratio, unsigned offset) {
    if (view.Empty() || source.Empty() || source.rowBytes < unit) return;
    map.BuildView(view.rowBytes / unit, unit, ratio, offset, source.rowBytes / unit);
    const GatherFn gather = Simd::Pick(kGather);
    const unsigned rows = std::min(view.rows, source.rows);
    for (unsigned y = 0; y < rows; ++y)
        gather(view.Row(y), source.Row(y), map.plan);
}

// Side by side straight from the frame: each row is copied aside, then gathered back through
// the composed columns, which gives the bytes of synthesising both views and rendering them.
void SideBySideFromFrame(const Plane& p, unsigned unit, double ratio, unsigned firstOffset,
                         unsigned secondOffset, ColumnMap& map, std::vector<uint8_t>& row) {
    map.BuildSideBySide(p.rowBytes / unit, unit, ratio, firstOffset, secondOffset, p.pitch / unit);
    const GatherFn gather = Simd::Pick(kGather);
    row.resize(p.rowBytes);
    for (unsigned y = 0; y < p.rows; ++y) {
        std::memcpy(row.data(), p.Row(y), p.rowBytes);
        gather(p.Row(y), row.data(), map.plan);
    }
}

// Top-bottom straight from the frame: output rows k and half + k both show source row 2k. The
// top part overwrites rows below `half` before the bottom part reads the even ones among them,
// so those are copied aside first; the bottom part runs upwards, so it reads every other row
// before it is written (the one row it reads and writes itself goes through a copy).
void TopBottomFromFrame(const Plane& p, const ColumnMap& top, const ColumnMap& bottom,
                        std::vector<uint8_t>& saved, std::vector<uint8_t>& row) {
    const GatherFn gather = Simd::Pick(kGather);
    const unsigned half = p.rows / 2;
    const size_t bytes = p.rowBytes;
    saved.resize((half + 1) / 2 * bytes);
    for (unsigned j = 0; 2 * j < half; ++j)
        std::memcpy(&saved[j * bytes], p.Row(2 * j), bytes);
    auto source = [&](unsigned y) -> const uint8_t* {
        return y < half ? &saved[y / 2 * bytes] : p.Row(y);
    };
    for (unsigned k = 0; k < half; ++k)
        gather(p.Row(k), source(2 * k), top.plan);
    for (unsigned k = p.rows - half; k-- > 0;) {
        const uint8_t* from = source(2 * k);
        if (2 * k == half + k) {
            row.assign(from, from + bytes);
            from = row.data();
        }
        gather(p.Row(half + k), from, bottom.plan);
    }
}

// The right view's offset in a plane: half-width chroma starts half as far in.
unsigned RightOffset(int format, unsigned plane, unsigned depth) {
    const bool halved = plane > 0 && format != PIXFMT_PLANAR4_FULL;
    return halved ? depth >> 1 : depth;
}

// Formats whose right view is the frame itself.
bool RightViewIsFrame(int format) {
    return format == PIXFMT_YUV422P || format == PIXFMT_YUV410P || format == PIXFMT_YUV411P ||
           format == PIXFMT_YUV422P_13;
}

}  // namespace

struct C2DTo3D::ViewMaps {
    std::array<ColumnMap, 3> left;
    std::array<ColumnMap, 3> right;
    std::array<ColumnMap, 3> sideBySide;
    std::vector<uint8_t> row;
    std::vector<uint8_t> saved;
};

// ---- What hosts are told of it ----

constexpr PropertyDescription k2DTo3DProperties[] = {
    {"depth", PROPERTY_INT32, "60", PropertyKind::Integer, 0, 100, RangeBound::Fixed,
     "disparity between the views in pixels, in steps of 10"},
    {"type", PROPERTY_INT32, "1", PropertyKind::Integer, 0, 4, RangeBound::Fixed,
     "1 red-blue, 2 green-magenta, 3 side by side, 4 top-bottom (0 draws nothing)"},
    {"swap", PROPERTY_INT32, "0", PropertyKind::Flag, 0, 1, RangeBound::Fixed,
     "exchange the left and right views"},
};
constexpr ShowcaseSetting k2DTo3DShowcase[] = {{"type", 1, RangeBound::Fixed}};
constexpr EffectDescription k2DTo3D = {
    AVPROCESSOR_2DTO3D,
    "2d-to-3d",
    "stereo pair from one view: type 1 red-blue, 2 green-magenta, 3 side by side, 4 top-bottom",
    EffectMaking::Factory,
    "MediaCore::C2DTo3D",
    true,
    MakeEffectWithController<C2DTo3D>,
    k2DTo3DProperties,
    CountOf(k2DTo3DProperties),
    k2DTo3DShowcase,
    CountOf(k2DTo3DShowcase)};
LF_DESCRIBE_EFFECT(k2DTo3D);

C2DTo3D::C2DTo3D(GController* controller)
    : CImageEffectBase(AVPROCESSOR_2DTO3D),
      renderer_(controller),
      colour_(controller),
      maps_(std::make_unique<ViewMaps>()) {
    // Registering runs no OnSetProperty: the fields keep side by side while "type" reads 1.
}

C2DTo3D::~C2DTo3D() {
    left_.reset();
    right_.reset();
}

int C2DTo3D::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CImageEffectBase::OnSetProperty(name, node);
    if (name == "depth") {
        // Capped at 100 and cut to a multiple of 10; a negative value keeps its bit pattern.
        depth_ = static_cast<unsigned>(std::min(node.parsed.i32, 100) / 10 * 10);
    } else if (name == "type") {
        type_ = static_cast<unsigned>(node.parsed.i32);
    } else if (name == "swap") {
        swap_ = node.parsed.i32 != 0 ? 1 : 0;
    }
    colour_.SetProperty(static_cast<Type3D>(type_), depth_);
    return result;
}

bool C2DTo3D::ProcFrameInner(ImagePostion* position, int count, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    if (type_ - 1 < 2) return colour_.ProcFrameInner(position, count, frame);
    renderer_.SetDepth(depth_);
    renderer_.SetRenderMode(static_cast<Type3D>(type_));
    if (!UpdateRatio(frame)) return true;
    GVideoFrame* left = frame;
    auto* right = static_cast<GVideoFrame*>(frame->GetInterface(kSubVideoFrameInterface));
    if (right == nullptr && RenderFromFrame(frame)) return true;
    if (right == nullptr) {
        left = SynthesiseLeft(frame);
        right = SynthesiseRight(frame);
    }
    if (swap_ != 0) std::swap(left, right);
    renderer_.Render(left, right, frame);
    return true;
}

// The share of the width each view shows, (W - depth) / W, worked out at the first frame and
// again whenever the frame size or the depth changes. False for a frame without width.
bool C2DTo3D::UpdateRatio(GVideoFrame* frame) {
    unsigned width = 0, height = 0;
    frame->GetDimension(&width, &height);
    if (width == 0) return false;
    if (ratio_ < 0.0001 || width != ratioWidth_ || height != ratioHeight_ ||
        depth_ != ratioDepth_) {
        if (width < depth_) depth_ = width >> 2;
        ratio_ = static_cast<double>(width - depth_) / static_cast<double>(width);
        ratioWidth_ = width;
        ratioHeight_ = height;
        ratioDepth_ = depth_;
    }
    return true;
}

// Side by side and top-bottom of views synthesised from the frame, written without the views:
// each output row is gathered from the frame through the views' columns. False where the views
// themselves are needed: formats whose right view is the frame, and packed rows with tail bytes
// (which a top-bottom rendering takes from the held view).
bool C2DTo3D::RenderFromFrame(GVideoFrame* frame) {
    const int format = frame->GetPixelFormat();
    const bool packed = format == PIXFMT_BGRA32;
    if (type_ != TYPE3D_SIDE_BY_SIDE && type_ != TYPE3D_TOP_BOTTOM) return false;
    if (!packed && format != PIXFMT_YUV420P && format != PIXFMT_YUV420P_12 &&
        format != PIXFMT_YUVA420P && format != PIXFMT_PLANAR4_FULL) {
        return false;
    }
    if (packed && GetPlane(frame, 0).rowBytes % 4 != 0) return false;
    const unsigned unit = packed ? 4 : 1;
    for (unsigned i = 0; i < (packed ? 1u : 3u); ++i) {
        const Plane p = packed ? GetPackedPlane(frame) : GetPlane(frame, i);
        if (p.Empty() || p.rowBytes < unit) continue;
        const unsigned depth = RightOffset(format, i, depth_);
        if (type_ == TYPE3D_SIDE_BY_SIDE) {
            SideBySideFromFrame(p, unit, ratio_, swap_ ? depth : 0, swap_ ? 0 : depth,
                                maps_->sideBySide[i], maps_->row);
            continue;
        }
        const unsigned elements = p.rowBytes / unit;
        maps_->left[i].BuildView(elements, unit, ratio_, 0, elements);
        maps_->right[i].BuildView(elements, unit, ratio_, depth, elements);
        const ColumnMap& top = swap_ ? maps_->right[i] : maps_->left[i];
        const ColumnMap& bottom = swap_ ? maps_->left[i] : maps_->right[i];
        TopBottomFromFrame(p, top, bottom, maps_->saved, maps_->row);
    }
    return true;
}

GVideoFrame* C2DTo3D::PrepareLV(GVideoFrame* frame) {
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, frame);
        return UpdateRatio(frame) ? SynthesiseLeft(frame) : nullptr;
    });
}

GVideoFrame* C2DTo3D::PrepareRV(GVideoFrame* frame) {
    return LF_GUARDED(kFile, [&] {
        LF_REQUIRE(kFile, frame);
        return UpdateRatio(frame) ? SynthesiseRight(frame) : nullptr;
    });
}

namespace {

// The held view, cloned from the frame at first use and again when the frame's format or size
// no longer matches it; stamped with the frame's time.
GVideoFrame* HeldView(FramePtr& view, GVideoFrame* frame) {
    if (view) {
        unsigned w = 0, h = 0, fw = 0, fh = 0;
        view->GetDimension(&w, &h);
        frame->GetDimension(&fw, &fh);
        if (view->GetPixelFormat() != frame->GetPixelFormat() || w != fw || h != fh) view.reset();
    }
    if (!view) {
        view.reset(frame->Clone());
        LF_REQUIRE(kFile, view.get());
    }
    view->SetTimeStamp(frame->GetTimeStamp());
    return view.get();
}

}  // namespace

GVideoFrame* C2DTo3D::SynthesiseLeft(GVideoFrame* frame) {
    GVideoFrame* view = HeldView(left_, frame);
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra:
            SynthesisePlane(GetPackedPlane(view), GetPackedPlane(frame), maps_->left[0], 4, ratio_,
                            0);
            break;
        case FormatFamily::PlanarYuv:
            for (unsigned i = 0; i < 3; ++i) {
                SynthesisePlane(GetPlane(view, i), GetPlane(frame, i), maps_->left[i], 1, ratio_,
                                0);
            }
            break;
        case FormatFamily::Other:
            break;
    }
    return view;
}

GVideoFrame* C2DTo3D::SynthesiseRight(GVideoFrame* frame) {
    GVideoFrame* view = HeldView(right_, frame);
    const int format = frame->GetPixelFormat();
    if (RightViewIsFrame(format)) return frame;
    switch (format) {
        case PIXFMT_BGRA32:
            SynthesisePlane(GetPackedPlane(view), GetPackedPlane(frame), maps_->right[0], 4, ratio_,
                            depth_);
            break;
        case PIXFMT_YUV420P:
        case PIXFMT_YUV420P_12:
        case PIXFMT_YUVA420P:
        case PIXFMT_PLANAR4_FULL:
            // Half-width chroma starts half as far in; full-size planes all start at depth.
            for (unsigned i = 0; i < 3; ++i) {
                SynthesisePlane(GetPlane(view, i), GetPlane(frame, i), maps_->right[i], 1, ratio_,
                                RightOffset(format, i, depth_));
            }
            break;
        default:
            break;
    }
    return view;
}

}  // namespace MediaCore
