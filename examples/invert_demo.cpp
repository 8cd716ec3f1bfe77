// A small host: builds a generated picture, asks the library for the invert effect by id and
// prints what the effect changed, for a packed BGRA and a planar YUV 4:2:0 frame.
#include <cstdio>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

using namespace MediaCore;

namespace {

constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 36;

// A frame over host-owned planes filled with a diagonal gradient.
struct Picture {
    explicit Picture(int format) : frame(false, format, kWidth, kHeight, true) {
        std::vector<unsigned char*> data;
        std::vector<int> pitches;
        planes.resize(frame.GetBufferCount());
        for (unsigned i = 0; i < planes.size(); ++i) {
            const auto* record = frame.GetBuffer(i);
            planes[i].resize(size_t{record->rowBytes} * record->rows);
            for (unsigned y = 0; y < record->rows; ++y) {
                for (unsigned x = 0; x < record->rowBytes; ++x) {
                    planes[i][size_t{y} * record->rowBytes + x] =
                        static_cast<unsigned char>((x * 3 + y * 5 + i * 40) & 0xFF);
                }
            }
            data.push_back(planes[i].data());
            pitches.push_back(static_cast<int>(record->rowBytes));
        }
        frame.SetBuffer(data.data(), pitches.data(), nullptr);
    }
    CVideoFrame frame;
    std::vector<std::vector<unsigned char>> planes;
};

void Describe(const char* title, int format, GVideoProcessor* effect) {
    Picture picture(format);
    ImagePostion position{};
    GVideoFrame* result = effect->ProcFrame(&position, 0, &picture.frame);
    if (result == nullptr) {
        std::printf("%s: the effect failed: %s\n", title, GetGException()->GetMessage());
        return;
    }
    std::printf("%s, %ux%u:\n", title, kWidth, kHeight);
    for (unsigned i = 0; i < result->GetBufferCount(); ++i) {
        unsigned rowBytes, pitch, rows;
        const unsigned char* out = result->GetBuffer(i, &rowBytes, &pitch, &rows);
        const std::vector<unsigned char>& in = picture.planes[i];
        size_t changed = 0;
        for (unsigned y = 0; y < rows; ++y) {
            for (unsigned x = 0; x < rowBytes; ++x) {
                changed += out[size_t{y} * pitch + x] != in[size_t{y} * rowBytes + x];
            }
        }
        std::printf(
            "  plane %u: %zu of %zu bytes changed; first bytes %3u %3u %3u %3u -> %3u %3u %3u "
            "%3u\n",
            i, changed, in.size(), in[0], in[1], in[2], in[3], out[0], out[1], out[2], out[3]);
    }
}

}  // namespace

int main() {
    GVideoProcessor* invert = libfilter_GetFilter(nullptr, AVPROCESSOR_INVERT);
    if (invert == nullptr) {
        std::fprintf(stderr, "libfilter has no invert effect: %s\n", GetGException()->GetMessage());
        return 1;
    }
    std::printf("effect id %u, type %u, subtype %u\n", invert->GetID(), invert->GetType(),
                invert->GetSubType());
    Describe("BGRA (alpha kept)", PIXFMT_BGRA32, invert);
    Describe("YUV 4:2:0", PIXFMT_YUV420P, invert);
    invert->Free();

    // Unknown ids are refused with a report, not a crash.
    if (libfilter_GetFilter(nullptr, 18) == nullptr) {
        std::printf("id 18 refused: \"%s\"\n", GetGException()->GetMessage());
    }
    return 0;
}
