// ProcFrame on the library's own frames writes the copy in one walk for the effects that allow
// it: the result must be byte for byte a full copy changed in place, padding and rows outside a
// crop included, and the frame handed in must not change.
#include <gtest/gtest.h>

#include <random>

#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// Every byte of every plane's memory, rows x pitch from its start, crop or not.
std::vector<uint8_t> AllBytes(GVideoFrame* frame) {
    std::vector<uint8_t> bytes;
    auto* own = dynamic_cast<CVideoFrame*>(frame);
    for (unsigned i = 0; own != nullptr && own->GetBuffer(i) != nullptr; ++i) {
        const CVideoFrame::PlaneRecord* plane = own->GetBuffer(i);
        if (plane->data != nullptr)
            bytes.insert(bytes.end(), plane->data,
                         plane->data + size_t{plane->rows} * plane->pitch);
    }
    return bytes;
}

TEST(OnePass, ProcFrameGivesACopyChangedInPlace) {
    const std::vector<FrameShape> shapes = KernelShapes({30, 0, 4, 6, 7, 35, 5});
    std::mt19937 random(7);
    ImagePostion position{};
    for (const ServedEffect& served : ServedEffects()) {
        for (size_t i = 0; i < shapes.size(); ++i) {
            const FrameShape& shape = shapes[i];
            if (shape.width != 1920 && random() % 8 != 0) continue;
            const PropertyList settings =
                catalogue::Showcase(*served.description, shape.width, shape.height);
            FactoryEffect effect(served.Create(), settings);
            TestImage host(shape, static_cast<uint32_t>(i)),
                reference(shape, static_cast<uint32_t>(i));
            const bool crop = i % 2 == 0;
            if (crop) {
                host.Frame().CropRightAndBottom(shape.width / 3, 2);
                reference.Frame().CropRightAndBottom(shape.width / 3, 2);
            }
            const std::vector<uint8_t> before = host.Snapshot();
            GVideoFrame* result = effect.p->ProcFrame(&position, 0, &host.Frame());
            FramePtr copy(reference.Frame().Clone());
            effect.p->ProcFrameInPlace(&position, 0, copy.get());
            ASSERT_NE(result, nullptr) << served.name;
            EXPECT_EQ(AllBytes(result), AllBytes(copy.get()))
                << served.name << " on " << ShapeName(shape) << (crop ? " cropped" : "");
            EXPECT_EQ(host.Snapshot(), before) << served.name << " on " << ShapeName(shape);
        }
    }
}

}  // namespace
