#include "core/NoiseRandom.h"

#include <atomic>
#include <ctime>

namespace MediaCore::NoiseRandom {

namespace {

std::atomic<uint32_t> g_state{1};

}  // namespace

void Seed(uint32_t seed) {
    g_state.store(seed, std::memory_order_relaxed);
}

void SeedFromClock() {
    Seed(static_cast<uint32_t>(std::time(nullptr)));
}

uint32_t Reserve(uint64_t count) {
    const Jump jump = JumpOf(count);
    uint32_t start = g_state.load(std::memory_order_relaxed);
    while (!g_state.compare_exchange_weak(start, Advance(start, jump), std::memory_order_relaxed)) {
    }
    return start;
}

}  // namespace MediaCore::NoiseRandom
