// The transforms in each width of x86 registers against the portable ones.
#ifdef QEL_X86
#include "qel/math/fft/x86/float32.hpp"
#include "tests/math/fft_api.hpp"

namespace {

using namespace qel::fft;

/// All four transforms of n points, or 2n reals, one result behind the other.
std::vector<float> all_of(const FloatTransforms& transforms, size_t n, const std::vector<float>& x,
                          bool in_place) {
    const auto length = static_cast<int32_t>(n);
    auto* complex = qel_fft_alloc_c2c_float32_c(length);
    auto* real = qel_fft_alloc_r2c_float32_c(2 * length);
    std::vector<float> all;
    const auto keep = [&](bool may_share, auto run) {
        std::vector<float> in = x, other(x.size());
        std::vector<float>& out = may_share && in_place ? in : other;
        run(&out[1], &in[1]);  // aligned to their element only
        all.insert(all.end(), out.begin() + 1, out.begin() + 1 + 2 * length);
    };
    for (const bool inverse : {false, true})
        keep(false, [&](float* out, float* in) {
            transforms.c2c((FloatPoint*)out, (FloatPoint*)in, *complex, inverse);
        });
    keep(true, [&](float* out, float* in) { transforms.r2c((FloatPoint*)out, in, *real); });
    keep(true, [&](float* out, float* in) { transforms.c2r(out, (FloatPoint*)in, *real); });
    qel_fft_destroy_c2c_float32_c(complex);
    qel_fft_destroy_r2c_float32_c(real);
    return all;
}

TEST(FftX86, EqualsThePortableTransformsAtEveryLength) {
    const FloatTransforms& portable = kFloatTransforms<Element<float>>;
    std::vector<const FloatTransforms*> runnable = {&kSse2Transforms};
    if (has_avx2()) runnable.push_back(&kAvx2Transforms);
    if (has_avx512()) runnable.push_back(&kAvx512Transforms);
    std::vector<size_t> lengths = {384, 432, 1000, 1009, 1024, 1600, 1920, 2048, 4096, 8192};
    for (size_t n = 1; n <= 140; ++n) lengths.push_back(n);
    for (size_t n = 144; n <= 1000; n += 8) lengths.push_back(n);
    for (const size_t n : lengths) {
        const auto x = random_values<float>(2 * n + 3, 1);
        const auto expected = all_of(portable, n, x, false);
        for (const auto* wide : runnable)
            for (const bool in_place : {false, true})
                EXPECT_EQ(all_of(*wide, n, x, in_place), expected) << n << ' ' << in_place;
    }
}

}  // namespace
#endif
