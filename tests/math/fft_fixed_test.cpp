// The int32 and int16 transforms: accuracy, worst cases, and the way there and back.
#include <functional>

#include "tests/math/fft_api.hpp"

namespace {

template <class T>
class FftFixed : public testing::Test {
  protected:
    static constexpr double kFullScale = -1.0 * std::numeric_limits<T>::min();
};
using FixedTypes = testing::Types<int32_t, int16_t>;
TYPED_TEST_SUITE(FftFixed, FixedTypes);

/// The largest difference of a part, in units of the last place.
double worst(const Spectrum& expected, const Spectrum& actual) {
    double error = 0;
    for (size_t k = 0; k < actual.size(); ++k) {
        const auto d = actual[k] - expected[k];
        error = std::max({error, std::abs(d.real()), std::abs(d.imag())});
    }
    return error;
}

TYPED_TEST(FftFixed, KeepsItsAccuracy) {  // for full-scale noise: half a bit goes with each octave
    const double level = sizeof(TypeParam) == 4 ? 187.9 : 91.7;  // in dB
    for (const size_t n : {64, 128, 256, 512, 1024, 2048, 4096, 24, 120, 1000}) {
        for (const auto& [kind, inverse, loss] :
             {std::tuple{kComplex, false, 0.0}, {kComplex, true, 0.0}, {kReal, false, 2.1}}) {
            const auto x = random_values<TypeParam>(kind == kReal ? n : 2 * n, this->kFullScale);
            const auto exact = divided(reference_dft(values(kind, x), inverse), 1.0 * n);
            const auto actual = values(kComplex, fft(kind, n, x, inverse, true));
            EXPECT_GT(snr_db(exact, actual), level - loss - 10 * std::log10(1.0 * n))
                << n << (kind == kReal ? " real" : "") << (inverse ? " inverse" : "");
        }
    }
}

TYPED_TEST(FftFixed, GoesThereAndBackAtEveryLength) {
    for (size_t points = 1; points <= 140; ++points) {
        for (const Kind kind : {kComplex, kReal}) {
            const size_t n = kind == kReal ? 2 * points : points;
            const auto real_n = static_cast<double>(n);
            SCOPED_TRACE(testing::Message() << kind << ' ' << n);
            const double root = std::sqrt(real_n), safe = 0.7 * this->kFullScale;
            const auto x = random_values<TypeParam>(2 * points, safe);
            auto bins = fft(kind, n, x, false, true);
            const auto exact = divided(reference_dft(values(kind, x)), real_n);
            EXPECT_LT(worst(exact, values(kComplex, bins)), 4);
            if (kind == kReal) {
                EXPECT_TRUE(bins[1] == 0 && bins[n + 1] == 0);
                bins[1] = bins[n + 1] = 1234;  // these two are not read
            }
            const auto back = fft(kind, n, bins, true, false);  // rounding errors add up
            EXPECT_LT(worst(values(kind, x), values(kind, back)), 4 * root + 1);

            const auto quiet = random_values<TypeParam>(2 * points, safe / real_n);
            const auto loud = fft(kind, n, quiet, false, false);
            EXPECT_LT(worst(reference_dft(values(kind, quiet)), values(kComplex, loud)),
                      root + 1.5);
            EXPECT_LT(worst(values(kind, quiet), values(kind, fft(kind, n, loud, true, true))), 4);
        }
    }
}

TYPED_TEST(FftFixed, NothingOverflowsWhenScaled) {
    constexpr TypeParam kMin = std::numeric_limits<TypeParam>::min();
    constexpr TypeParam kMax = std::numeric_limits<TypeParam>::max();
    for (const size_t n : {2, 4, 7, 8, 16, 24, 120, 512, 1024}) {
        // Which parts are at the minimum, the others being at the maximum. Corners that turn with a
        // bin exceed full scale, by up to 4/pi, in the exact result.
        const double turn = 2 * std::numbers::pi * (n / 8 + 1.0) / static_cast<double>(n);
        const std::function<bool(size_t)> patterns[] = {
            [](size_t) { return true; },
            [](size_t) { return false; },
            [](size_t i) { return i / 2 % 2 == 0; },
            [](size_t i) { return i / 4 % 2 == 0; },
            [](size_t i) { return i < 2; },
            [turn](size_t i) { return std::cos(turn * (i / 2) + 0.1 - (i % 2) * 1.5708) < 0; }};
        for (const auto& pattern : patterns) {
            std::vector<TypeParam> x;
            for (size_t i = 0; i < 2 * n; ++i) x.push_back(pattern(i) ? kMin : kMax);
            for (const auto& [kind, inverse] :
                 {std::pair{kComplex, false}, {kComplex, true}, {kReal, false}}) {
                if (kind == kReal && &pattern == &patterns[5]) continue;
                const size_t length = kind == kReal ? 2 * n : n;
                auto exact = divided(reference_dft(values(kind, x), inverse), 1.0 * length);
                for (auto& v : exact)  // these go beyond the upper end only
                    v = {std::min<double>(v.real(), kMax), std::min<double>(v.imag(), kMax)};
                // The twiddle of 1.0 is a unit short, which shows near full scale, once a stage.
                EXPECT_LT(worst(exact, values(kComplex, fft(kind, length, x, inverse, true))), 6)
                    << length << " #" << &pattern - patterns << " kind " << kind << inverse;
            }
        }
    }
}

TYPED_TEST(FftFixed, UnscaledIsExactOrWraps) {
    const auto level = static_cast<TypeParam>(this->kFullScale * 0.75);
    const auto sum = fft<TypeParam>(kComplex, 4, std::vector<TypeParam>(2 * 4, level), false);
    EXPECT_EQ(sum[0], static_cast<TypeParam>(4 * static_cast<int64_t>(level)));
    std::vector<TypeParam> impulse(2 * 16), flat(2 * 16);
    impulse[0] = 1;
    for (size_t k = 0; k < 16; ++k) flat[2 * k] = 1;
    EXPECT_EQ(fft(kComplex, 16, impulse, false), flat);
}

}  // namespace
