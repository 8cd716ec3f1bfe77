// A host that builds the four directly constructed effects itself: it includes only the
// public headers, creates each effect with new, drives it through its GVideoProcessor face
// on a generated frame and releases it with Free. Exits with 1 when an effect does not do
// what it promises.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/DirectEffects.h"

using namespace MediaCore;

namespace {

constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 36;

// A frame over one host-owned block, planes back to back: a diagonal gradient with opaque
// alpha. plane(i) is where plane i starts in the block.
class Picture {
public:
    explicit Picture(int format) : frame(false, format, kWidth, kHeight, true) {
        unsigned char* data[4] = {};
        int pitches[4] = {};
        for (unsigned i = 0; i < frame.GetBufferCount(); ++i) {
            const auto* record = frame.GetBuffer(i);
            starts_.push_back(block_.size());
            pitches[i] = static_cast<int>(record->rowBytes);
            for (size_t at = 0; at < size_t{record->rowBytes} * record->rows; ++at) {
                const size_t x = at % record->rowBytes, y = at / record->rowBytes;
                const bool alpha = format == PIXFMT_BGRA32 ? x % 4 == 3 : i == 3;
                block_.push_back(alpha ? 255 : (x * 3 + y * 5 + i * 40) & 0xFF);
            }
        }
        for (size_t i = 0; i < starts_.size(); ++i)
            data[i] = block_.data() + starts_[i];
        frame.SetBuffer(data, pitches, nullptr);
    }
    const unsigned char* plane(unsigned i) const { return block_.data() + starts_[i]; }
    const std::vector<unsigned char>& bytes() const { return block_; }

    CVideoFrame frame;

private:
    std::vector<unsigned char> block_;
    std::vector<size_t> starts_;
};

bool Check(const char* what, bool ok) {
    std::printf("%-58s %s\n", what, ok ? "ok" : "FAILED");
    return ok;
}

}  // namespace

int main() {
    ImagePostion position{};
    bool ok = true;

    GVideoProcessor* mirage = new CMirageVideoImageEffect();
    mirage->SetProperty("mirage_width", "20");
    Picture a(PIXFMT_BGRA32);
    GVideoFrame* result = mirage->ProcFrame(&position, 0, &a.frame);
    unsigned rowBytes = 0, pitch = 0, rows = 0;
    const unsigned char* out = result ? result->GetBuffer(0, &rowBytes, &pitch, &rows) : nullptr;
    ok &= Check("mirage (id 14) returns a changed copy, the host's frame kept",
                mirage->GetID() == 14 && out != nullptr && out[0] != 0 && a.plane(0)[0] == 0);
    mirage->Free();

    GVideoProcessor* transparency = new CTransparencyAjustEffect();
    transparency->SetProperty("transparency_scale", "50");
    Picture b(PIXFMT_BGRA32);
    transparency->ProcFrameInPlace(&position, 0, &b.frame);
    ok &= Check("transparency (id 15) at 50% turns alpha 255 into 127",
                transparency->GetID() == 15 && b.plane(0)[3] == 127 && b.plane(0)[0] == 0);
    transparency->Free();

    GVideoProcessor* filter = new CColorFilterEffect();
    // The first pixel is blue 0, green 3, red 6: key exactly that colour, 0x060300.
    filter->SetProperty("filter_color", "393984");
    Picture c(PIXFMT_BGRA32);
    filter->ProcFrameInPlace(&position, 0, &c.frame);
    ok &= Check("colour filter (id 16) keys out the first pixel only",
                filter->GetID() == 16 && c.plane(0)[3] == 0 && c.plane(0)[7] == 255);
    filter->Free();

    GVideoProcessor* noise = new CAddNoiseVideoImageEffect();
    noise->SetProperty("addnoise_level", "2");
    Picture d(PIXFMT_YUV420P), e(PIXFMT_YUV420P), f(PIXFMT_YUV420P);
    noise->ProcFrameInPlace(&position, 0, &d.frame);
    noise->ProcFrameInPlace(&position, 0, &e.frame);
    ok &= Check("add noise (id 17) changes luma only, the same grain each frame",
                noise->GetID() == 17 && d.bytes() == e.bytes() &&
                    !std::equal(d.plane(0), d.plane(1), f.plane(0)) &&
                    std::equal(d.plane(1), d.bytes().data() + d.bytes().size(), f.plane(1)));
    noise->Free();
    return ok ? 0 : 1;
}
