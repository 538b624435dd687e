// The journal of a configuration's statements and their places.
#include "qel/core/config/journal.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qel {

Journal::~Journal() {
    for (char* block : blocks_) std::free(block);
}

std::string_view Journal::keep(std::string_view text) {
    heap_ptr<char> copy(static_cast<char*>(std::malloc(text.size() + 1)));
    if (!copy || !blocks_.push(copy.get())) return {};
    char* bytes = copy.release();
    std::copy(text.begin(), text.end(), bytes);
    bytes[text.size()] = '\0';
    return {bytes, text.size()};
}

int32_t Journal::add_file(const char* path, heap_ptr<char> text, uint32_t bytes,
                          Place included_at) {
    if (!blocks_.push(text.get())) return -1;
    const std::string_view kept(text.release(), bytes);
    if (!files_.push({keep(path), kept, included_at})) return -1;
    return static_cast<int32_t>(files_.size()) - 1;
}

void Journal::add_statement(Statement statement) {
    if (statement.place.file < 0) return;
    statement.name = keep(statement.name);
    statement.value = keep(statement.value);
    statements_.push(statement);
}

void Journal::add_variable(std::string_view name) {
    if (!uses_variable(name)) variables_.push(keep(name));
}

bool Journal::uses_variable(std::string_view name) const {
    return std::find(variables_.begin(), variables_.end(), name) != variables_.end();
}

void Journal::set_fault(Place place, const char* format, ...) {
    if (fault_[0] != '\0') return;
    fault_place_ = place;
    va_list args;
    va_start(args, format);
    vsnprintf(fault_, sizeof(fault_), format, args);
    va_end(args);
}

int32_t Journal::line(Place place) const {
    if (place.file < 0) return 0;
    const std::string_view before =
        files_[static_cast<uint32_t>(place.file)].text.substr(0, place.at);
    return 1 + static_cast<int32_t>(std::count(before.begin(), before.end(), '\n'));
}

int32_t Journal::column(Place place) const {
    if (place.file < 0) return 0;
    const std::string_view before =
        files_[static_cast<uint32_t>(place.file)].text.substr(0, place.at);
    return static_cast<int32_t>(before.size() - (before.rfind('\n') + 1)) + 1;
}

}  // namespace qel
