#include "align.hpp"

#include <algorithm>
#include <cmath>

#include "talk.hpp"
#include "transform.hpp"

namespace app {

namespace {

constexpr double kBlock = 2, kHop = 1;  // s
constexpr size_t kWindow = 1024;        // of the average spectrum
constexpr double kLowest = 60;          // Hz
constexpr int kSmooth = 4;              // bins to either side over which it is smoothed
constexpr int kCell = 8;                // lags that the search takes as one, overlapping by as many
constexpr float kFull = 60;  // strength above which a block counts little more: many must agree
constexpr double kMostDrift = 1000;  // ppm
constexpr double kFound = 16;        // score from which chance is out of the question
constexpr double kSure = 25;         // strength of a peak that is no chance: 5 deviations
constexpr double kBeside = 0.25;     // of the strength of the highest peak
constexpr double kVerySure = 49;     // the same among all lags
constexpr double kMoved = 0.001;     // s off the line that make a move
constexpr int kMovedBlocks = 3;      // in a row
constexpr double kSilentLag = 1e-4;  // of the power in reach: a lag's part without sound
constexpr double kQuiet = 3;         // rms in sample units up to which a block has no sound

/// Average power in kWindow / 2 + 1 bins, smoothed.
std::vector<double> average_spectrum(const Signal& x) {
    Transform transform(kWindow);
    std::vector<double> power(transform.bins()), smooth(transform.bins());
    Signal part(kWindow);
    for (size_t at = 0; at + kWindow <= x.size(); at += kWindow / 2) {
        for (size_t i = 0; i < kWindow; ++i) {
            const double phase = 2 * M_PI * static_cast<double>(i) / kWindow;
            part[i] = x[at + i] * static_cast<float>(0.5 - 0.5 * std::cos(phase));
        }
        const Spectrum spectrum = transform.forward(part);
        for (size_t i = 0; i < power.size(); ++i) power[i] += std::norm(spectrum[i]);
    }
    const int bins = static_cast<int>(power.size());
    for (int i = 0; i < bins; ++i) {
        const int first = std::max(0, i - kSmooth), last = std::min(bins - 1, i + kSmooth);
        double sum = 0;
        for (int k = first; k <= last; ++k) sum += power[static_cast<size_t>(k)];
        smooth[static_cast<size_t>(i)] = sum / (last - first + 1);
    }
    return smooth;
}

/// The signal with a flat average spectrum, so that its correlations have narrow peaks; without
/// what is no sound.
Signal whitened(const Signal& x, int rate) {
    std::vector<double> power = average_spectrum(x);
    const double floor = 1e-7 * *std::max_element(power.begin(), power.end()) + 1e-9;
    for (double& p : power) p = 1 / std::sqrt(p + floor);
    Transform transform(fast_length(x.size() + kWindow));
    Spectrum spectrum = transform.forward(x);
    const double step =
        static_cast<double>(power.size() - 1) / static_cast<double>(spectrum.size() - 1);
    for (size_t i = 0; i < spectrum.size(); ++i) {
        const double at = static_cast<double>(i) * step;
        const size_t k = std::min(static_cast<size_t>(at), power.size() - 2);
        const double part = at - static_cast<double>(k);
        const double hertz = 0.5 * rate * at / static_cast<double>(power.size() - 1);
        if (hertz < kLowest) spectrum[i] = 0;
        spectrum[i] *= static_cast<float>(power[k] * (1 - part) + power[k + 1] * part);
    }
    Signal white = transform.backward(spectrum);
    white.resize(x.size());
    return white;
}

struct Block {
    double at_s;         // middle
    Signal correlation;  // at lags from -most to most, over what chance gives on average
};

class Correlator {
  public:
    Correlator(const Signal& mic, const Signal& ref, int rate, double most_s)
        : mic_(mic),
          ref_(ref),
          rate_(rate),
          most_(std::lround(most_s * rate)),
          length_(static_cast<size_t>(kBlock * rate)),
          transform_(fast_length(length_ + 2 * static_cast<size_t>(most_))) {}

    long most() const { return most_; }

    /// One block for each second in which `sounding(at)` holds.
    template <class Sounding>
    std::vector<Block> blocks(Sounding sounding) {
        std::vector<Block> all;
        const auto hop = static_cast<size_t>(kHop * rate_);
        for (size_t at = 0; at + length_ <= mic_.size(); at += hop) {
            if (sounding(at, length_)) all.push_back(block(at));
        }
        return all;
    }

  private:
    Block block(size_t at) {
        const Spectrum mic = transform_.forward({&mic_[at], length_});
        Signal around(length_ + 2 * static_cast<size_t>(most_));
        for (size_t i = 0; i < around.size(); ++i) {
            const long from = static_cast<long>(at + i) - most_;
            if (from >= 0 && from < static_cast<long>(ref_.size())) {
                around[i] = ref_[static_cast<size_t>(from)];
            }
        }
        Spectrum product = transform_.forward(around);
        for (size_t i = 0; i < product.size(); ++i) product[i] *= std::conj(mic[i]);
        const Signal turned = transform_.backward(product);  // at index most - lag
        Block block;
        block.at_s = (static_cast<double>(at) + static_cast<double>(length_) / 2) / rate_;
        const auto lags = static_cast<ptrdiff_t>(2 * most_ + 1);
        block.correlation.assign(turned.begin(), turned.begin() + lags);
        even_out(block.correlation, around);
        std::reverse(block.correlation.begin(), block.correlation.end());
        normalise(block.correlation);
        return block;
    }

    /// Divides by the level of the part of the reference that each lag takes: beside silence even
    /// chance would stand out. Where that part is silent the lag tells nothing and is 0.
    void even_out(Signal& x, const Signal& around) const {
        double all = 0, part = 0;
        for (const float v : around) all += static_cast<double>(v) * v;
        const double share = static_cast<double>(length_) / static_cast<double>(around.size());
        const double floor = 0.1 * all * share + 1e-20;
        for (size_t i = 0; i < length_; ++i) part += static_cast<double>(around[i]) * around[i];
        for (size_t i = 0; i < x.size(); ++i) {
            x[i] =
                part < kSilentLag * all ? 0.0f : x[i] / static_cast<float>(std::sqrt(part + floor));
            if (i + 1 == x.size()) break;
            part += static_cast<double>(around[i + length_]) * around[i + length_] -
                    static_cast<double>(around[i]) * around[i];
        }
    }

    /// Scales to a deviation of 1, as the median of the lags that tell something has it: a peak
    /// does not count.
    static void normalise(Signal& x) {
        Signal sizes;
        for (const float v : x) {
            if (v != 0) sizes.push_back(std::fabs(v));
        }
        if (sizes.empty()) return;
        const auto middle = sizes.begin() + static_cast<ptrdiff_t>(sizes.size() / 2);
        std::nth_element(sizes.begin(), middle, sizes.end());
        const float scale = 0.6745f / std::max(*middle, 1e-20f);
        for (float& v : x) v *= scale;
    }

    const Signal& mic_;
    const Signal& ref_;
    const int rate_;
    const long most_;
    const size_t length_;
    Transform transform_;
};

/// Greatest squares of overlapping cells of lags.
Signal cells_of(const Signal& correlation) {
    Signal cells(correlation.size() / kCell - 1);
    for (size_t i = 0; i < cells.size(); ++i) {
        float most = 0;
        for (size_t k = i * kCell; k < (i + 2) * kCell; ++k) {
            most = std::max(most, correlation[k] * correlation[k]);
        }
        cells[i] = most < kFull ? most : kFull * (1 + std::log(most / kFull));
    }
    return cells;
}

struct Line {
    double delay = 0, ppm = 0, score = 0;  // delay at time 0, in samples
    double at(double seconds, int rate) const { return delay + ppm * 1e-6 * seconds * rate; }
};

/// The line of delay over time that most blocks agree on.
Line best_line(const std::vector<Block>& blocks, int rate, long most, double most_ppm) {
    if (blocks.empty()) return {};
    std::vector<Signal> cells;
    for (const Block& block : blocks) cells.push_back(cells_of(block.correlation));
    const size_t count = cells[0].size();
    // In between two steps the far end of the line moves by a cell.
    const double step = 1e6 * kCell / (rate * std::max(4.0, blocks.back().at_s));
    const int steps = static_cast<int>(most_ppm / step);
    Line best;
    double mean = 0, deviation = 0;
    Signal sum(count);
    for (int order = 0; order <= 2 * steps; ++order) {  // 0, 1, -1, 2, -2, ...
        const int k = order % 2 == 1 ? (order + 1) / 2 : -order / 2;
        const double ppm = k * step;
        std::fill(sum.begin(), sum.end(), 0.0f);
        for (size_t b = 0; b < blocks.size(); ++b) {
            const long shift = std::lround(ppm * 1e-6 * blocks[b].at_s * rate / kCell);
            const auto first = static_cast<size_t>(std::max(0L, -shift));
            const long end = std::min(static_cast<long>(count), static_cast<long>(count) - shift);
            for (size_t i = first; static_cast<long>(i) < end; ++i) {
                sum[i] += cells[b][static_cast<size_t>(static_cast<long>(i) + shift)];
            }
        }
        if (k == 0) {
            // As quantiles tell them: the echo itself is among the cells.
            Signal sorted = sum;
            std::sort(sorted.begin(), sorted.end());
            mean = sorted[count / 2];
            deviation = std::max(1e-9, sorted[count * 84 / 100] - mean);
        }
        const auto top = std::max_element(sum.begin(), sum.end());
        const double score = (*top - mean) / deviation;
        if (score > best.score) {
            const double cell = static_cast<double>(top - sum.begin());
            best = {kCell * (cell + 1) - static_cast<double>(most), ppm, score};
        }
    }
    return best;
}

struct Peak {
    double lag, strength;
};

/// The highest peak within `reach` of a lag, interpolated.
Peak peak_near(const Signal& correlation, long most, double lag, long reach) {
    const long last = static_cast<long>(correlation.size()) - 2;
    const long middle = std::lround(lag) + most;
    const long from = std::clamp(middle - reach, 1L, last),
               to = std::clamp(middle + reach, 1L, last);
    long top = from;
    const auto size = [&](long i) { return std::fabs(correlation[static_cast<size_t>(i)]); };
    for (long i = from; i <= to; ++i) {
        if (size(i) > size(top)) top = i;
    }
    const double a = size(top - 1), b = size(top), c = size(top + 1), bend = a - 2 * b + c;
    const double off = bend < 0 ? 0.5 * (a - c) / bend : 0;
    return {static_cast<double>(top - most) + std::clamp(off, -0.5, 0.5), b * b};
}

/// A straight line through points that mostly lie on one.
struct Fit {
    double at_zero = 0, slope = 0, slope_error = 0;
    size_t points = 0;
};

Fit fit_line(std::vector<std::pair<double, double>> points) {
    Fit fit;
    for (int round = 0; round < 4 && points.size() >= 2; ++round) {
        const auto n = static_cast<double>(points.size());
        double mx = 0, my = 0, sxx = 0, sxy = 0;
        for (const auto& [x, y] : points) {
            mx += x / n;
            my += y / n;
        }
        for (const auto& [x, y] : points) {
            sxx += (x - mx) * (x - mx);
            sxy += (x - mx) * (y - my);
        }
        fit.slope = sxx > 0 ? sxy / sxx : 0;
        fit.at_zero = my - fit.slope * mx;
        fit.points = points.size();
        std::vector<double> off;
        for (const auto& [x, y] : points) off.push_back(std::fabs(y - fit.at_zero - fit.slope * x));
        double squares = 0;
        for (const double o : off) squares += o * o;
        fit.slope_error = n > 2 && sxx > 0 ? std::sqrt(squares / (n - 2) / sxx) : 0;
        std::vector<double> sorted = off;
        std::sort(sorted.begin(), sorted.end());
        const double limit = std::max(0.5, 4 * sorted[sorted.size() / 2]);
        std::vector<std::pair<double, double>> kept;
        for (size_t i = 0; i < points.size(); ++i) {
            if (off[i] <= limit) kept.push_back(points[i]);
        }
        if (kept.size() == points.size() || kept.size() < 3) break;
        points = std::move(kept);
    }
    return fit;
}

/// Blocks in which both signals sound.
auto sounding_in(const Signal& mic, const Signal& ref) {
    return [&mic, &ref](size_t at, size_t length) {
        if (at + length > ref.size()) return false;
        return rms({&mic[at], length}) > kQuiet && rms({&ref[at], length}) > kQuiet;
    };
}

std::vector<std::pair<double, double>> points_near(const std::vector<Block>& blocks, long most,
                                                   const Line& line, int rate, long reach) {
    std::vector<std::pair<double, double>> points;
    for (const Block& block : blocks) {
        const Peak peak = peak_near(block.correlation, most, line.at(block.at_s, rate), reach);
        const Peak highest = peak_near(block.correlation, most, 0, most);
        // Beside a far higher peak it is a sidelobe.
        if (peak.strength > kSure && peak.strength > kBeside * highest.strength)
            points.emplace_back(block.at_s, peak.lag);
    }
    return points;
}

bool delay_moves(const std::vector<BlockDelay>& blocks, const Line& line, int rate) {
    int run = 0;
    double last = 0;
    for (const BlockDelay& block : blocks) {
        const bool off = block.strength > kVerySure &&
                         std::fabs(block.samples - line.at(block.at_s, rate)) > kMoved * rate;
        const bool same = run > 0 && std::fabs(block.samples - last) < kMoved * rate;
        run = !off ? 0 : same ? run + 1 : 1;
        last = block.samples;
        if (run >= kMovedBlocks) return true;
    }
    return false;
}

}  // namespace

double alignment_score(const Signal& mic, const Signal& ref, int rate, double most_s) {
    const Signal white_mic = whitened(mic, rate), white_ref = whitened(ref, rate);
    Correlator correlator(white_mic, white_ref, rate, most_s);
    return best_line(correlator.blocks(sounding_in(mic, ref)), rate, correlator.most(), kMostDrift)
        .score;
}

Alignment align(const Signal& mic, const Signal& ref, int rate, double most_s) {
    const Signal white_mic = whitened(mic, rate), white_ref = whitened(ref, rate);
    Correlator correlator(white_mic, white_ref, rate, most_s);
    const std::vector<Block> blocks = correlator.blocks(sounding_in(mic, ref));
    const long most = correlator.most();
    Line line = best_line(blocks, rate, most, kMostDrift);
    Alignment result;
    result.score = line.score;
    result.found = line.score > kFound;
    for (const Block& block : blocks) {
        const Peak peak = peak_near(block.correlation, most, 0, most);
        result.blocks.push_back({block.at_s, peak.lag, peak.strength});
    }
    if (!result.found) return result;

    const auto refine = [&](const std::vector<Block>& at, long reach_of_lags, long reach) {
        const auto points = points_near(at, reach_of_lags, line, rate, reach);
        const Fit fit = fit_line(points);
        if (fit.points >= 3) {
            line.delay = fit.at_zero;
            line.ppm = 1e6 * fit.slope / rate;
            result.drift_error = 1e6 * fit.slope_error / rate;
        }
        return points.size();
    };
    const size_t agreeing = refine(blocks, most, 3 * kCell);
    result.confidence = static_cast<double>(agreeing) / static_cast<double>(blocks.size());

    // Within a block a drift smears the peak: once more with the drift taken out.
    if (std::fabs(line.ppm) > 2) {
        const double ppm = line.ppm, delay = line.delay;
        const Signal stretched = resampled(white_ref, 1 / (1 - ppm * 1e-6));
        Correlator again(white_mic, stretched, rate, most_s);
        line = {delay, 0, line.score};
        refine(again.blocks(sounding_in(mic, ref)), most, 3 * kCell);
        line.ppm += ppm;
    }
    result.delay = line.delay;
    result.drift_ppm = line.ppm;
    result.moves = delay_moves(result.blocks, line, rate);
    return result;
}

}  // namespace app
