// Transforms of every length and type on heap blocks of the exact size; short ones are compared
// with the transform as it is defined.
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/math/fft/qel_fft.h"
#include "tests/support/reference_dft.hpp"

namespace {

constexpr int32_t kLongest = 700, kLongestCompared = 64;

template <class Sample>
struct Api;

#define API(Sample, suffix)                                                \
    template <>                                                            \
    struct Api<Sample> {                                                   \
        using Complex = qel_fft_cpx_##suffix;                              \
        static constexpr auto& alloc_c2c = qel_fft_alloc_c2c_##suffix;     \
        static constexpr auto& alloc_r2c = qel_fft_alloc_r2c_##suffix;     \
        static constexpr auto& destroy_c2c = qel_fft_destroy_c2c_##suffix; \
        static constexpr auto& destroy_r2c = qel_fft_destroy_r2c_##suffix; \
        static constexpr auto& c2c = qel_fft_c2c_1d_##suffix;              \
        static constexpr auto& r2c = qel_fft_r2c_1d_##suffix;              \
        static constexpr auto& c2r = qel_fft_c2r_1d_##suffix;              \
    }
API(float, float32);
API(int32_t, int32);
API(int16_t, int16);

/// Calls a transform; the integer ones also take whether they scale.
template <class Sample, class... Args>
void run(void (*transform)(Args...), auto* out, const auto* in, const auto* plan, int32_t scaled,
         auto... inverse) {
    if constexpr (std::is_same_v<Sample, float>)
        transform(out, in, plan, inverse...);
    else
        transform(out, in, plan, inverse..., scaled);
}

/// Values of any bits, or tame ones that no stage wraps.
template <class Sample>
std::vector<Sample> values(FuzzedDataProvider* input, size_t count, double peak) {
    std::vector<Sample> x(count);
    uint32_t seed = input->ConsumeIntegral<uint32_t>();
    for (Sample& v : x) {
        seed = seed * 1664525u + 1013904223u;
        if (peak == 0) {
            memcpy(&v, &seed, sizeof v);
        } else {
            v = static_cast<Sample>(peak * static_cast<int32_t>(seed) / 2147483648.0);
        }
    }
    return x;
}

template <class Sample>
void compare(const Spectrum& expected, const Sample* out, double scale, double peak) {
    double worst = 0;
    for (size_t k = 0; k < expected.size(); ++k) {
        const std::complex<double> got(out[2 * k], out[2 * k + 1]);
        worst = std::max(worst, std::abs(got - expected[k] * scale));
    }
    // One rounding a stage; scaled down, at most a unit of each stage is left. Twiddles of 16 bits
    // are 2^-16 off, each.
    const auto n = static_cast<double>(expected.size());
    const double relative = std::is_same_v<Sample, int16_t> ? 2e-4 : 2e-6;
    const double units = std::is_same_v<Sample, float> ? 0 : 4;
    require(worst <= units * std::max(1.0, n * scale) + relative * peak * std::max(1.0, n * scale));
}

template <class Sample>
void transform(FuzzedDataProvider* input) {
    using A = Api<Sample>;
    const int32_t n = input->ConsumeIntegralInRange(-1, kLongest);
    const int32_t inverse = input->ConsumeBool(), scaled = input->ConsumeBool();
    const bool real = input->ConsumeBool(), tame = input->ConsumeBool();
    const double length = std::max(n, 1);
    const double full = std::is_same_v<Sample, float>
                            ? 1000
                            : static_cast<double>(std::numeric_limits<Sample>::max());
    const double peak = tame ? (scaled ? full / 2 : full / (2 * length)) : 0;
    const bool is_float = std::is_same_v<Sample, float>;
    const bool compared = tame && n > 0 && n <= kLongestCompared;

    if (!real) {
        const std::unique_ptr<std::remove_pointer_t<decltype(A::alloc_c2c(0))>,
                              std::remove_reference_t<decltype(A::destroy_c2c)>>
            plan(A::alloc_c2c(n), A::destroy_c2c);
        require((plan != nullptr) == (n > 0));
        if (!plan) return;
        const auto in = values<Sample>(input, 2 * static_cast<size_t>(n), peak);
        std::vector<Sample> out(in.size());
        run<Sample>(A::c2c, reinterpret_cast<typename A::Complex*>(out.data()),
                    reinterpret_cast<const typename A::Complex*>(in.data()), plan.get(), scaled,
                    inverse);
        if (!compared) return;
        Spectrum x;
        for (size_t i = 0; i < in.size(); i += 2) x.emplace_back(in[i], in[i + 1]);
        const bool divides =
            is_float ? inverse && std::has_single_bit(static_cast<uint32_t>(n)) : scaled != 0;
        compare(reference_dft(x, inverse), out.data(), divides ? 1 / length : 1, peak);
        return;
    }
    const std::unique_ptr<std::remove_pointer_t<decltype(A::alloc_r2c(0))>,
                          std::remove_reference_t<decltype(A::destroy_r2c)>>
        plan(A::alloc_r2c(n), A::destroy_r2c);
    if (n <= 0 || (!plan && n % 2)) return require(!plan);
    require(plan != nullptr && plan->ncfft == n >> 1);
    const size_t samples = 2 * static_cast<size_t>(plan->ncfft);
    const auto in = values<Sample>(input, samples, peak);
    std::vector<Sample> bins(samples + 2), back(samples);
    auto* const spectrum = reinterpret_cast<typename A::Complex*>(bins.data());
    run<Sample>(A::r2c, spectrum, in.data(), plan.get(), scaled);
    if (compared && samples > 0) {
        Spectrum x = reference_dft(Spectrum(in.begin(), in.end()));
        x.resize(samples / 2 + 1);
        const double total = static_cast<double>(samples);
        compare(x, bins.data(), !is_float && scaled ? 1 / total : 1, peak);
    }
    run<Sample>(A::c2r, back.data(), spectrum, plan.get(), !scaled);
    if (compared && is_float) {
        for (size_t i = 0; i < samples; ++i) {
            require(std::abs(static_cast<double>(back[i]) - static_cast<double>(in[i])) < 0.01);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 2)) {
        case 0: transform<float>(&input); break;
        case 1: transform<int32_t>(&input); break;
        default: transform<int16_t>(&input); break;
    }
    return 0;
}
