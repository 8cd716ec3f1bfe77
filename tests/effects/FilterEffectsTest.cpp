// Blur, sharpen and emboss, the 3x3 filters: worked planes, flat frames, host kernels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

#include "core/Planes.h"
#include "libfilter/EmbossEffect.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

struct Filter {
    AVProcessorID id;
    const char* property;
} const kFilters[] = {{AVPROCESSOR_GAUSS_BLUR, "blur_count"},
                      {AVPROCESSOR_LAPLACIAN_SHARPEN, "sharpen_count"}};

// `count` zeros but for `value` at `at`.
std::vector<uint8_t> Dot(size_t count, size_t at, uint8_t value) {
    std::vector<uint8_t> bytes(count, 0);
    bytes[at] = value;
    return bytes;
}

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

// Plane 0 row after row from the top, `in.size() / height` bytes a row; no `out`: unchanged.
TEST(BlurSharpen, WorkedPlanes) {
    const struct {
        int filter, format;
        unsigned width, height, declaredBytes;  // declaredBytes: a row narrower than the frame's
        std::vector<uint8_t> in, out;
    } cases[] = {
        // clang-format off
        // A 3-row plane gets one filtered row; in a 4-row one row 2 repeats row 1 (not its own 24).
        {0, 90, 3, 3, 0, {9, 9, 9, 0, 160, 0, 0, 0, 0}, {9, 9, 9, 0, 42, 0, 0, 0, 0}},
        {0, 90, 3, 4, 0, {0, 16, 0, 0, 32, 0, 0, 48, 0, 0, 64, 0},
                         {0, 16, 0, 0, 16, 0, 0, 16, 0, 0, 64, 0}},
        {1, 90, 3, 5, 0, Dot(15, 7, 200), Dot(15, 7, 255)},
        {1, 90, 2, 4, 0, {1, 200, 0, 90, 255, 3, 7, 7}, {}},
        // Packed alpha is filtered like colour; an 11-byte packed row is under three pixels.
        {0, 30, 3, 3, 0, Dot(36, 19, 160), Dot(36, 19, 40)},
        {1, 30, 3, 3, 11, Dot(36, 7, 200), {}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.filter << " on " << c.width << "x" << c.height);
        TestImage image({c.format, c.width, c.height, 2}, 5);
        if (c.declaredBytes != 0) image.Frame().GetBuffer(0u)->rowBytes = c.declaredBytes;
        const size_t row = c.in.size() / c.height;
        for (unsigned y = 0; y < c.height; ++y)
            std::copy_n(c.in.begin() + y * row, row, image.Row(0, y));
        const std::vector<uint8_t> before = image.Snapshot();
        FactoryEffect(kFilters[c.filter].id).Run(image.Frame());
        std::vector<uint8_t> got;
        for (unsigned y = 0; y < c.height; ++y)
            got.insert(got.end(), image.Row(0, y), image.Row(0, y) + row);
        EXPECT_TRUE(c.out.empty() ? image.Snapshot() == before : got == c.out);
    }
}

// Both kernels keep a flat picture flat (their weights sum to one), whatever the pass count.
TEST(BlurSharpen, FlatStaysFlatOnEveryFormat) {
    for (const Filter& f : kFilters) {
        for (const char* passes : {"1", "3"}) {
            FactoryEffect effect(f.id, {{f.property, passes}});
            for (int format : {0, 4, 6, 7, 12, 13, 35, 90, 30}) {
                TestImage image({format, 23, 9, 3, true}, 1);
                for (unsigned p = 0; p < image.PlaneCount(); ++p) {
                    for (unsigned y = 0; y < image.Rows(p); ++y)
                        std::memset(image.Row(p, y), 90 + 7 * p, image.RowBytes(p));
                }
                const std::vector<uint8_t> before = image.Snapshot();
                effect.Run(image.Frame());
                EXPECT_EQ(image.Snapshot(), before) << f.property << "=" << passes << " " << format;
            }
        }
    }
}

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
