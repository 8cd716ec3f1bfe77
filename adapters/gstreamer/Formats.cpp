#include "Formats.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <random>

namespace gst_adapter {

namespace {

using namespace MediaCore;

struct FormatPair {
    GstVideoFormat gst;
    int library;
};

// In the order caps prefer them: the cheapest frames first.
constexpr FormatPair kFormats[] = {
    {GST_VIDEO_FORMAT_I420, PIXFMT_YUV420P}, {GST_VIDEO_FORMAT_YV12, PIXFMT_YUV420P},
    {GST_VIDEO_FORMAT_Y42B, PIXFMT_YUV422P}, {GST_VIDEO_FORMAT_Y41B, PIXFMT_YUV411P},
    {GST_VIDEO_FORMAT_YUV9, PIXFMT_YUV410P}, {GST_VIDEO_FORMAT_YVU9, PIXFMT_YUV410P},
    {GST_VIDEO_FORMAT_Y444, PIXFMT_YUV444P}, {GST_VIDEO_FORMAT_A420, PIXFMT_YUVA420P},
    {GST_VIDEO_FORMAT_BGRA, PIXFMT_BGRA32},
};

// Small, but with room for every effect's work (mosaic blocks, mirage ghosts, 3x3 kernels).
constexpr unsigned kProbeWidth = 64;
constexpr unsigned kProbeHeight = 48;

struct BufferUnref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};

// Runs the effect with its showcase settings on a frame of noise in `format`.
bool ChangesFrame(const catalogue::EffectDescription& effect, GstVideoFormat format) {
    GstVideoInfo info;
    if (!gst_video_info_set_format(&info, format, kProbeWidth, kProbeHeight)) return false;
    catalogue::EffectPtr processor = catalogue::Create(effect);
    if (!processor) return false;
    for (const auto& [name, value] : catalogue::Showcase(effect, kProbeWidth, kProbeHeight))
        processor->SetProperty(name.c_str(), value.c_str());

    std::unique_ptr<GstBuffer, BufferUnref> buffer(
        gst_buffer_new_allocate(nullptr, info.size, nullptr));
    GstMapInfo map;
    if (!buffer || !gst_buffer_map(buffer.get(), &map, GST_MAP_WRITE)) return false;
    std::mt19937 random(format);
    for (gsize i = 0; i < map.size; ++i)
        map.data[i] = static_cast<guint8>(random());
    const std::vector<guint8> before(map.data, map.data + map.size);
    gst_buffer_unmap(buffer.get(), &map);

    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &info, buffer.get(), GST_MAP_READWRITE)) return false;
    CVideoFrame view(false, LibraryFormat(format), kProbeWidth, kProbeHeight, true);
    Attach(frame, view);
    ImagePostion position{};
    processor->ProcFrameInPlace(&position, 0, &view);
    gst_video_frame_unmap(&frame);

    if (!gst_buffer_map(buffer.get(), &map, GST_MAP_READ)) return false;
    const bool changed = std::memcmp(before.data(), map.data, map.size) != 0;
    gst_buffer_unmap(buffer.get(), &map);
    return changed;
}

struct Region {
    unsigned x = 0, y = 0, width = 0, height = 0;
};

// The part of the mapped frame that will be shown: its crop when the buffer carries one that
// lies inside it, else all of it.
Region Visible(const GstVideoFrame& frame) {
    Region whole;
    whole.width = static_cast<unsigned>(GST_VIDEO_FRAME_WIDTH(&frame));
    whole.height = static_cast<unsigned>(GST_VIDEO_INFO_FIELD_HEIGHT(&frame.info));
    const GstVideoCropMeta* crop = gst_buffer_get_video_crop_meta(frame.buffer);
    if (crop == nullptr || crop->width == 0 || crop->height == 0 || crop->x > whole.width ||
        crop->width > whole.width - crop->x || crop->y > whole.height ||
        crop->height > whole.height - crop->y) {
        return whole;
    }
    return Region{crop->x, crop->y, crop->width, crop->height};
}

}  // namespace

int LibraryFormat(GstVideoFormat format) {
    for (const FormatPair& pair : kFormats) {
        if (pair.gst == format) return pair.library;
    }
    return -1;
}

void Attach(GstVideoFrame& frame, CVideoFrame& view) {
    // The picture as mapped: a buffer's video meta may describe less than the caps, and a field
    // of alternate interlacing has half the frame's rows. A crop inside it narrows it further:
    // what the effect sees (a mirror's axis, a mosaic's corners) is what will be shown.
    const Region region = Visible(frame);
    unsigned viewWidth = 0;
    unsigned viewHeight = 0;
    view.GetDimension(&viewWidth, &viewHeight);
    if (region.width != viewWidth || region.height != viewHeight)
        view.SetSize(region.width, region.height);
    unsigned char* data[kMaxPlanes] = {};
    int pitches[kMaxPlanes] = {};
    const unsigned planes = std::min(view.GetBufferCount(), kMaxPlanes);
    const GstVideoFormatInfo* format = frame.info.finfo;
    for (unsigned i = 0; i < planes; ++i) {
        // A packed pixel starts at its plane's first byte; a component's offset inside it (red
        // sits at byte 2 of BGRA) is the library's business.
        const bool packed = view.IsPacked();
        auto* base = static_cast<unsigned char*>(packed ? GST_VIDEO_FRAME_PLANE_DATA(&frame, i)
                                                        : GST_VIDEO_FRAME_COMP_DATA(&frame, i));
        pitches[i] = packed ? GST_VIDEO_FRAME_PLANE_STRIDE(&frame, i)
                            : GST_VIDEO_FRAME_COMP_STRIDE(&frame, i);
        const unsigned column =
            packed ? region.x * 4 : region.x >> GST_VIDEO_FORMAT_INFO_W_SUB(format, i);
        const unsigned row = packed ? region.y : region.y >> GST_VIDEO_FORMAT_INFO_H_SUB(format, i);
        data[i] = base + static_cast<ptrdiff_t>(row) * pitches[i] + column;
    }
    view.SetBuffer(data, pitches, nullptr);
}

std::vector<GstVideoFormat> FormatsTakenBy(const catalogue::EffectDescription& effect) {
    std::vector<GstVideoFormat> formats;
    for (const FormatPair& pair : kFormats) {
        try {
            if (ChangesFrame(effect, pair.gst)) formats.push_back(pair.gst);
        } catch (...) {
            // A format the library cannot even describe is one the effect does not take.
        }
    }
    return formats;
}

}  // namespace gst_adapter
