#include "libfilter/AlignedMemory.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/ErrorReport.h"

namespace {

// Two 64-bit words just before every block: bytes skipped to reach the alignment, then the
// size asked for.
struct Header {
    uint64_t pad;
    uint64_t size;
};
static_assert(sizeof(Header) == 16, "the header is two 64-bit words");

Header* HeaderOf(void* p) {
    return static_cast<Header*>(p) - 1;
}

}  // namespace

extern "C" void* _aligned_malloc(size_t size, size_t alignment) {
    if (alignment == 0) alignment = 1;
    if (size > SIZE_MAX - alignment - sizeof(Header)) return nullptr;
    auto* raw = static_cast<unsigned char*>(std::malloc(size + alignment + sizeof(Header)));
    if (raw == nullptr) return nullptr;
    unsigned char* p = raw + sizeof(Header);
    const uintptr_t misalign = reinterpret_cast<uintptr_t>(p) % alignment;
    const size_t pad = misalign == 0 ? 0 : alignment - misalign;
    unsigned char* result = p + pad;
    Header header{pad, size};
    std::memcpy(HeaderOf(result), &header, sizeof header);  // may be unaligned for odd alignments
    return result;
}

extern "C" void _aligned_free(void* p) {
    if (p == nullptr) return;  // tolerated, though callers must not rely on it
    Header header;
    std::memcpy(&header, HeaderOf(p), sizeof header);
    std::free(static_cast<unsigned char*>(p) - header.pad - sizeof(Header));
}

extern "C" void* _aligned_realloc(void* p, size_t size, size_t alignment) {
    void* fresh = _aligned_malloc(size, alignment);
    if (p == nullptr) return fresh;
    if (fresh != nullptr) {
        Header old;
        std::memcpy(&old, HeaderOf(p), sizeof old);
        std::memcpy(fresh, p, std::min<size_t>(old.size, size));
    }
    // On failure the old block goes too: callers treat a null answer as "nothing left".
    _aligned_free(p);
    return fresh;
}

namespace MediaCore {

AlignedBuffer::~AlignedBuffer() {
    Release();
}

void AlignedBuffer::Release() {
    if (data_ != nullptr) _aligned_free(data_);
    data_ = nullptr;
    size_ = 0;
}

void AlignedBuffer::Resize(unsigned size, const char* file, unsigned line) {
    Release();
    data_ = static_cast<unsigned char*>(_aligned_malloc(size, alignment_));
    if (data_ == nullptr) Raise(file, line, ErrorText::kMallocFailed);
    size_ = size;
}

}  // namespace MediaCore
