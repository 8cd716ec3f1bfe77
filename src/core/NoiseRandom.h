// The process-wide random generator behind the grain effects.
//
// A 32-bit linear congruential generator with the portable C rule: the state steps as
// state * 1103515245 + 12345 and each value is (state / 65536) % 32768, so values span
// 0..32767, the 15-bit range the grain gains are made for. It never touches the C library's
// own rand state. The state is one atomic word: a caller takes a whole run of steps with one
// compare-exchange (jumping the state ahead by the run's length), so effects drawing on
// several threads at once each get an unbroken run of the sequence and no draw is lost or
// repeated.
#pragma once

#include <cstdint>

namespace MediaCore::NoiseRandom {

// Largest value the generator answers.
constexpr unsigned kMax = 32767;

constexpr unsigned ValueOf(uint32_t state) {
    return (state / 65536u) % 32768u;
}

// The affine map state -> mul * state + add that `count` steps make.
struct Jump {
    uint32_t mul = 1;
    uint32_t add = 0;
};

constexpr Jump JumpOf(uint64_t count) {
    Jump total;
    Jump power{1103515245u, 12345u};  // one step
    for (; count != 0; count >>= 1) {
        if (count & 1) total = {total.mul * power.mul, total.add * power.mul + power.add};
        power = {power.mul * power.mul, power.add * power.mul + power.add};
    }
    return total;
}

constexpr uint32_t Advance(uint32_t state, const Jump& jump) {
    return jump.mul * state + jump.add;
}

// Restarts the sequence; before any seeding it starts as if seeded with 1.
void Seed(uint32_t seed);
// Seeds from the wall clock in seconds, time(NULL).
void SeedFromClock();

// Moves the shared state `count` steps on in one atomic step and answers the state the run
// starts from.
uint32_t Reserve(uint64_t count);

// Hands `count` consecutive values of the sequence to sink(value), in order. Four chains,
// each four steps apart, keep the multiplier busy instead of waiting on one chain.
template <class Sink>
void Draw(uint64_t count, Sink&& sink) {
    constexpr Jump kOne = JumpOf(1), kFour = JumpOf(4);
    uint32_t chain[4];
    uint32_t state = Reserve(count);
    for (uint32_t& c : chain)
        c = state = Advance(state, kOne);
    uint64_t i = 0;
    for (; i + 4 <= count; i += 4) {
        for (uint32_t& c : chain) {
            sink(ValueOf(c));
            c = Advance(c, kFour);
        }
    }
    for (int c = 0; i < count; ++i, ++c)
        sink(ValueOf(chain[c]));
}

}  // namespace MediaCore::NoiseRandom
