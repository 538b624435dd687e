// The journal of a configuration's statements and their places.
#include "qel/core/config/journal.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qel {

Journal::~Journal() {
    for (char* block : blocks_) std::free(block);
    qel_hash_tree_delete(variables_);
}

std::string_view Journal::keep(std::string_view text) {
    heap_ptr<char> copy(static_cast<char*>(std::malloc(text.size() + 1)));
    if (!copy || !blocks_.push(copy.get())) return {};
    char* bytes = copy.release();
    std::copy(text.begin(), text.end(), bytes);
    bytes[text.size()] = '\0';
    return {bytes, text.size()};
}

int32_t Journal::add_file(const char* path, heap_ptr<char>* text, uint32_t bytes,
                          Place included_at) {
    const std::string_view name = keep(path);
    if (!name.data() || !files_.push({name, {text->get(), bytes}, included_at})) return -1;
    if (!blocks_.push(text->get())) {
        files_.pop();
        return -1;
    }
    (void)text->release();
    return static_cast<int32_t>(files_.size()) - 1;
}

void Journal::add_statement(Statement statement) {
    if (statement.place.file < 0 || statements_.size() == kMaxStatements) return;
    statement.name = keep(statement.name);
    statement.value = keep(statement.value);
    if (statement.name.data() && statement.value.data()) statements_.push(statement);
}

void Journal::add_variable(const char* name) {
    if (!variables_) variables_ = qel_hash_tree_new(nullptr, nullptr);
    if (variables_) qel_hash_tree_insert(variables_, name, this);  // any value but null
}

bool Journal::uses_variable(const char* name) const {
    return variables_ && qel_hash_tree_search(variables_, name, nullptr) == 0;
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
        slice(files_[static_cast<uint32_t>(place.file)].text, 0, place.at);
    return 1 + static_cast<int32_t>(std::count(before.begin(), before.end(), '\n'));
}

int32_t Journal::column(Place place) const {
    if (place.file < 0) return 0;
    const std::string_view before =
        slice(files_[static_cast<uint32_t>(place.file)].text, 0, place.at);
    return static_cast<int32_t>(before.size() - (before.rfind('\n') + 1)) + 1;
}

}  // namespace qel
