// Properties every effect the library describes must have, checked on random frames of every
// format it may touch under its default, showcase and random in-range settings:
// - every vector form gives its scalar rule's bytes (guards, padding and crop included), at
//   every instruction level this processor has;
// - ProcFrame on the library's own frames, which writes the copy in one walk for the effects
//   that allow it, gives byte for byte a full copy changed in place (padding and rows outside
//   a crop included), at each level, and leaves the frame handed in as it was.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "core/Simd.h"
#include "libfilter/libfilter.h"
#include "support/TestFrame.h"

using namespace MediaCore;
using namespace testing_support;

namespace {

// Packed, the planar YUV members with each chroma thinning, the one with alpha, and 4:4:4.
const std::vector<int> kFormats = {30, 0, 4, 6, 7, 12, 13, 33, 35, 90, 5};

// Settings for a frame of this size: 0 the defaults, 1 the showcase, later ones a random value
// inside each property's range.
PropertyList Settings(const EffectDescription& effect, int which, const FrameShape& shape,
                      std::mt19937& random) {
    if (which < 2)
        return which == 0 ? PropertyList{} : catalogue::Showcase(effect, shape.width, shape.height);
    PropertyList list;
    for (unsigned i = 0; i < effect.propertyCount; ++i) {
        const PropertyDescription& p = effect.properties[i];
        const double upper = catalogue::UpperBound(p, shape.width, shape.height);
        const long low = static_cast<long>(p.min), high = std::max(low, static_cast<long>(upper));
        list.emplace_back(
            p.name,
            p.kind == PropertyKind::Flag    ? std::to_string(random() % 2)
            : p.kind == PropertyKind::Color ? std::to_string(random() & 0xFFFFFF)
            : p.kind == PropertyKind::Real
                ? std::to_string(std::uniform_real_distribution<double>(p.min, upper)(random))
                : std::to_string(std::uniform_int_distribution<long>(low, high)(random)));
    }
    return list;
}

TEST(EveryEffect, EveryVectorLevelGivesTheScalarRulesBytes) {
    std::vector<FrameShape> shapes = KernelShapes(kFormats);
    shapes.insert(shapes.end(), {{0, 200, 300, 3, true}, {30, 301, 97, 1}});  // 16-row blocks
    for (const ServedEffect& served : ServedEffects()) {
        std::mt19937 random(served.id);
        for (int which = 0; which < 4; ++which) {
            FactoryEffect effect(served.Create());
            ASSERT_NE(effect.p, nullptr) << served.name;
            // A sample of the shapes, always with the full-HD rows and the tall frames, uncropped
            // and cropped.
            for (size_t i = 0; i < shapes.size(); ++i) {
                const FrameShape& shape = shapes[i];
                if (shape.width < 200 && random() % 12 != 0) continue;
                const PropertyList settings = Settings(*served.description, which, shape, random);
                effect.Set(settings);
                const bool crop = random() % 2 == 0;
                EXPECT_EQ(FirstLevelDiffering(effect.p, shape, crop, static_cast<uint32_t>(i)), "")
                    << served.name << " on " << ShapeName(shape) << (crop ? " cropped" : "")
                    << " with " << testing::PrintToString(settings);
            }
        }
    }
}

// Every byte of every plane's memory, rows x pitch from its start, crop or not.
std::vector<uint8_t> AllBytes(GVideoFrame* frame) {
    std::vector<uint8_t> bytes;
    auto* own = dynamic_cast<CVideoFrame*>(frame);
    for (unsigned i = 0; own != nullptr && own->GetBuffer(i) != nullptr; ++i) {
        const CVideoFrame::PlaneRecord& p = *own->GetBuffer(i);
        if (p.data != nullptr) bytes.insert(bytes.end(), p.data, p.data + size_t{p.rows} * p.pitch);
    }
    return bytes;
}

TEST(EveryEffect, ProcFrameGivesACopyChangedInPlace) {
    const std::vector<FrameShape> shapes = KernelShapes({30, 0, 4, 6, 7, 35, 5});
    std::mt19937 random(7);
    ImagePostion position{};
    for (const ServedEffect& served : ServedEffects()) {
        for (size_t i = 0; i < shapes.size(); ++i) {
            const FrameShape& shape = shapes[i];
            if (shape.width != 1920 && random() % 8 != 0) continue;
            const PropertyList settings = Settings(*served.description, 1 + i % 3, shape, random);
            FactoryEffect effect(served.Create(), settings);
            // Out of place has kernel forms of its own: each shape runs at one of the levels.
            Simd::SetLevelLimit(static_cast<Simd::Level>(i % (Simd::HostLevel() + 1)));
            // A host frame to write into: the same or more padding.
            const FrameShape other{shape.format, shape.width, shape.height,
                                   shape.padding + (i % 3 == 0 ? 5 : 0), shape.bottomUp};
            const auto seed = static_cast<uint32_t>(i);
            TestImage host(shape, seed), reference(shape, seed), target(other, 99),
                expected(other, 99);
            const bool crop = i % 2 == 0;
            for (TestImage* image : {&host, &reference, &target, &expected}) {
                if (crop) image->Frame().CropRightAndBottom(shape.width / 3, 2);
            }
            const std::vector<uint8_t> before = host.Snapshot();
            GVideoFrame* result = effect.p->ProcFrame(&position, 0, &host.Frame());
            FramePtr copy(reference.Frame().Clone());
            effect.p->ProcFrameInPlace(&position, 0, copy.get());
            ASSERT_NE(result, nullptr) << served.name;
            EXPECT_EQ(AllBytes(result), AllBytes(copy.get()))
                << served.name << " on " << ShapeName(shape) << (crop ? " cropped" : "");
            // Into a frame of the host's, in one walk where the pitches agree: exactly what
            // CopyVideoFrame and then the effect in place give.
            EXPECT_TRUE(
                libfilter_ProcFrameInto(effect.p, &position, 0, &host.Frame(), &target.Frame()));
            CopyVideoFrame(&expected.Frame(), &host.Frame());
            effect.p->ProcFrameInPlace(&position, 0, &expected.Frame());
            EXPECT_EQ(target.Snapshot(), expected.Snapshot()) << served.name;
            EXPECT_EQ(host.Snapshot(), before) << served.name << " on " << ShapeName(shape);
            Simd::SetLevelLimit(Simd::kAvx512);
        }
    }
}

TEST(EveryEffect, ProcFrameIntoRefusesWhatItCannotWrite) {
    FactoryEffect invert(AVPROCESSOR_INVERT);
    TestImage frame({30, 4, 2}, 1), taller({30, 4, 3}, 1), planar({0, 4, 2}, 1);
    ImagePostion position{};
    const std::tuple<GVideoProcessor*, ImagePostion*, GVideoFrame*, GVideoFrame*> refused[] = {
        {nullptr, &position, &frame.Frame(), &taller.Frame()},
        {invert.p, nullptr, &frame.Frame(), &taller.Frame()},
        {invert.p, &position, nullptr, &frame.Frame()},
        {invert.p, &position, &frame.Frame(), nullptr},
        {invert.p, &position, &frame.Frame(), &taller.Frame()},
        {invert.p, &position, &frame.Frame(), &planar.Frame()}};
    const std::vector<uint8_t> before = frame.Snapshot();
    for (const auto& [effect, where, source, target] : refused) {
        ReportWatch reports;
        EXPECT_FALSE(libfilter_ProcFrameInto(effect, where, 0, source, target));
        EXPECT_EQ(reports.Count(), 1u) << &effect - &std::get<0>(refused[0]);
    }
    EXPECT_EQ(frame.Snapshot(), before);
    // A frame into itself is the effect in place.
    EXPECT_TRUE(libfilter_ProcFrameInto(invert.p, &position, 0, &frame.Frame(), &frame.Frame()));
    EXPECT_EQ(frame.Row(0, 0)[0], 255 - before[TestImage::kGuard]);
}

}  // namespace
