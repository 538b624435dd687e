#include "plugins/pipewire/settings.hpp"

#include <bit>
#include <map>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view kPrefix = "qel.";
const std::string kFile = "config";

using Settings = std::map<std::string, std::string, std::less<>>;  // "vad.amp_thresh" to "20"

Settings arguments(const spa_dict* args) {
    Settings settings;
    for (uint32_t i = 0; args && i < args->n_items; ++i) {
        const std::string_view key = args->items[i].key;
        if (!key.starts_with(kPrefix)) continue;
        settings.emplace(key.substr(kPrefix.size()), args->items[i].value);
    }
    return settings;
}

/// A server hands out its reference before the loudspeaker has it, so echoes come late: the
/// tracking mode, as in conf/aec-tracking.conf. Where the canceller can work at the server's rate
/// it does, in frames of 25 to 50 ms.
Settings defaults(uint32_t rate) {
    Settings settings = {{"use_vad", "yes"},   {"use_kalman", "yes"},  {"use_residual", "yes"},
                         {"use_align", "yes"}, {"use_comfort", "yes"}, {"mute.mute_time", "0"}};
    if (rate <= INT16_MAX) {
        settings["freqs"] = std::to_string(rate);
        settings["frame_size"] = std::to_string(std::bit_ceil(rate / 40));
    }
    return settings;
}

/// The suppressor's rate and frame size follow those of the main section.
void complete(Settings* settings) {
    for (const char* key : {"freqs", "frame_size"}) {
        const auto found = settings->find(key);
        if (found != settings->end()) settings->emplace("nlp." + found->first, found->second);
    }
}

std::string quoted(std::string_view value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + '"';
}

/// "vad.amp_thresh" and "20": vad = { amp_thresh = "20"; }
std::string statement(std::string_view key, std::string_view value) {
    const size_t dot = key.find('.');
    const std::string name{key.substr(0, dot)};
    constexpr const char* kNameChars =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    if (name.empty() || name.find_first_not_of(kNameChars) != name.npos) {
        throw std::invalid_argument("\"" + name + "\" is no name of a key or a section");
    }
    if (dot == key.npos) return name + " = " + quoted(value) + ";";
    return name + " = { " + statement(key.substr(dot + 1), value) + " }";
}

}  // namespace

std::string configuration_text(const spa_dict* args, uint32_t rate) {
    Settings settings = arguments(args);
    std::string text;
    if (const auto file = settings.extract(kFile)) {
        text = "#include " + quoted(file.mapped()) + ";\n";
    } else {
        settings.merge(defaults(rate));
    }
    complete(&settings);
    // A line each, so that what is said of a line is said of one argument.
    for (const auto& [key, value] : settings) {
        text += "aec = { " + statement(key, value) + " }\n";
    }
    return text;
}
