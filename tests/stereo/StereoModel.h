// Plain models of the stereo renderer's rules, shared by the stereo tests.
#pragma once

#include <algorithm>

#include "core/Planes.h"
#include "libfilter/Stereo3D.h"

namespace stereo_model {

using namespace MediaCore;

inline unsigned RowsOf(const Plane& p) {
    return p.Empty() ? 0 : p.rows;
}

// The renderer's rules, element by element in its order, so views that are the output frame
// read what earlier elements wrote.
inline void ModelSideBySide(const Plane& o, const Plane& l, const Plane& r, unsigned unit) {
    const unsigned rows = std::min({RowsOf(o), RowsOf(l), RowsOf(r)});
    const unsigned half = (o.rowBytes / unit + 1) / 2;
    auto copy = [unit](uint8_t* to, const uint8_t* from) {
        for (unsigned k = 0; k < unit; ++k)
            to[k] = from[k];
    };
    for (unsigned y = 0; y < rows; ++y) {
        for (unsigned c = 0; c < half && 2 * c < l.rowBytes / unit; ++c)
            copy(o.Row(y) + c * unit, l.Row(y) + 2 * c * unit);
        for (unsigned c = 0; c < half && 2 * c < r.rowBytes / unit; ++c) {
            if ((half + c + 1) * unit <= o.pitch)
                copy(o.Row(y) + (half + c) * unit, r.Row(y) + 2 * c * unit);
        }
    }
}

inline void ModelTopBottom(const Plane& o, const Plane& l, const Plane& r) {
    const unsigned h = RowsOf(o), half = h / 2;
    auto copy = [&](const Plane& from, unsigned fromRow, unsigned toRow) {
        for (unsigned x = 0; x < std::min(o.rowBytes, from.rowBytes); ++x)
            o.Row(toRow)[x] = from.Row(fromRow)[x];
    };
    for (unsigned k = 0; k < half && 2 * k < RowsOf(l); ++k)
        copy(l, 2 * k, k);
    for (unsigned k = 0; k < h - half && 2 * k < RowsOf(r); ++k)
        copy(r, 2 * k, half + k);
}

inline void ModelRedBlueBgra(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    const Plane l = GetPackedPlane(left), r = GetPackedPlane(right), o = GetPackedPlane(out);
    unsigned w = 0, h = 0;
    left->GetDimension(&w, &h);
    w = std::min({w, l.rowBytes / 4, r.rowBytes / 4, o.rowBytes / 4});
    h = std::min({h, RowsOf(l), RowsOf(r), RowsOf(o)});
    for (unsigned y = 0; y < h; ++y) {
        for (unsigned x = 0; x < w; ++x) {
            o.Row(y)[4 * x] = r.Row(y)[4 * x];
            o.Row(y)[4 * x + 1] = r.Row(y)[4 * x + 1];
            o.Row(y)[4 * x + 2] = l.Row(y)[4 * x + 2];
        }
    }
}

inline void ModelRedBlueYuv(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    Plane l[3], r[3], o[3];
    for (unsigned i = 0; i < 3; ++i) {
        l[i] = GetPlane(left, i), r[i] = GetPlane(right, i), o[i] = GetPlane(out, i);
    }
    for (const Plane* p : {&l[2], &r[1], &r[2], &o[1], &o[2]}) {
        if (p->Empty()) return;
    }
    unsigned w = 0, h = 0;
    left->GetDimension(&w, &h);
    w = std::min({w, l[0].rowBytes, r[0].rowBytes, o[0].rowBytes});
    h = std::min({h, RowsOf(l[0]), RowsOf(r[0]), RowsOf(o[0])});
    // 4:2:0 addressing whatever the format, clamped into each chroma plane.
    auto at = [](const Plane& p, unsigned y, unsigned x) -> uint8_t& {
        return p.Row(std::min(y / 2, p.rows - 1))[std::min(x / 2, p.rowBytes - 1)];
    };
    for (unsigned y = 0; y < h; ++y) {
        for (unsigned x = 0; x < w; ++x) {
            const int yl = l[0].Row(y)[x], vl = at(l[2], y, x);
            const int yr = r[0].Row(y)[x], ur = at(r[1], y, x), vr = at(r[2], y, x);
            const int R = (298 * (yl - 16) + 409 * (vl - 128) + 128) >> 8;
            const int G = (298 * (yr - 16) - 100 * (ur - 128) - 208 * (vr - 128) + 128) >> 8;
            const int B = (298 * (yr - 16) + 516 * (ur - 128) + 128) >> 8;
            o[0].Row(y)[x] = static_cast<uint8_t>(((66 * R + 129 * G + 25 * B + 128) >> 8) + 16);
            if (y % 2 == 0 && x % 2 == 0) {
                at(o[1], y, x) =
                    static_cast<uint8_t>(((-38 * R - 74 * G + 112 * B + 128) >> 8) + 128);
                at(o[2], y, x) =
                    static_cast<uint8_t>(((112 * R - 94 * G - 18 * B + 128) >> 8) + 128);
            }
        }
    }
}

inline void Model(Type3D mode, GVideoFrame* l, GVideoFrame* r, GVideoFrame* o) {
    if (l->GetPixelFormat() == PIXFMT_BGRA32) {
        if (mode == TYPE3D_RED_BLUE) ModelRedBlueBgra(l, r, o);
        if (mode == TYPE3D_SIDE_BY_SIDE) {
            ModelSideBySide(GetPackedPlane(o), GetPackedPlane(l), GetPackedPlane(r), 4);
        }
        if (mode == TYPE3D_TOP_BOTTOM)
            ModelTopBottom(GetPlane(o, 0), GetPlane(l, 0), GetPlane(r, 0));
        return;
    }
    if (mode == TYPE3D_RED_BLUE) ModelRedBlueYuv(l, r, o);
    for (unsigned i = 0; i < 3; ++i) {
        if (mode == TYPE3D_SIDE_BY_SIDE)
            ModelSideBySide(GetPlane(o, i), GetPlane(l, i), GetPlane(r, i), 1);
        if (mode == TYPE3D_TOP_BOTTOM)
            ModelTopBottom(GetPlane(o, i), GetPlane(l, i), GetPlane(r, i));
    }
}

}  // namespace stereo_model
