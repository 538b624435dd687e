// Factorisation, and the order in which the twiddles of a complex transform are stored.
#include "qel/math/fft/generic/plan.hpp"

#include <algorithm>

namespace qel::fft {
namespace {

int32_t next_radix(int32_t n, bool end_in_8) {
    if (end_in_8 && n == 8) return 8;
    if (end_in_8 && n == 24) return 3;
    if (end_in_8 && n == 40) return 5;
    if (n % 4 == 0) return 4;
    if (n % 2 == 0) return 2;
    if (n % 5 == 0) return 5;
    if (n % 3 == 0) return 3;
    return n;  // one stage for the whole remainder
}

}  // namespace

void factorise(int32_t* factors, int32_t n, bool end_in_8) {
    std::fill_n(factors, static_cast<int>(QEL_FFT_FACTOR_WORDS), 0);
    const int32_t length = n;
    int32_t *pair = factors, flag = 0;
    do {  // a length of 1 has one stage too, of radix 1
        const int32_t radix = next_radix(n, end_in_8);
        if (radix != 2 && radix != 4) flag = 1;
        n /= radix;
        pair += 2;
        pair[0] = radix;
        pair[1] = n;
        ++factors[0];
    } while (n > 1);
    factors[1] = length / pair[0];
    pair[2] = flag;
}

}  // namespace qel::fft

void qel_fft_generate_twiddles_impl_float32(void* twiddles, const int32_t* factors, int32_t nfft,
                                            qel_fft_twiddles_line line) {
    const int32_t count = factors[0], last_radix = factors[2 * count];
    int32_t fstride = factors[1];
    if (last_radix % 2 != 0) {
        twiddles = line(twiddles, 1, fstride, 2, nfft);  // a single one
        twiddles = line(twiddles, 1, fstride, last_radix, nfft);
    }
    for (int32_t stage = count - 1; stage > 0; --stage) {
        const int32_t radix = factors[2 * stage], m = factors[2 * stage + 1];
        fstride /= radix;
        twiddles = line(twiddles, m, fstride, radix, nfft);
    }
}
