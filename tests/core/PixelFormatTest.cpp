// Plane layouts of every accepted format number, and the rejected numbers.
#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "libfilter/PixelFormat.h"
#include "support/TestFrame.h"

using namespace MediaCore;

namespace {

struct LayoutCase {
    std::vector<int> formats;
    bool packed;
    // Per plane at 7 x 5 pixels: row bytes, rows, crop ratio, divisor.
    std::vector<PlaneLayout> planes;
};

constexpr unsigned R(unsigned num, unsigned den) {
    return num | den << 16;
}

const LayoutCase kLayouts[] = {
    {{0, 12, 25, 26, 72}, false, {{7, 5, R(1, 1), 1}, {3, 2, R(1, 2), 2}, {3, 2, R(1, 2), 2}}},
    {{4, 13, 74}, false, {{7, 5, R(1, 1), 1}, {3, 5, R(1, 2), 1}, {3, 5, R(1, 2), 1}}},
    {{5, 14}, false, {{7, 5, R(1, 1), 1}, {7, 5, R(1, 1), 1}, {7, 5, R(1, 1), 1}}},
    {{6}, false, {{7, 5, R(1, 1), 1}, {1, 1, R(1, 4), 4}, {1, 1, R(1, 4), 4}}},
    {{7}, false, {{7, 5, R(1, 1), 1}, {1, 5, R(1, 4), 1}, {1, 5, R(1, 4), 1}}},
    {{33}, false, {{7, 5, R(1, 1), 1}, {7, 2, R(1, 1), 2}, {7, 2, R(1, 1), 2}}},
    {{35}, false, {{7, 5, R(1, 1), 1}, {3, 2, R(1, 2), 2}, {3, 2, R(1, 2), 2}, {7, 5, R(1, 1), 1}}},
    {{90}, false, {{7, 5, R(1, 1), 1}, {7, 5, R(1, 1), 1}, {7, 5, R(1, 1), 1}, {7, 5, R(1, 1), 1}}},
    {{11}, false, {{7, 5, R(1, 1), 1}, {0, 0, 0, 0}}},
    {{8}, true, {{7, 5, R(1, 1), 1}}},
    {{9, 10}, true, {{0, 5, R(1, 8), 1}}},
    {{1, 17}, true, {{14, 5, R(4, 2), 1}}},
    {{18}, true, {{10, 5, R(6, 4), 1}}},
    {{2, 3}, true, {{21, 5, R(3, 1), 1}}},
    {{27, 28, 29, 30}, true, {{28, 5, R(4, 1), 1}}},
    {{41, 42}, true, {{42, 5, R(6, 1), 1}}},
    {{43, 44, 45, 46, 47, 48, 49, 50}, true, {{14, 5, R(2, 1), 1}}},
};

auto Fields(const PlaneLayout& plane) {
    return std::make_tuple(plane.rowBytes, plane.rows, plane.cropRatio, plane.divisor);
}

}  // namespace

// A frame carries one record per plane (one for packed formats); every other number is refused.
TEST(PixelFormat, EveryAcceptedFormatHasItsLayoutAndOthersAreRefused) {
    std::set<int> known;
    for (const LayoutCase& c : kLayouts) {
        for (int format : c.formats) {
            SCOPED_TRACE(format);
            known.insert(format);
            const PixelFormatLayout layout = GetPixelFormatLayout(format, 7, 5);
            EXPECT_EQ(layout.packed, c.packed);
            EXPECT_TRUE(c.packed || layout.planeCount == c.planes.size());
            for (size_t i = 0; i < c.planes.size(); ++i)
                EXPECT_EQ(Fields(layout.planes[i]), Fields(c.planes[i])) << "plane " << i;
            CVideoFrame frame(false, format, 7, 5, true);
            EXPECT_EQ(std::make_pair(size_t{frame.GetBufferCount()}, frame.IsPacked()),
                      std::make_pair(c.planes.size(), c.packed));
        }
    }
    // Odd and zero sizes round up.
    const PixelFormatLayout odd = GetPixelFormatLayout(0, 5, 3),
                            empty = GetPixelFormatLayout(30, 0, 0);
    EXPECT_EQ(std::make_tuple(odd.planes[1].rowBytes, odd.planes[1].rows,
                              GetPixelFormatLayout(18, 3, 1).planes[0].rowBytes,
                              empty.planes[0].rowBytes + empty.planes[0].rows),
              std::make_tuple(2u, 1u, 4u, 0u));
    EXPECT_EQ(known.size(), 38u);
    for (int format = -2; format < 200; ++format) {
        try {
            GetPixelFormatLayout(format, 4, 4);
            EXPECT_TRUE(known.count(format)) << format;
        } catch (GException& e) {
            EXPECT_FALSE(known.count(format)) << format;
            EXPECT_EQ(std::string(e.GetMessage()), "Bad pixel format:" + std::to_string(format));
        }
    }
    EXPECT_THROW(CVideoFrame(false, 15, 4, 4, true), GException);
}
