// Emboss: worked bytes, flat frames, host kernels.
#include <gtest/gtest.h>

#include <tuple>

#include "core/Planes.h"
#include "libfilter/EmbossEffect.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

FactoryEffect Emboss(const char* level = nullptr) {
    return FactoryEffect(AVPROCESSOR_EMBOSS,
                         level ? PropertyList{{"emboss_level", level}} : PropertyList{});
}

std::vector<uint8_t> Bytes(const uint8_t* p, size_t n) {
    return {p, p + n};
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

TEST(Emboss, WorkedBytes) {
    struct Case {
        int format;
        const char* level;
        std::vector<uint8_t> above, row, expected;
    } const cases[] = {
        {90, nullptr, {100, 110, 140}, {110, 100, 100}, {178, 78, 255}},
        {30, nullptr, {100, 110, 140, 7}, {110, 100, 100, 9}, {178, 78, 0, 9}},
        {90, "-1", {100, 110, 140}, {110, 100, 100}, {118, 138, 168}},
        // 255 x 16843009 is 2^32 - 1: the plane's product wraps back into range.
        {90, "16843009", {0, 255, 0}, {255, 0, 1}, {127, 129, 255}},
        {30, "0", {0, 255, 9, 1}, {255, 0, 9, 2}, {128, 128, 128, 2}},
        {90, "0", {0, 255, 9}, {255, 0, 9}, {128, 128, 128}},
    };
    for (const Case& c : cases) {
        TestImage image({c.format, c.format == 30 ? 1u : 3u, 2}, 4);
        std::copy(c.above.begin(), c.above.end(), image.Row(0, 0));
        std::copy(c.row.begin(), c.row.end(), image.Row(0, 1));
        Emboss(c.level).Run(image.Frame());
        EXPECT_EQ(Bytes(image.Row(0, 1), c.row.size()), c.expected);
        EXPECT_EQ(Bytes(image.Row(0, 0), c.row.size()), c.above);
    }
}

// Whatever the level, a flat picture becomes flat mid-gray below its first row (packed alpha
// kept): each row's difference to the one above is 0.
TEST(Emboss, FlatFramesBecomeMidGray) {
    for (const char* level : {"5", "0", "-3", "16843009", "-2147483648"}) {
        FactoryEffect effect = Emboss(level);
        for (int format : {0, 90, 30}) {
            TestImage image({format, 6, 3, 2}, 1);
            for (unsigned y = 0; y < 3; ++y)
                std::fill_n(image.Row(0, y), image.RowBytes(0), 77);
            effect.Run(image.Frame());
            for (unsigned x = 0; x < image.RowBytes(0); ++x) {
                EXPECT_EQ(image.Row(0, 0)[x], 77);
                EXPECT_EQ(image.Row(0, 2)[x], format == 30 && x % 4 == 3 ? 77 : 128) << level;
            }
        }
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
    FactoryEffect effect = Emboss("-3");
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
