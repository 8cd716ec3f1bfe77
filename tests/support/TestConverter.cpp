#include "support/TestConverter.h"

#include <algorithm>
#include <memory>

#include "core/Planes.h"

namespace testing_support {

using namespace MediaCore;

namespace {

// A frame over memory it owns; Free on it does nothing, as on frames a converter hands out.
struct OwnedFrame {
    std::unique_ptr<CVideoFrame> frame;
    std::vector<std::vector<uint8_t>> planes;
};

// `in` as `format` at width x height (0 keeps the input's): output plane p, byte (y, x) is input
// plane min(p, last) byte (y * inRows / rows, x * inRowBytes / rowBytes), rows in memory order.
// Pitches are row bytes + `padding`. Null for an unknown format or an input without memory.
std::unique_ptr<OwnedFrame> Resample(GVideoFrame* in, int format, unsigned width, unsigned height,
                                     unsigned padding) {
    unsigned inWidth = 0, inHeight = 0;
    in->GetDimension(&inWidth, &inHeight);
    auto out = std::make_unique<OwnedFrame>();
    try {
        out->frame = std::make_unique<CVideoFrame>(false, format, width ? width : inWidth,
                                                   height ? height : inHeight, in->IsTopDown());
    } catch (...) {
        return nullptr;
    }
    out->frame->SetTimeStamp(in->GetTimeStamp());
    const unsigned inPlanes = in->GetBufferCount();
    if (inPlanes == 0) return nullptr;
    for (unsigned p = 0; p < out->frame->GetBufferCount(); ++p) {
        CVideoFrame::PlaneRecord* record = out->frame->GetBuffer(p);
        const Plane src = GetPlane(in, std::min(p, inPlanes - 1));
        if (src.data == nullptr) return nullptr;
        record->pitch = record->rowBytes + padding;
        out->planes.emplace_back(size_t{record->pitch} * record->rows + 1, 0);
        record->data = out->planes.back().data();
        if (src.Empty()) continue;
        for (unsigned y = 0; y < record->rows; ++y) {
            const uint8_t* from = src.Row(uint64_t{y} * src.rows / record->rows);
            for (unsigned x = 0; x < record->rowBytes; ++x)
                record->data[size_t{y} * record->pitch + x] =
                    from[uint64_t{x} * src.rowBytes / record->rowBytes];
        }
    }
    return out;
}

class TestConverter final : public GFrameConverter {
public:
    TestConverter(TestController& owner, const TestController::Request& request)
        : owner_(owner), request_(request) {
        ++owner_.live;
    }
    void GetTarget(int* option, int* pixelFormat) override {
        if (option != nullptr) *option = request_.option;
        if (pixelFormat != nullptr) *pixelFormat = request_.format;
    }
    GVideoFrame* Convert(GVideoFrame* in) override {
        ++owner_.converts;
        last_.reset();
        if (in == nullptr || owner_.failure == TestController::Failure::NullConvert) {
            return nullptr;
        }
        unsigned width = request_.width, height = request_.height;
        if (owner_.failure == TestController::Failure::HalfSize) {
            unsigned w = 0, h = 0;
            in->GetDimension(&w, &h);
            width = (width ? width : w) / 2;
            height = (height ? height : h) / 2;
        }
        last_ = Resample(in, request_.format, width, height, owner_.padding);
        return last_ ? last_->frame.get() : nullptr;
    }
    void Release() override {
        --owner_.live;
        delete this;
    }

private:
    TestController& owner_;
    TestController::Request request_;
    std::unique_ptr<OwnedFrame> last_;
};

}  // namespace

GFrameConverter* TestController::CreateFrameConverter(int format, unsigned width, unsigned height,
                                                      int option) {
    requests.push_back({format, width, height, option});
    if (failure == Failure::NoConverter) return nullptr;
    return new TestConverter(*this, requests.back());
}

}  // namespace testing_support
