// qel-aec check: what a configuration says that the canceller will not do, and what it does.
#include <malloc.h>

#include <fstream>
#include <memory>

#include "canceller.hpp"
#include "command.hpp"
#include "failure.hpp"
#include "qel/api/qel_api_review.h"
#include "qel/core/qel_debug.h"

namespace app {

namespace {

struct Options {
    std::string path;
    int frame_len = 0;
    bool json = false;
};

/// What to do about a finding of the library's review, by its code.
constexpr struct {
    const char* code;
    const char* advice;
} kAdvice[] = {
    {"unreadable", "Name a text file that holds a configuration."},
    {"syntax", "Mend the place that is shown: the file is refused as a whole until then."},
    {"comment", "Begin the comment with '#'."},
    {"kind", "Write key = value; for a setting, and name = { ... } for a section."},
    {"misplaced", "Move the statement to where it belongs."},
    {"unknown", "Correct the name, or take the statement out."},
    {"twice", "Keep one of the two."},
    {"boolean", "Write yes or no."},
    {"type", "Write float32, or take the statement out."},
    {"number", "Write a plain number."},
    {"fraction", "Write a whole number."},
    {"trailing", "Write the number alone: units are not read."},
    {"width", "Write a number in the key's range."},
    {"range", "Write a number in the range that is named."},
    {"quote", "Close the quote."},
    {"unfinished", "End the statement with ';'."},
    {"unclosed", "Close the section with '}'."},
    {"no-section", "Put the settings into aec = { ... }."},
    {"disagree", "Set both alike."},
    {"needs", "Switch on what it needs, or switch it off."},
    {"slow", "Choose a frame size of small prime factors, such as 256, 320, 480 or 512."},
    {"frame-len", "Set frame_size to \"frameLen\", or \"frameLen\" to a whole multiple of it."},
    {"more", "Mend these and check again."},
};

std::string advice_for(const std::string& code) {
    for (const auto& row : kAdvice) {
        if (code == row.code) return row.advice;
    }
    return "";
}

/// A line of a file, from 1, as it can be shown; "" if there is none.
std::string line_of(const std::string& path, int number) {
    std::ifstream file(path);
    std::string line;
    for (int i = 0; i < number; ++i) {
        if (!std::getline(file, line)) return "";
    }
    for (char& c : line) {
        if (static_cast<unsigned char>(c) < ' ' && c != '\t') c = ' ';
    }
    return line;
}

/// What the review's findings go into.
struct Collected {
    const Options& options;
    std::vector<Finding> findings;
};

void collect(void* user, const qel_api_finding* found) {
    auto& collected = *static_cast<Collected*>(user);
    std::string text = found->text;
    if (*found->key) {
        const std::string value = *found->written ? std::string(" = ") + found->written : "";
        text = found->key + value + ": " + text;
    }
    const std::string file = *found->file ? found->file : collected.options.path;
    Json more = {{"file", file}, {"line", found->line}, {"column", found->column}};
    more["source"] = found->line > 0 ? line_of(file, found->line) : "";
    if (*found->key) more["key"] = found->key;
    if (*found->written) more["written"] = found->written;
    const Level level = found->level == QEL_LOG_ERROR ? Level::kError : Level::kWarning;
    // The review has one code for a file's text and for what kept it from being read.
    const bool unread = level == Level::kError && found->line == 0;
    const std::string code = unread ? "unreadable" : found->code;
    collected.findings.push_back({code, level, text, advice_for(code), std::move(more)});
}

std::vector<Finding> reviewed(const Options& options) {
    Collected collected{options, {}};
    const int count =
        qel_api_aec_review(options.path.c_str(), options.frame_len, collect, &collected);
    std::vector<Finding>& findings = collected.findings;
    if (count < 0 && status_of(findings) < static_cast<int>(Level::kError)) {
        findings.push_back(
            {"refused", Level::kError, qel_api_aec_last_error(), "", Json::object()});
    }
    return std::move(findings);
}

/// Bytes that the process has from the C allocator; 0 where it does not tell.
size_t allocated() {
#ifdef __GLIBC__
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#else
    return 0;
#endif
}

/// What the settings mean together; adds a finding if they make no canceller.
Json whole_of(const Options& options, std::vector<Finding>& findings) {
    const size_t before = allocated();
    try {
        const Canceller canceller(options.path);
        const size_t after = allocated();
        const qel_aec_cfg& cfg = canceller.cfg();
        Json whole = {{"latency_ms", canceller.frame_ms()},
                      {"longest_echo_ms", longest_echo_ms(cfg)},
                      {"memory_bytes", after > before ? Json(after - before) : Json(nullptr)},
                      {"ms_per_second", nullptr},
                      {"settings", to_json(settings_of(cfg))}};
        if (!cfg.use_hdr) whole["ms_per_second"] = measured_ms_per_second(options.path);
        if (!cfg.use_vad) {
            findings.push_back({"no-vad", Level::kNote,
                                "use_vad is off: the reference counts as sounding all the time, so "
                                "every frame is processed and none is bypassed",
                                "Write use_vad = yes; unless that is meant.", Json::object()});
        }
        return whole;
    } catch (const Failure& failure) {
        findings.push_back(
            {"refused", Level::kError,
             std::string("the canceller refuses this configuration: ") + failure.what(),
             "Mend what is named here.", Json::object()});
        return Json::object();
    }
}

/// The blanks before a column of a line, from 1 and in bytes: as wide as what stands there.
std::string indent_of(const std::string& line, int column) {
    std::string blanks;
    for (size_t i = 0; i + 1 < static_cast<size_t>(column) && i < line.size(); ++i) {
        const bool continued = (static_cast<unsigned char>(line[i]) & 0xC0) == 0x80;  // UTF-8
        if (!continued) blanks += line[i] == '\t' ? '\t' : ' ';
    }
    return blanks;
}

void print_finding(const Finding& finding, const std::string& path) {
    const int line = finding.more.value("line", 0), column = finding.more.value("column", 0);
    std::string place = finding.more.value("file", path);
    if (line > 0) place += format(":%d:%d", line, column);
    std::printf("%s: %s: %s [%s]\n", place.c_str(), name_of(finding.level), finding.text.c_str(),
                finding.code.c_str());
    const std::string source = finding.more.value("source", "");
    if (!source.empty()) {
        std::printf("    %s\n    %s^\n", source.c_str(), indent_of(source, column).c_str());
    }
    if (!finding.advice.empty()) std::printf("    What to do: %s\n", finding.advice.c_str());
}

void print_whole(const Json& whole) {
    std::printf("\nSettings:\n");
    for (const Json& setting : whole["settings"]) {
        const Json& value = setting["value"];
        const std::string shown = value.is_boolean() ? (value.get<bool>() ? "yes" : "no")
                                                     : format("%g", value.get<double>());
        std::printf("  %-16s %7s %-13s%-8s %s\n", setting["key"].get<std::string>().c_str(),
                    shown.c_str(), setting["unit"].get<std::string>().c_str(),
                    setting["default"].get<bool>() ? "default" : "",
                    setting["meaning"].get<std::string>().c_str());
    }
    std::printf("\nTogether:\n");
    std::printf("  latency          %7.1f ms  one frame\n", whole["latency_ms"].get<double>());
    std::printf("  longest echo     %7.1f ms  taps * frame_size; weaker in its last frame\n",
                whole["longest_echo_ms"].get<double>());
    if (!whole["memory_bytes"].is_null()) {
        std::printf("  memory           %7.0f KB\n", whole["memory_bytes"].get<double>() / 1000);
    }
    if (!whole["ms_per_second"].is_null()) {
        std::printf("  processor time   %7.2f ms  per second of audio, measured on this machine\n",
                    whole["ms_per_second"].get<double>());
    }
}

int check(const Options& options) {
    qel_debug_set_level(0);  // the findings say it all, once
    std::vector<Finding> findings = reviewed(options);
    Json whole = Json::object();
    if (status_of(findings) < static_cast<int>(Level::kError)) whole = whole_of(options, findings);
    sort_worst_first(findings);
    if (options.json) {
        Json report = to_json(findings);
        report.update(whole);
        std::fputs(text_of(report).c_str(), stdout);
    } else {
        for (const Finding& finding : findings) print_finding(finding, options.path);
        if (findings.empty()) std::printf("%s: nothing to find fault with\n", options.path.c_str());
        if (!whole.empty()) print_whole(whole);
    }
    return status_of(findings);
}

}  // namespace

Command add_check(CLI::App& program) {
    auto options = std::make_shared<Options>();
    CLI::App* app = program.add_subcommand(
        "check",
        "Says what a configuration and what it includes mean, and what in them does not do "
        "what it seems to.");
    app->add_option("CONF", options->path, "configuration")->required();
    app->add_option("--frame-len", options->frame_len,
                    "samples per feed, \"frameLen\" of the device")
        ->check(CLI::Range(1, 1 << 24));
    add_json(app, &options->json);
    return {app, [options] { return check(*options); }};
}

}  // namespace app
