// Invert: worked values, untouched bytes, and vector forms against the scalar rule.
#include <gtest/gtest.h>

#include "core/Planes.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using testing_support::FrameShape;
using testing_support::HostFrame;
using testing_support::TestImage;

namespace {

const std::vector<int> kPlanarSet = {0, 4, 6, 7, 12, 13, 35, 90};

struct InvertFixture : testing::Test {
    GVideoProcessor* effect = libfilter_GetFilter(nullptr, AVPROCESSOR_INVERT);
    ImagePostion position{};
    ~InvertFixture() override { effect->Free(); }
    void Run(GVideoFrame& frame) { effect->ProcFrameInPlace(&position, 0, &frame); }
};

}  // namespace

TEST_F(InvertFixture, PackedInvertsColourKeepsAlphaTailAndPadding) {
    TestImage image({PIXFMT_BGRA32, 3, 2, 5, false}, 7);
    // Declare a row of 11 bytes: two whole pixels and a 3-byte tail.
    image.Frame().CropRightAndBottom(0, 0);
    uint8_t* row = image.Row(0, 0);
    const uint8_t pixel[] = {10, 20, 30, 40};
    std::copy(pixel, pixel + 4, row);
    const std::vector<uint8_t> before = image.Snapshot();
    Run(image.Frame());
    EXPECT_EQ(row[0], 245);
    EXPECT_EQ(row[1], 235);
    EXPECT_EQ(row[2], 225);
    EXPECT_EQ(row[3], 40);
    const std::vector<uint8_t> after = image.Snapshot();
    // Alpha bytes and padding keep their values; every colour byte changed.
    const size_t start = TestImage::kGuard;
    for (size_t i = 0; i < 2 * 17; ++i) {
        const size_t inRow = i % 17;
        const bool colour = inRow < 12 && inRow % 4 != 3;
        EXPECT_EQ(after[start + i], colour ? 255 - before[start + i] : before[start + i]) << i;
    }
    EXPECT_TRUE(image.GuardsIntact());
}

TEST_F(InvertFixture, PlanarInvertsThreePlanesOnly) {
    for (int format : kPlanarSet) {
        SCOPED_TRACE(format);
        TestImage image({format, 9, 5, 3, true}, 11);
        const std::vector<uint8_t> before = image.Snapshot();
        std::vector<std::vector<uint8_t>> rowsBefore;
        for (unsigned p = 0; p < image.PlaneCount(); ++p) {
            for (unsigned y = 0; y < image.Rows(p); ++y) {
                rowsBefore.emplace_back(image.Row(p, y), image.Row(p, y) + image.Pitch(p));
            }
        }
        Run(image.Frame());
        size_t k = 0;
        for (unsigned p = 0; p < image.PlaneCount(); ++p) {
            for (unsigned y = 0; y < image.Rows(p); ++y, ++k) {
                for (unsigned x = 0; x < image.Pitch(p); ++x) {
                    const bool inverted = p < 3 && x < image.RowBytes(p);
                    const uint8_t was = rowsBefore[k][x];
                    ASSERT_EQ(image.Row(p, y)[x], inverted ? 255 - was : was)
                        << "plane " << p << " row " << y << " byte " << x;
                }
            }
        }
        Run(image.Frame());
        EXPECT_EQ(image.Snapshot(), before);  // inverting twice restores the frame
    }
}

TEST_F(InvertFixture, OtherFormatsAndEmptyFramesPassUntouched) {
    for (int format : {1, 2, 3, 5, 8, 11, 14, 27, 33, 41, 43}) {
        TestImage image({format, 8, 4, 2, false}, 3);
        const auto before = image.Snapshot();
        Run(image.Frame());
        EXPECT_EQ(image.Snapshot(), before) << format;
    }
    // Numbers no frame of ours can carry, answered by a host frame.
    for (int posed : {-1, 31, 36, 64, 91}) {
        HostFrame frame(false, PIXFMT_BGRA32, 2, 2, true);
        std::vector<unsigned char> pixels(16, 7);
        unsigned char* data[] = {pixels.data()};
        int pitches[] = {8};
        frame.SetBuffer(data, pitches, nullptr);
        frame.posedFormat = posed;
        Run(frame);
        EXPECT_EQ(pixels, std::vector<unsigned char>(16, 7)) << posed;
    }
    for (const FrameShape& shape :
         {FrameShape{30, 0, 4}, FrameShape{0, 4, 0}, FrameShape{0, 1, 1}}) {
        TestImage image(shape, 1);
        Run(image.Frame());
        EXPECT_TRUE(image.GuardsIntact());
    }
    // A packed row of 3 bytes holds no pixel.
    std::vector<unsigned char> narrow(6, 9);
    unsigned char* data[] = {narrow.data()};
    int pitches[] = {3};
    CVideoFrame frame(false, PIXFMT_BGRA32, 1, 2, true);
    frame.SetBuffer(data, pitches, nullptr);
    frame.GetBuffer(0u)->rowBytes = 3;
    Run(frame);
    EXPECT_EQ(narrow, std::vector<unsigned char>(6, 9));
}

TEST_F(InvertFixture, VectorFormsMatchTheScalarRule) {
    std::vector<int> formats = kPlanarSet;
    formats.push_back(PIXFMT_BGRA32);
    uint32_t seed = 1;
    for (const FrameShape& shape : testing_support::KernelShapes(formats)) {
        for (bool crop : {false, true}) {
            EXPECT_EQ(testing_support::FirstLevelDiffering(effect, shape, crop, seed++), "")
                << testing_support::ShapeName(shape) << (crop ? " cropped" : "");
        }
    }
}
