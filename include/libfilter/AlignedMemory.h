// Aligned allocation with a 16-byte header (pad, size) just before the returned block.
#pragma once

#include <utility>

#include <cstddef>

extern "C" {
void* _aligned_malloc(size_t size, size_t alignment);
void _aligned_free(void* p);
void* _aligned_realloc(void* p, size_t size, size_t alignment);
}

namespace MediaCore {

// A block of aligned memory owned by its holder (frame pixels, lookup tables).
class AlignedBuffer {
public:
    explicit AlignedBuffer(unsigned alignment = 16) : alignment_(alignment) {}
    ~AlignedBuffer();
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;

    // Frees the old block and allocates `size` bytes; raises "malloc memory failed" on failure.
    void Resize(unsigned size, const char* file, unsigned line);
    void Release();

    unsigned Size() const { return size_; }
    unsigned Alignment() const { return alignment_; }
    void SetAlignment(unsigned alignment) { alignment_ = alignment; }
    unsigned char* Data() const { return data_; }
    // Exchanges blocks (sizes and alignments with them) with `other`.
    void Swap(AlignedBuffer& other) noexcept {
        std::swap(size_, other.size_);
        std::swap(data_, other.data_);
        std::swap(alignment_, other.alignment_);
    }

private:
    unsigned size_ = 0;
    unsigned char* data_ = nullptr;
    unsigned alignment_;
};

}  // namespace MediaCore
