// libcore: the engine's memory copy and processor-capability query, for running libfilter
// outside its engine. An engine with its own libcore replaces this library at load time.
#include <cstring>

#include "libfilter/Siblings.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

extern "C" void* libcore_memcpy(void* destination, const void* source, size_t count) {
    if (count == 0) return destination;
    return std::memcpy(destination, source, count);
}

namespace {

#if defined(__x86_64__)
// Which register state the operating system saves on a context switch.
unsigned long long ReadXcr0() {
    unsigned eax = 0, edx = 0;
    __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
    return (static_cast<unsigned long long>(edx) << 32) | eax;
}

unsigned DetectCapability() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return 0;
    unsigned caps = 0;
    if (edx & bit_SSE2) caps |= CPU_CAP_SSE2;
    if (ecx & bit_SSSE3) caps |= CPU_CAP_SSSE3;
    if (ecx & bit_SSE4_1) caps |= CPU_CAP_SSE41;
    const bool osxsave = (ecx & bit_OSXSAVE) != 0;
    if (!osxsave) return caps;
    const unsigned long long xcr0 = ReadXcr0();
    const bool ymmSaved = (xcr0 & 0x6) == 0x6;    // SSE and AVX state
    const bool zmmSaved = (xcr0 & 0xE6) == 0xE6;  // plus opmask and upper ZMM state
    if (__get_cpuid_max(0, nullptr) < 7) return caps;
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    if (ymmSaved && (ebx & bit_AVX2)) caps |= CPU_CAP_AVX2;
    if (zmmSaved && (ebx & bit_AVX512F) && (ebx & bit_AVX512BW)) caps |= CPU_CAP_AVX512BW;
    return caps;
}
#else
unsigned DetectCapability() {
    return 0;
}
#endif

}  // namespace

extern "C" unsigned libcore_GetCpuCapability() {
    static const unsigned caps = DetectCapability();
    return caps;
}
