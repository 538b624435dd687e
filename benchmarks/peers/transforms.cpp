// The float32 transforms beside FFTW's, which picks the widest vectors that the processor has and,
// by a patient plan, the fastest order it finds.
#include "benchmarks/peers/transforms.hpp"

#include <fftw3.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "qel/math/fft/qel_fft.h"
#include "tests/support/reference_dft.hpp"

namespace {

constexpr double kFloor = 100;  // dB that a result lies above its error at least
constexpr double kSeconds = 0.6;
constexpr int kPlans = 3;

/// A patient plan of FFTW. Making it overwrites both arrays; it does not scale.
class FftwPlan {
  public:
    /// The fastest of a few: a planner that is disturbed while it measures chooses badly.
    static FftwPlan fastest(FftKind kind, int n, float* in, float* out);
    FftwPlan(FftwPlan&& other) noexcept : plan_(std::exchange(other.plan_, nullptr)) {}
    ~FftwPlan() {
        if (plan_) fftwf_destroy_plan(plan_);
    }
    void run() const { fftwf_execute(plan_); }

  private:
    FftwPlan(FftKind kind, int n, float* in, float* out);
    fftwf_plan plan_;
};

/// Reals that FFTW may take aligned vectors from.
class Reals {
  public:
    explicit Reals(size_t count) : data_(fftwf_alloc_real(count)), count_(count) {}
    Reals(Reals&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), count_(other.count_) {}
    ~Reals() { fftwf_free(data_); }
    float* real() const { return data_; }
    fftwf_complex* fftw() const { return reinterpret_cast<fftwf_complex*>(data_); }
    qel_fft_cpx_float32* ours() const { return reinterpret_cast<qel_fft_cpx_float32*>(data_); }
    void fill(const Spectrum& x, bool complex) {
        for (size_t i = 0; i < x.size(); ++i) {
            data_[complex ? 2 * i : i] = static_cast<float>(x[i].real());
            if (complex) data_[2 * i + 1] = static_cast<float>(x[i].imag());
        }
    }
    Spectrum values(bool complex) const {
        Spectrum x;
        for (size_t i = 0; i < count_; i += complex ? 2 : 1)
            x.emplace_back(data_[i], complex ? data_[i + 1] : 0);
        return x;
    }

  private:
    float* data_;
    size_t count_;
};

/// Signal and spectrum of `n` points; of a real signal the spectrum's first half.
struct Pair {
    Spectrum signal, bins;
    Pair(size_t n, bool complex) {
        const auto x = random_values<float>(2 * n, 1);
        for (size_t i = 0; i < n; ++i) signal.emplace_back(x[2 * i], complex ? x[2 * i + 1] : 0);
        bins = reference_dft(signal);
        if (!complex) bins.resize(n / 2 + 1);
    }
};

FftwPlan::FftwPlan(FftKind kind, int n, float* in, float* out) {
    const auto complex = [](float* x) { return reinterpret_cast<fftwf_complex*>(x); };
    // Both libraries leave the input alone.
    const unsigned flags = FFTW_PATIENT | FFTW_PRESERVE_INPUT;
    plan_ = kind == FftKind::kC2c
                ? fftwf_plan_dft_1d(n, complex(in), complex(out), FFTW_FORWARD, flags)
            : kind == FftKind::kR2c ? fftwf_plan_dft_r2c_1d(n, in, complex(out), flags)
                                    : fftwf_plan_dft_c2r_1d(n, complex(in), out, flags);
}

FftwPlan FftwPlan::fastest(FftKind kind, int n, float* in, float* out) {
    std::optional<FftwPlan> best;
    double best_time = 0;
    for (int i = 0; i < kPlans; ++i) {
        fftwf_forget_wisdom();
        FftwPlan plan(kind, n, in, out);
        const double time = least_time({[&plan] { plan.run(); }});
        if (best && time >= best_time) continue;
        best.emplace(std::move(plan));
        best_time = time;
    }
    return std::move(*best);
}

/// What three transforms work on and with.
struct FrameTransforms {
    Reals time, bins, out_time, out_bins;
    FftwPlan there, back;
    explicit FrameTransforms(size_t n)
        : time(n),
          bins(n + 2),
          out_time(n),
          out_bins(n + 2),
          there(
              FftwPlan::fastest(FftKind::kR2c, static_cast<int>(n), time.real(), out_bins.real())),
          back(
              FftwPlan::fastest(FftKind::kC2r, static_cast<int>(n), bins.real(), out_time.real())) {
        std::fill_n(time.real(), n, 0.5f);
        std::fill_n(bins.real(), n + 2, 0.5f);
    }
};

}  // namespace

void compare_transform(FftKind kind, size_t n) {
    const bool c2c = kind == FftKind::kC2c, back = kind == FftKind::kC2r;
    const char* const kinds[] = {"c2c", "r2c", "c2r"};
    const std::string name = kinds[static_cast<int>(kind)] + std::string(" ") + std::to_string(n);
    const Pair pair(n, c2c);
    const Spectrum& from = back ? pair.bins : pair.signal;
    const Spectrum& to = back ? pair.signal : pair.bins;
    const bool to_complex = !back;
    const size_t in_size = (c2c || back ? 2 : 1) * from.size();
    Reals in(in_size), out((to_complex ? 2 : 1) * to.size());
    const auto length = static_cast<int>(n);
    const FftwPlan fftw = FftwPlan::fastest(kind, length, in.real(), out.real());
    in.fill(from, c2c || back);  // planning overwrites both arrays

    const auto checked = [&](const Work& work, double gain, const char* whose) {
        work.run();
        check(snr_db(divided(to, 1 / gain), out.values(to_complex)) > kFloor,
              name + " by " + whose + " is wrong");
    };
    const Work theirs = {[&] { fftw.run(); }};
    // FFTW's way back does not scale.
    checked(theirs, back ? static_cast<double>(n) : 1, "FFTW");
    const auto measured = [&](const Work& ours) {
        checked(ours, 1, "this library");
        compare(ours, {{name, theirs}}, kSeconds);
    };
    if (c2c) {
        auto* plan = qel_fft_alloc_c2c_float32(length);
        measured({[&] { qel_fft_c2c_1d_float32(out.ours(), in.ours(), plan, 0); }});
        qel_fft_destroy_c2c_float32(plan);
        return;
    }
    auto* plan = qel_fft_alloc_r2c_float32(length);
    measured(back ? Work{[&] { qel_fft_c2r_1d_float32(out.real(), in.ours(), plan); }}
                  : Work{[&] { qel_fft_r2c_1d_float32(out.ours(), in.real(), plan); }});
    qel_fft_destroy_r2c_float32(plan);
}

Work fftw_transforms_of_a_frame(size_t n) {
    const auto frame = std::make_shared<FrameTransforms>(n);
    return {[frame] { frame->there.run(), frame->there.run(), frame->back.run(); }};
}
