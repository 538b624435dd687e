#include "pages.hpp"

namespace app {

std::string page_with(const char* page, const Json& data) {
    static constexpr const char kPlace[] = "{{data}}";
    std::string text;
    for (const char c : data.dump(-1, ' ', true, Json::error_handler_t::replace)) {
        if (c == '<') {
            text += "\\u003c";  // nothing in the data ends the element that it stands in
        } else {
            text += c;
        }
    }
    std::string whole = page;
    return whole.replace(whole.find(kPlace), sizeof(kPlace) - 1, text);
}

std::string base64(const std::string& bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = 0;
        for (size_t j = i; j < i + 3; ++j) {
            group = group << 8 | (j < bytes.size() ? static_cast<uint8_t>(bytes[j]) : 0u);
        }
        for (int shift = 18; shift >= 0; shift -= 6) text += kDigits[group >> shift & 63];
    }
    const size_t missing = (3 - bytes.size() % 3) % 3;
    text.replace(text.size() - missing, missing, missing, '=');
    return text;
}

}  // namespace app
