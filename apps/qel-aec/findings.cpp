#include "findings.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace app {

const char* name_of(Level level) {
    switch (level) {
        case Level::kNote: return "note";
        case Level::kWarning: return "warning";
        case Level::kError: break;
    }
    return "error";
}

void sort_worst_first(std::vector<Finding>& findings) {
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.level > b.level; });
}

int status_of(const std::vector<Finding>& findings) {
    int worst = 0;
    for (const Finding& finding : findings)
        worst = std::max(worst, static_cast<int>(finding.level));
    return worst;
}

Json to_json(const std::vector<Finding>& findings) {
    static constexpr const char* kStatus[] = {"ok", "warning", "error"};
    Json list = Json::array();
    for (const Finding& finding : findings) {
        Json entry = {{"code", finding.code},
                      {"level", name_of(finding.level)},
                      {"text", finding.text},
                      {"advice", finding.advice}};
        entry.update(finding.more);
        list.push_back(std::move(entry));
    }
    return {{"status", kStatus[status_of(findings)]}, {"findings", std::move(list)}};
}

std::string text_of(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void print(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        std::printf("%s: %s [%s]\n", name_of(finding.level), finding.text.c_str(),
                    finding.code.c_str());
        if (!finding.advice.empty()) std::printf("    What to do: %s\n", finding.advice.c_str());
    }
}

std::string format(const char* format, ...) {
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    std::string text(static_cast<size_t>(std::max(0, std::vsnprintf(nullptr, 0, format, args))),
                     ' ');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(args);
    va_end(again);
    return text;
}

}  // namespace app
