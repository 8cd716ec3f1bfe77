// Aligned blocks and their header words.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "libfilter/AlignedMemory.h"

namespace {

uint64_t HeaderWord(void* p, int index) {
    uint64_t word;
    std::memcpy(&word, static_cast<unsigned char*>(p) - 16 + 8 * index, sizeof word);
    return word;
}

}  // namespace

TEST(AlignedMemory, AlignsAndRecordsHeader) {
    for (size_t alignment : {1, 2, 16, 24, 64, 100, 4096}) {
        void* p = _aligned_malloc(100, alignment);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignment, 0u) << alignment;
        EXPECT_LT(HeaderWord(p, 0), alignment) << "pad";
        EXPECT_EQ(HeaderWord(p, 1), 100u) << "size";
        std::memset(p, 0x5A, 100);
        _aligned_free(p);
    }
    void* p = _aligned_malloc(10, 0);  // alignment 0 counts as 1
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(HeaderWord(p, 0), 0u);
    _aligned_free(p);
    EXPECT_EQ(_aligned_malloc(SIZE_MAX - 8, 16), nullptr);
}

TEST(AlignedMemory, ReallocKeepsContents) {
    auto* p = static_cast<unsigned char*>(_aligned_realloc(nullptr, 64, 32));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 64; ++i)
        p[i] = static_cast<unsigned char>(i);
    p = static_cast<unsigned char*>(_aligned_realloc(p, 256, 64));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(p[i], i);
    p = static_cast<unsigned char*>(_aligned_realloc(p, 8, 16));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(HeaderWord(p, 1), 8u);
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(p[i], i);
    // A failed reallocation loses the old block too.
    EXPECT_EQ(_aligned_realloc(p, SIZE_MAX - 8, 16), nullptr);
}
