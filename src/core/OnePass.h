// Writing an effect's result into a fresh copy of a frame in one walk over memory.
//
// A copy followed by an in-place effect reads the frame, writes the copy, then reads and writes
// the copy again: twice the memory traffic of the copy alone once frames outgrow the caches.
// Instead, the copy is made with its memory but without its bytes, and while a OnePassCopy is
// active on the thread, the plane walks of core/Planes.h bring each row over from the source
// just before the effect changes it, while the row is in the nearest cache. Rows no walk
// reached are copied when the pass finishes, so the result is byte for byte a copy's.
//
// Only effects that reach pixels through those walks may run this way; an effect says so with
// LF_ONE_PASS_EFFECT(id) in its file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "libfilter/CVideoFrame.h"

#pragma GCC visibility push(hidden)

namespace MediaCore {

class OnePassCopy {
public:
    static constexpr unsigned kMaxPlanes = 8;

    // Active on this thread until destroyed; only while no other is (see Active). Both frames
    // are the library's own, of one layout.
    OnePassCopy(CVideoFrame& source, CVideoFrame& target);
    ~OnePassCopy();
    OnePassCopy(const OnePassCopy&) = delete;
    OnePassCopy& operator=(const OnePassCopy&) = delete;

    // The copy active on this thread, or null.
    static OnePassCopy* Active();

    // Makes the target row starting at `row` hold the source's bytes, its whole pitch, unless an
    // earlier walk did. Pointers outside the target's planes are left alone.
    void Stage(const uint8_t* row);
    // For a walk that writes the first `bytes` of the target row starting at `row` from the
    // source's row itself: brings over the rest of the row (its padding) and answers where the
    // source's row is. Once the row holds its bytes, or outside the target's planes, answers
    // `row`.
    const uint8_t* Take(uint8_t* row, size_t bytes);
    // The source's row for the target row starting at `row`, whether or not it was brought
    // over; null outside the target's planes or for a plane never given memory.
    const uint8_t* SourceOf(const uint8_t* row) const;
    // Notes that `rows` rows from `first` are overwritten whole: they need no source bytes.
    void Overwritten(const uint8_t* first, unsigned rows);
    // Copies every row still missing. The result is then the source's copy as changed.
    void Finish();

private:
    struct PlanePair {
        uint8_t* target;
        const uint8_t* source;  // null: a plane never given memory, copied as zeros
        size_t pitch;
        unsigned rows;
        size_t firstRow;  // its rows' marks in done_
    };
    const PlanePair* Find(const uint8_t* row, unsigned& index) const;
    void StageRow(const PlanePair& plane, unsigned y);

    PlanePair planes_[kMaxPlanes];
    unsigned planeCount_ = 0;
    uint8_t* done_;  // a mark for each row that holds its bytes
};

// A copy of `frame` with its own memory for every plane, of the same layout, whose bytes are
// left for a OnePassCopy to bring over. It takes over the memory of `donor` (a frame about to
// be released, or null) when the sizes agree. Null, with a report, when memory runs out.
CVideoFrame* CloneLayout(CVideoFrame& frame, CVideoFrame* donor);

// Whether a OnePassCopy may carry `source` over into `target`: two distinct frames of the
// library's own class, every plane with memory in both, of the same rows and pitch.
bool OnePassFits(GVideoFrame& source, GVideoFrame& target);

// Copies the time stamp, interlacing and border data of `src` into `dst`, and the pixels when
// `pixels` (each plane as one block). Raises on a null frame or a format or size mismatch.
bool CopyFrame(GVideoFrame* dst, GVideoFrame* src, bool pixels);

// Whether the effect with this id reaches pixels only through the plane walks.
bool RunsInOnePass(unsigned id);

struct OnePassRegistration {
    explicit OnePassRegistration(unsigned id);
};

}  // namespace MediaCore

#pragma GCC visibility pop

#define LF_ONE_PASS_JOIN(a, b) a##b
#define LF_ONE_PASS_NAME(a, b) LF_ONE_PASS_JOIN(a, b)
// Lets ProcFrame run the effect with this id in one pass over a copy of the library's own frames.
#define LF_ONE_PASS_EFFECT(id) \
    static const ::MediaCore::OnePassRegistration LF_ONE_PASS_NAME(kOnePass, __LINE__)(id)
