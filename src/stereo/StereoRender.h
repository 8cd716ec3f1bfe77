// The pieces the stereo renderer puts together, one presentation per file: side by side and
// top-bottom (StereoLayouts.cpp), red-blue on BGRA (RedBlueBgra.cpp) and on planar YUV
// (RedBlueYuv.cpp). The renderer's state and its choice between them are in Render3D.cpp.
#pragma once

#include "core/Planes.h"
#include "libfilter/Stereo3D.h"

#pragma GCC visibility push(hidden)

namespace MediaCore::stereo {

// The module name every failure inside the renderer reports.
constexpr const char kRenderFile[] = "Render3D.cpp";

// Raises the null-pointer failure unless all three frames are there.
void RequireFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

// A frame without memory for a plane is read as having no rows.
inline unsigned RowsOf(const Plane& p) {
    return p.Empty() ? 0 : p.rows;
}

// Side by side or top-bottom into `out`; other modes leave it.
void RenderYuv(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);
void RenderBgra(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

// Red from the left view, green and blue from the right.
void YuvRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);
void RgbRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

}  // namespace MediaCore::stereo

#pragma GCC visibility pop
