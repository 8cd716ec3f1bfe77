#include "core/Simd.h"

#include <atomic>

#include "libfilter/Siblings.h"

namespace MediaCore::Simd {

namespace {

std::atomic<int> g_limit{kAvx512};

Level LevelFromCapability(unsigned caps) {
#if LF_X86_64
    if (caps & CPU_CAP_AVX512BW) return kAvx512;
    if (caps & CPU_CAP_AVX2) return kAvx2;
    return kSse2;  // every x86-64 has SSE2
#else
    (void)caps;
    return kScalar;
#endif
}

}  // namespace

Level HostLevel() {
    static const Level level = LevelFromCapability(libcore_GetCpuCapability());
    return level;
}

Level ActiveLevel() {
    const int limit = g_limit.load(std::memory_order_relaxed);
    const Level host = HostLevel();
    return limit < host ? static_cast<Level>(limit) : host;
}

void SetLevelLimit(Level limit) {
    g_limit.store(limit, std::memory_order_relaxed);
}

const char* LevelName(Level level) {
    switch (level) {
        case kScalar:
            return "scalar";
        case kSse2:
            return "sse2";
        case kAvx2:
            return "avx2";
        case kAvx512:
            return "avx512";
    }
    return "?";
}

}  // namespace MediaCore::Simd
