// The discrete Fourier transform as it is defined, in double, and what tests measure against it.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

using Spectrum = std::vector<std::complex<double>>;

/// sum x[n] e^(-2 pi i nk/N) over all n, for each k; the opposite sign for the inverse. Unscaled.
inline Spectrum reference_dft(const Spectrum& x, bool inverse = false) {
    const size_t n = x.size();
    Spectrum roots(n), out(n);
    for (size_t k = 0; k < n; ++k) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(k) / static_cast<double>(n);
        roots[k] = std::polar(1.0, inverse ? angle : -angle);
    }
    for (size_t k = 0; k < n; ++k) {
        double re = 0, im = 0;  // std::complex products look for NaN, slowly
        for (size_t i = 0, turn = 0; i < n; ++i) {
            re += x[i].real() * roots[turn].real() - x[i].imag() * roots[turn].imag();
            im += x[i].real() * roots[turn].imag() + x[i].imag() * roots[turn].real();
            turn += k;
            if (turn >= n) turn -= n;
        }
        out[k] = {re, im};
    }
    return out;
}

inline Spectrum divided(Spectrum x, double n) {
    for (auto& v : x) v /= n;
    return x;
}

/// How far `actual` is from the first of `expected`, in dB below it (rms).
inline double snr_db(const Spectrum& expected, const Spectrum& actual) {
    double signal = 0, error = 0;
    for (size_t k = 0; k < actual.size(); ++k) {
        signal += std::norm(expected[k]);
        error += std::norm(actual[k] - expected[k]);
    }
    return 10 * std::log10(signal / error);
}

/// The same uniform values every time, each within +-amplitude; of integer types, whole ones.
template <class T>
std::vector<T> random_values(size_t count, double amplitude) {
    std::mt19937 bits(1);
    std::uniform_real_distribution<double> value(-amplitude, amplitude);
    std::vector<T> x(count);
    for (T& v : x) v = static_cast<T>(value(bits));
    return x;
}
