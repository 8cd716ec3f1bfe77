#include "core/Exchange.h"

#include <algorithm>

#include "core/SimdOps.h"

namespace MediaCore {

namespace {

void ExchangeScalar(uint8_t* a, uint8_t* b, size_t bytes) {
    std::swap_ranges(a, a + bytes, b);
}

#if LF_X86_64
// Exchanging only moves memory; AVX-512 measured no faster than AVX2 here, so it has no form.
struct ExchangeVectors {
    template <class I>
    static void Run(uint8_t* a, uint8_t* b, size_t bytes) {
        size_t i = 0;
        for (; i + I::kBytes <= bytes; i += I::kBytes) {
            typename I::V x, y;
            I::Load(x, a + i);
            I::Load(y, b + i);
            I::Store(a + i, y);
            I::Store(b + i, x);
        }
        ExchangeScalar(a + i, b + i, bytes - i);
    }
};
#endif

constexpr Simd::Variant<ExchangeFn> kExchange[] = {
    {Simd::kScalar, ExchangeScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<ExchangeVectors>},
    {Simd::kAvx2, Simd::RunAvx2<ExchangeVectors>},
#endif
};

}  // namespace

ExchangeFn PickExchange() {
    return Simd::Pick(kExchange);
}

}  // namespace MediaCore
