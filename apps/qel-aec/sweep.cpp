// qel-aec sweep: every recording with every combination of settings, each a run of its own.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "canceller.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "files.hpp"
#include "own.hpp"
#include "pages.hpp"
#include "progress.hpp"
#include "table.hpp"

namespace app {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostCombinations = 10000;
constexpr size_t kShownRecordings = 500;  // on the page, the worst; the CSV has all
constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

struct Options {
    std::string manifest, configuration, folder, rank_by = "erle_db";
    Changes settings;
    unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    bool print_jobs = false, resample = false;
};

/// A figure of a run and where its summary has it.
constexpr struct {
    const char* name;
    const char* place;
    int better;  // -1: less is
} kFigures[] = {
    {"erle_db", "/erle_db", 1},
    {"first_second_db", "/first_second_db", 1},
    {"reduction_db", "/reduction_db", 1},
    {"near_gain_db", "/near/both/gain_db", 1},
    {"near_si_sdr_db", "/near/both/si_sdr_db", 1},
    {"leak", "/leak", -1},
    {"speech", "/speech", 1},
    {"ms_per_second", "/ms_per_second", -1},
    {"bypassed", "/frames/bypassed", -1},
    {"muted", "/frames/muted", -1},
    {"processed", "/frames/processed", 1},
};
constexpr size_t kFigureCount = std::size(kFigures);

struct Item {
    std::string name;
    std::vector<std::string> recordings;  // absolute
    std::string near;
    double delay_ms = 0;
};

struct Outcome {
    bool done = false;
    double figures[kFigureCount] = {};
    std::string error;  // why it is not done
};

/// What a job's folder may be called.
std::string safe(std::string text) {
    for (char& c : text) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && !std::strchr("._=,-+", c)) c = '_';
    }
    if (text[0] == '.') text[0] = '_';
    return text;
}

std::vector<Item> read_manifest(const std::string& path) {
    const std::vector<Row> rows = read_csv(path);
    if (rows.empty()) throw Failure(path + ": is empty; its first line names the columns");
    const Row& head = rows[0];
    static const std::set<std::string> known = {"mic", "ref", "near", "delay_ms", "name"};
    for (const std::string& column : head) {
        if (!known.count(column)) {
            throw Failure(path + ": column \"" + column +
                          "\": the columns are mic, ref, near, delay_ms and name");
        }
    }
    const fs::path folder = fs::absolute(path).parent_path();
    std::vector<Item> items;
    std::set<std::string> names;
    for (size_t line = 1; line < rows.size(); ++line) {
        const auto value = [&](const char* column) {
            const auto place =
                static_cast<size_t>(std::find(head.begin(), head.end(), column) - head.begin());
            return place < rows[line].size() && place < head.size() ? rows[line][place] : "";
        };
        const auto file = [&](const char* column) {
            const std::string name = value(column);
            return name.empty() ? "" : (folder / name).lexically_normal().string();
        };
        const std::string where = path + ": row " + std::to_string(line);
        if (value("mic").empty()) throw Failure(where + ": has no mic");
        Item item = {safe(value("name")), {file("mic")}, file("near"), 0};
        if (!value("ref").empty()) item.recordings.push_back(file("ref"));
        if (item.name.empty()) item.name = safe(fs::path(value("mic")).replace_extension());
        if (!names.insert(item.name).second) {
            throw Failure(where + ": is the second one called " + item.name +
                          ": give each its own in a column \"name\"");
        }
        const std::string delay = value("delay_ms");
        if (!delay.empty() && !CLI::detail::lexical_cast(delay, item.delay_ms)) {
            throw Failure(where + ": delay_ms is no number");
        }
        items.push_back(std::move(item));
    }
    return items;
}

/// All combinations of "taps=4,6" and "vad.amp_thresh=5,20", the last setting changing fastest.
std::vector<Changes> combinations_of(const Changes& settings) {
    std::vector<Changes> all = {{}};
    std::set<std::string> keys;
    for (const std::string& setting : settings) {
        const size_t equals = setting.find('=');
        const std::string key = setting.substr(0, equals);
        if (equals == std::string::npos || key.empty() || !keys.insert(key).second) {
            throw Failure("--set " + setting + ": write key=value,value,... once for each key");
        }
        std::vector<Changes> longer;
        for (const Changes& changes : all) {
            for (size_t at = equals + 1, end = at; end != std::string::npos; at = end + 1) {
                end = setting.find(',', at);
                Changes more = changes;
                more.push_back(key + "=" + setting.substr(at, end - at));
                longer.push_back(std::move(more));
            }
        }
        all = std::move(longer);
        if (all.size() > kMostCombinations) throw Failure("--set: too many combinations");
    }
    return all;
}

std::string name_of(const Changes& changes) {
    std::string name;
    for (const std::string& change : changes) name += (name.empty() ? "" : ",") + change;
    return name.empty() ? "as-it-is" : name;
}

std::string in_shell_quotes(const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

/// The runs of a sweep, each with a folder that holds its summary once it is done: what is there
/// need not be done again.
class Sweep {
  public:
    explicit Sweep(const Options& options)
        : options_(options),
          configuration_(fs::absolute(options.configuration).lexically_normal()),
          items_(read_manifest(options.manifest)),
          combinations_(combinations_of(options.settings)),
          outcomes_(items_.size() * combinations_.size()) {
        for (const Changes& changes : combinations_) Canceller(options.configuration, changes);
        for (size_t job = 0; job < outcomes_.size(); ++job) {
            if (!read_outcome(job)) waiting_.push_back(job);
        }
    }

    size_t count() const { return outcomes_.size(); }
    size_t waiting() const { return waiting_.size(); }

    void print_jobs() const {
        for (const size_t job : waiting_) {
            std::string line = in_shell_quotes(own_path());
            for (const std::string& word : words_of(job)) line += " " + in_shell_quotes(word);
            std::printf("%s\n", line.c_str());
        }
    }

    void work() {
        Progress progress("sweeping", 60);
        std::atomic<size_t> next = 0;
        std::mutex mutex;
        size_t done = 0;
        const auto worker = [&] {
            for (size_t k = next++; k < waiting_.size(); k = next++) {
                work_on(waiting_[k]);
                const std::lock_guard lock(mutex);
                progress.show(static_cast<double>(++done) / static_cast<double>(waiting_.size()));
            }
        };
        std::vector<std::jthread> workers;
        for (unsigned i = 0; i < options_.jobs; ++i) workers.emplace_back(worker);
    }

    void write() const {
        Outputs outputs(options_.folder, {options_.manifest, configuration_});
        const std::string path = outputs.add("sweep.csv");
        std::ofstream csv(path, std::ios::binary);
        csv << csv_line(head());
        for (size_t job = 0; job < outcomes_.size(); ++job) csv << csv_line(row_of(job));
        csv.close();
        if (!csv) throw Failure(path + ": cannot be written");
        outputs.add_text("sweep.html", page_with(kSweepPage, page_data()));
        outputs.commit();
    }

    void print() const {
        const Json data = page_data();
        std::printf("%s: %zu recordings, %zu combinations\n", options_.folder.c_str(),
                    items_.size(), combinations_.size());
        std::printf("%10s %10s  %s, of\n", "mean", "worst", options_.rank_by.c_str());
        for (const Json& combination : data["combinations"]) {
            const Json& figure = combination["figures"][options_.rank_by];
            const auto number = [&](const char* name) {
                return figure[name].is_null() ? std::string("-")
                                              : format("%.2f", figure[name].get<double>());
            };
            std::printf("%10s %10s  %s%s\n", number("mean").c_str(), number("worst").c_str(),
                        combination["name"].get<std::string>().c_str(),
                        combination["best"].get<bool>() ? "  (best)" : "");
        }
    }

    size_t failed() const {
        return static_cast<size_t>(std::count_if(outcomes_.begin(), outcomes_.end(),
                                                 [](const Outcome& o) { return !o.done; }));
    }

    const std::string& first_error() const {
        return std::find_if(outcomes_.begin(), outcomes_.end(),
                            [](const Outcome& o) { return !o.done; })
            ->error;
    }

  private:
    const Item& item_of(size_t job) const { return items_[job / combinations_.size()]; }
    const Changes& changes_of(size_t job) const {
        return combinations_[job % combinations_.size()];
    }
    fs::path folder_of(size_t job) const {
        return fs::absolute(options_.folder).lexically_normal() / "jobs" / item_of(job).name /
               safe(name_of(changes_of(job)));
    }

    /// The words that make this program do the job.
    std::vector<std::string> words_of(size_t job) const {
        const Item& item = item_of(job);
        std::vector<std::string> words = {"run"};
        words.insert(words.end(), item.recordings.begin(), item.recordings.end());
        words.insert(words.end(), {"--config=" + configuration_.string(),
                                   "--output=" + folder_of(job).string(), "--figures-only"});
        if (!item.near.empty()) words.push_back("--near=" + item.near);
        if (item.delay_ms != 0) words.push_back(format("--delay=%g", item.delay_ms));
        if (options_.resample) words.emplace_back("--resample");
        for (const std::string& change : changes_of(job)) words.push_back("--set=" + change);
        return words;
    }

    /// Whether the job's summary is of this very job, and younger than what it was made from.
    bool is_of(const Json& summary, size_t job) const {
        const Item& item = item_of(job);
        return summary.is_object() && summary.value("recordings", Json()) == item.recordings &&
               summary.value("configuration", "") == configuration_ &&
               summary.value("changes", Json()) == changes_of(job) &&
               summary.value("delay_ms", kUnknown) == item.delay_ms &&
               summary.contains("near") == !item.near.empty();
    }

    bool is_younger(const fs::path& path, const Item& item) const {
        std::error_code error;
        const auto made = fs::last_write_time(path, error);
        std::vector<std::string> inputs = item.recordings;
        inputs.push_back(configuration_);
        if (!item.near.empty()) inputs.push_back(item.near);
        return !error && std::all_of(inputs.begin(), inputs.end(), [&](const std::string& input) {
            return fs::last_write_time(input, error) <= made && !error;
        });
    }

    bool read_outcome(size_t job) {
        const fs::path path = folder_of(job) / "summary.json";
        if (!is_younger(path, item_of(job))) return false;
        std::ifstream file(path);
        const Json summary = Json::parse(file, nullptr, false);
        if (!is_of(summary, job)) return false;
        Outcome& outcome = outcomes_[job];
        for (size_t i = 0; i < kFigureCount; ++i) {
            const Json::json_pointer place(kFigures[i].place);
            const bool known = summary.contains(place) && summary[place].is_number();
            outcome.figures[i] = known ? summary[place].get<double>() : kUnknown;
        }
        return outcome.done = true;
    }

    void work_on(size_t job) {
        Outcome& outcome = outcomes_[job];
        try {
            const Done done = call_own(words_of(job));
            if (done.status == 0 && read_outcome(job)) return;
            const size_t end = done.error.find_last_not_of('\n');
            const size_t start = done.error.find_last_of('\n', end);
            outcome.error = end == std::string::npos ? format("ended with status %d", done.status)
                                                     : done.error.substr(start + 1, end - start);
        } catch (const std::exception& error) {
            outcome.error = error.what();
        }
    }

    // Results.

    Row head() const {
        Row row = {"recording"};
        for (const std::string& change : combinations_[0]) {
            row.push_back(change.substr(0, change.find('=')));
        }
        for (const auto& figure : kFigures) row.emplace_back(figure.name);
        row.emplace_back("error");
        return row;
    }

    Row row_of(size_t job) const {
        Row row = {item_of(job).name};
        for (const std::string& change : changes_of(job)) {
            row.push_back(change.substr(change.find('=') + 1));
        }
        const Outcome& outcome = outcomes_[job];
        for (const double figure : outcome.figures) {
            row.push_back(outcome.done && !std::isnan(figure) ? format("%.4g", figure) : "");
        }
        row.push_back(outcome.error);
        return row;
    }

    size_t ranked_by() const {
        return static_cast<size_t>(
            std::find_if(std::begin(kFigures), std::end(kFigures),
                         [&](const auto& figure) { return options_.rank_by == figure.name; }) -
            std::begin(kFigures));
    }

    /// Of two values of a figure, whether the first is worse. What is unknown is the worst.
    static bool is_worse(size_t figure, double a, double b) {
        if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && !std::isnan(b);
        return kFigures[figure].better * a < kFigures[figure].better * b;
    }

    struct Statistic {
        double sum = 0, worst = kUnknown;
        size_t count = 0, worst_item = 0;
        double mean() const { return count ? sum / static_cast<double>(count) : kUnknown; }
    };

    Statistic statistic(size_t combination, size_t figure) const {
        Statistic s;
        for (size_t i = 0; i < items_.size(); ++i) {
            const Outcome& outcome = outcomes_[i * combinations_.size() + combination];
            const double value = outcome.figures[figure];
            if (!outcome.done || std::isnan(value)) continue;
            s.sum += value;
            if (s.count++ == 0 || is_worse(figure, value, s.worst)) {
                s.worst = value;
                s.worst_item = i;
            }
        }
        return s;
    }

    /// The best mean; of those with a failed run only if all have one.
    size_t best_combination() const {
        const size_t figure = ranked_by();
        size_t best = 0;
        for (size_t k = 1; k < combinations_.size(); ++k) {
            const Statistic a = statistic(best, figure), b = statistic(k, figure);
            if (a.count < b.count || (a.count == b.count && is_worse(figure, a.mean(), b.mean()))) {
                best = k;
            }
        }
        return best;
    }

    static Json number(double value) { return std::isnan(value) ? Json(nullptr) : Json(value); }

    Json page_data() const {
        const size_t best = best_combination(), ranked = ranked_by();
        Json data = {{"rank_by", options_.rank_by},   {"better", kFigures[ranked].better},
                     {"manifest", options_.manifest}, {"configuration", configuration_.string()},
                     {"recordings", items_.size()},   {"failed", failed()},
                     {"combinations", Json::array()}, {"rows", Json::array()}};
        for (size_t k = 0; k < combinations_.size(); ++k) {
            Json figures;
            for (size_t i = 0; i < kFigureCount; ++i) {
                const Statistic s = statistic(k, i);
                figures[kFigures[i].name] = {
                    {"mean", number(s.mean())},
                    {"worst", number(s.worst)},
                    {"of", items_.empty() ? "" : items_[s.worst_item].name},
                    {"count", s.count}};
            }
            data["combinations"].push_back(
                {{"name", name_of(combinations_[k])}, {"best", k == best}, {"figures", figures}});
        }
        for (const size_t i : worst_items(best, ranked)) {
            Json values = Json::array();
            std::string error;
            for (size_t k = 0; k < combinations_.size(); ++k) {
                const Outcome& outcome = outcomes_[i * combinations_.size() + k];
                values.push_back(outcome.done ? number(outcome.figures[ranked]) : Json(nullptr));
                if (!outcome.done) error = outcome.error;
            }
            data["rows"].push_back(
                {{"name", items_[i].name}, {"values", values}, {"error", error}});
        }
        return data;
    }

    /// The recordings that do worst with a combination, the worst first.
    std::vector<size_t> worst_items(size_t combination, size_t figure) const {
        std::vector<size_t> order(items_.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        const auto value = [&](size_t i) {
            const Outcome& outcome = outcomes_[i * combinations_.size() + combination];
            return outcome.done ? outcome.figures[figure] : kUnknown;
        };
        std::stable_sort(order.begin(), order.end(),
                         [&](size_t a, size_t b) { return is_worse(figure, value(a), value(b)); });
        order.resize(std::min(order.size(), kShownRecordings));
        return order;
    }

    const Options& options_;
    const fs::path configuration_;
    const std::vector<Item> items_;
    const std::vector<Changes> combinations_;
    std::vector<Outcome> outcomes_;  // by recording, then combination
    std::vector<size_t> waiting_;
};

int sweep(const Options& options) {
    Sweep sweep(options);
    if (options.print_jobs) {
        sweep.print_jobs();
        return 0;
    }
    std::fprintf(stderr, "qel-aec: %zu of %zu runs are to be done\n", sweep.waiting(),
                 sweep.count());
    sweep.work();
    sweep.write();
    sweep.print();
    if (sweep.failed() == 0) return 0;
    std::fprintf(stderr, "qel-aec: %zu of %zu runs failed, the first: %s\n", sweep.failed(),
                 sweep.count(), sweep.first_error().c_str());
    return sweep.failed() == sweep.count() ? 2 : 1;
}

}  // namespace

Command add_sweep(CLI::App& program) {
    auto options = std::make_shared<Options>();
    CLI::App* app = program.add_subcommand(
        "sweep",
        "Runs every recording of a list with every combination of settings, on all cores, and "
        "writes sweep.csv and sweep.html: mean, worst, by recording, the best. Started again, it "
        "goes on where it was stopped.");
    app->add_option("MANIFEST", options->manifest,
                    "CSV with a line of column names: mic, ref (none: mic is stereo), near, "
                    "delay_ms, name; files are relative to it")
        ->required();
    add_configuration(app, &options->configuration);
    add_folder(app, &options->folder);
    app->add_option("--set", options->settings, "a setting's values, such as taps=4,6,8")
        ->type_name("KEY=A,B,...");
    app->add_option("--rank-by", options->rank_by, "figure whose best mean is the best combination")
        ->capture_default_str()
        ->check(CLI::IsMember(
            {"erle_db", "first_second_db", "reduction_db", "near_si_sdr_db", "ms_per_second"}));
    app->add_option("-j,--jobs", options->jobs, "runs at a time, one per core if not given")
        ->check(CLI::Range(1, 1024));
    add_resample(app, &options->resample);
    app->add_flag("--print-jobs", options->print_jobs,
                  "print the command lines that are left, for GNU parallel, and do none");
    return {app, [options] { return sweep(*options); }};
}

}  // namespace app
