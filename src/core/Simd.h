// Run-time choice between a kernel's scalar rule and its vectorised forms.
//
// Every pixel kernel has a scalar rule (the documented formula, written plainly) and may have
// vector forms for wider instruction sets. Each kernel lists its forms in a Variant table,
// lowest level first, and asks Pick for the widest one this machine runs. The vector forms
// must give the scalar rule's bytes; tests lower the level limit to compare them.
#pragma once

#include <cstddef>

#if defined(__x86_64__)
#define LF_X86_64 1
#define LF_TARGET_AVX2 __attribute__((target("avx2")))
#define LF_TARGET_AVX512 __attribute__((target("avx512f,avx512bw")))
#else
#define LF_X86_64 0
#endif

// Marks a scalar rule: GCC must not vectorise it, so it stays the plain loop the vector forms
// are compared against.
#if defined(__clang__)
#define LF_SCALAR_RULE
#else
#define LF_SCALAR_RULE __attribute__((optimize("no-tree-vectorize")))
#endif

namespace MediaCore::Simd {

enum Level : int { kScalar = 0, kSse2 = 1, kAvx2 = 2, kAvx512 = 3 };

// The widest level this processor runs, read once from the engine's capability query.
Level HostLevel();
// The widest level kernels may use: the host level, lowered by SetLevelLimit.
Level ActiveLevel();
// Caps the level kernels pick from (for comparing forms); kAvx512 lifts the cap.
void SetLevelLimit(Level limit);
const char* LevelName(Level level);

template <class Fn>
struct Variant {
    Level level;
    Fn fn;
};

template <class Fn, size_t N>
Fn Pick(const Variant<Fn> (&variants)[N]) {
    const Level active = ActiveLevel();
    Fn chosen = variants[0].fn;
    for (const Variant<Fn>& v : variants) {
        if (v.level <= active) chosen = v.fn;
    }
    return chosen;
}

}  // namespace MediaCore::Simd
