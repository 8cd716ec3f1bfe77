// The library's C entry points. Include this to drive libfilter as a host does.
#pragma once

#include "libfilter/GController.h"
#include "libfilter/GVideoProcessor.h"

extern "C" {
// Creates the effect with factory id `id`; null (and one report to the error sink) when the
// id names no effect. The host releases the result with its Free.
MediaCore::GVideoProcessor* libfilter_GetFilter(MediaCore::GController* controller, unsigned id);

// Writes what `effect` makes of `source` into `target`, a frame of the same pixel format and
// dimensions, and leaves `source` as it was: the bytes CopyVideoFrame(target, source) and then
// the effect's ProcFrameInPlace(target) give, made in one walk over memory where the effect and
// the frames allow. False (and one report to the error sink) on a null argument or a mismatch.
bool libfilter_ProcFrameInto(MediaCore::GVideoProcessor* effect, MediaCore::ImagePostion* position,
                             int n, MediaCore::GVideoFrame* source, MediaCore::GVideoFrame* target);

// Copies the pixels, time stamp, interlacing and border data of `src` into `dst`, which must
// have the same pixel format and dimensions. Each plane is copied as one block of the source's
// pitch x rows bytes, cut at the end of the destination plane. False (and one report to the
// error sink) on a null frame or a mismatch.
bool CopyVideoFrame(MediaCore::GVideoFrame* dst, MediaCore::GVideoFrame* src);

// Takes one Y, U, V sample through RGB and back, as red-blue stereo composition needs. The
// three middle arguments are not read. False (and one report) when a used pointer is null.
bool MergeYUVRedBlue(const unsigned char* y, const unsigned char* u, const unsigned char* v,
                     const unsigned char* unused0, const unsigned char* unused1,
                     const unsigned char* unused2, unsigned char* outY, unsigned char* outU,
                     unsigned char* outV);
}
