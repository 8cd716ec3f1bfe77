// Exchanging two byte ranges, the move that flips colour planes and mirrors rows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace MediaCore {

// Swaps the first `bytes` bytes of a and b, which do not overlap.
using ExchangeFn = void (*)(uint8_t* a, uint8_t* b, size_t bytes);

// The widest form of the exchange this machine runs.
__attribute__((visibility("hidden"))) ExchangeFn PickExchange();

}  // namespace MediaCore
