#include "codecs/g729a/vector_sum.h"

namespace g729a {

namespace {

// On machines with many registers the x stay in them, which leaves a load and a multiply-add to a product; elsewhere
// the loop over i becomes vector instructions.
template <bool added>
inline void correlate(int16_t const x[20], int16_t const* y, int32_t* sum, int n) {
    for (int first = 0; first < n; first += correlation_block) {
        for (int i = first; i < first + correlation_block; ++i) {
            int32_t one = added ? sum[i] : 0;
#pragma GCC unroll 20
            for (int k = 0; k < 20; ++k)
                one += x[k] * y[i + k];
            sum[i] = one;
        }
    }
}

}  // namespace

void correlate_20(int16_t const x[20], int16_t const* y, int32_t* sum, int n) {
    correlate<false>(x, y, sum, n);
}

void add_correlations_20(int16_t const x[20], int16_t const* y, int32_t* sum, int n) {
    correlate<true>(x, y, sum, n);
}

}  // namespace g729a
