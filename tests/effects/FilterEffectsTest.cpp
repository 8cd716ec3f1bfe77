// Blur, sharpen and emboss, the 3x3 filters: worked planes and host kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "core/Planes.h"
#include "libfilter/EmbossEffect.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

constexpr unsigned kBlur = AVPROCESSOR_GAUSS_BLUR, kSharpen = AVPROCESSOR_LAPLACIAN_SHARPEN,
                   kEmboss = AVPROCESSOR_EMBOSS;

// `count` zeros but for `value` at `at`.
std::vector<uint8_t> Dot(size_t count, size_t at, uint8_t value) {
    std::vector<uint8_t> bytes(count, 0);
    bytes[at] = value;
    return bytes;
}

PropertyList Level(const char* level) {
    return {{"emboss_level", level}};
}

// What a kernel was called with: pixels, width, pitch, rows, level.
using Call = std::tuple<void*, int, unsigned, unsigned, int64_t>;
std::vector<Call> g_calls;
void SpyRgba32(unsigned* p, int w, unsigned pitch, unsigned h, int level) {
    g_calls.push_back({p, w, pitch, h, level});
}
void SpyComponent(unsigned char* p, int w, unsigned pitch, unsigned h, unsigned level) {
    g_calls.push_back({p, w, pitch, h, level});
}

}  // namespace

// Plane 0 row after row from the top, `in.size() / height` bytes a row; no `out`: unchanged.
TEST(Filters, WorkedPlanes) {
    const struct {
        unsigned id;
        PropertyList settings;
        int format;
        unsigned width, height, declaredBytes;  // declaredBytes: a row narrower than the frame's
        std::vector<uint8_t> in, out;
    } cases[] = {
        // clang-format off
        // A 3-row plane gets one filtered row; in a 4-row one row 2 repeats row 1 (not its own 24).
        {kBlur, {}, 90, 3, 3, 0, {9, 9, 9, 0, 160, 0, 0, 0, 0}, {9, 9, 9, 0, 42, 0, 0, 0, 0}},
        {kBlur, {}, 90, 3, 4, 0, {0, 16, 0, 0, 32, 0, 0, 48, 0, 0, 64, 0},
                                 {0, 16, 0, 0, 16, 0, 0, 16, 0, 0, 64, 0}},
        {kSharpen, {}, 90, 3, 5, 0, Dot(15, 7, 200), Dot(15, 7, 255)},
        {kSharpen, {}, 90, 2, 4, 0, {1, 200, 0, 90, 255, 3, 7, 7}, {}},
        // Packed alpha is filtered like colour; an 11-byte packed row is under three pixels.
        {kBlur, {}, 30, 3, 3, 0, Dot(36, 19, 160), Dot(36, 19, 40)},
        {kSharpen, {}, 30, 3, 3, 11, Dot(36, 7, 200), {}},
        // Emboss at its default 5: 110 under 100 is 178, 100 under 110 is 78, 100 under 140 is
        // below 0: 255 in a plane, 0 in a packed channel. Packed alpha stays.
        {kEmboss, {}, 90, 3, 2, 0, {100, 110, 140, 110, 100, 100}, {100, 110, 140, 178, 78, 255}},
        {kEmboss, {}, 30, 1, 2, 0, {100, 110, 140, 7, 110, 100, 100, 9},
                                   {100, 110, 140, 7, 178, 78, 0, 9}},
        {kEmboss, Level("-1"), 90, 3, 2, 0, {100, 110, 140, 110, 100, 100},
                                            {100, 110, 140, 118, 138, 168}},
        // 255 x 16843009 is 2^32 - 1: the plane's product wraps back into range.
        {kEmboss, Level("16843009"), 90, 3, 2, 0, {0, 255, 0, 255, 0, 1},
                                                  {0, 255, 0, 127, 129, 255}},
        {kEmboss, Level("0"), 90, 3, 2, 0, {0, 255, 9, 255, 0, 9}, {0, 255, 9, 128, 128, 128}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.id << " on " << c.width << "x" << c.height);
        TestImage image({c.format, c.width, c.height, 2}, 5);
        if (c.declaredBytes != 0) image.Frame().GetBuffer(0u)->rowBytes = c.declaredBytes;
        const size_t row = c.in.size() / c.height;
        for (unsigned y = 0; y < c.height; ++y)
            std::copy_n(c.in.begin() + y * row, row, image.Row(0, y));
        const std::vector<uint8_t> before = image.Snapshot();
        FactoryEffect(c.id, c.settings).Run(image.Frame());
        std::vector<uint8_t> got;
        for (unsigned y = 0; y < c.height; ++y)
            got.insert(got.end(), image.Row(0, y), image.Row(0, y) + row);
        EXPECT_TRUE(c.out.empty() ? image.Snapshot() == before : got == c.out);
    }
}

TEST(Emboss, HostKernelsTakeOverAndEmptyPlanesNeverReachThem) {
    const EmbossRgba32Kernel rgba32 = emboss_effect_rgba32;
    const EmbossComponentKernel component = emboss_effect_component;
    emboss_effect_rgba32 = SpyRgba32;
    emboss_effect_component = SpyComponent;
    TestImage packed({PIXFMT_BGRA32, 5, 4, 3}, 1), planar({PIXFMT_PLANAR4_FULL, 6, 2, 1}, 2);
    TestImage cropped({PIXFMT_YUV420P, 8, 3}, 3);
    cropped.Frame().CropRightAndBottom(0, 2);  // one luma row, no chroma rows
    const std::vector<uint8_t> before = packed.Snapshot();
    g_calls.clear();
    FactoryEffect effect(kEmboss, Level("-3"));
    for (TestImage* image : {&packed, &planar, &cropped})
        effect.Run(image->Frame());
    emboss_effect_rgba32 = rgba32;
    emboss_effect_component = component;
    auto plane = [](TestImage& image, unsigned i) { return GetPlane(&image.Frame(), i).data; };
    const std::vector<Call> expected = {{plane(packed, 0), 5, 23, 4, -3},
                                        {plane(planar, 0), 6, 7, 2, 0xFFFFFFFDu},
                                        {plane(planar, 1), 6, 7, 2, 0xFFFFFFFDu},
                                        {plane(planar, 2), 6, 7, 2, 0xFFFFFFFDu},
                                        {plane(cropped, 0), 8, 8, 1, 0xFFFFFFFDu}};
    EXPECT_EQ(g_calls, expected);
    EXPECT_EQ(packed.Snapshot(), before);
}
