// What a command found wrong, for people and for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace app {

using Json = nlohmann::ordered_json;

/// Worse ones are greater; the value is the exit status.
enum class Level { kNote = 0, kWarning = 1, kError = 2 };

struct Finding {
    std::string code;  // short and fixed, for programs
    Level level;
    std::string text;            // what is wrong and what it means
    std::string advice;          // what to do
    Json more = Json::object();  // what else programs are told
};

const char* name_of(Level level);

/// Sorts the worst first; those of one level keep their order.
void sort_worst_first(std::vector<Finding>& findings);

/// The program's exit status: the worst level of all.
int status_of(const std::vector<Finding>& findings);

/// {"status": ..., "findings": [{"code", "level", "text", "advice", ...}, ...]}.
Json to_json(const std::vector<Finding>& findings);

/// One text, with a newline behind it; what is no UTF-8 is replaced.
std::string text_of(const Json& json);

/// Numbers findings out to standard output in words: level, text, and the advice below it.
void print(const std::vector<Finding>& findings);

/// Formats like printf().
[[gnu::format(printf, 1, 2)]] std::string format(const char* format, ...);

}  // namespace app
