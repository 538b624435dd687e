// What a configuration's text held and where, written down by the parser for the review: the tree
// keeps the values, the journal their places.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "qel/core/config/qel_config_ryl.h"
#include "qel/core/internal.hpp"
#include "qel/core/list.hpp"

namespace qel {

/// Part of a text; string_view's own way to say this can throw.
inline std::string_view slice(std::string_view text, size_t from, size_t n = SIZE_MAX) {
    from = std::min(from, text.size());
    return {text.data() + from, std::min(n, text.size() - from)};
}

/// An offset in one of the journal's files.
struct Place {
    int32_t file;
    uint32_t at;
};

/// One statement that was completed; of an array or a section, its beginning.
struct Statement {
    Place place;                     // of the name
    uint32_t value_at;               // in the same file
    uint32_t end;                    // behind the value
    int32_t type;                    // QEL_CONFIG_STRING, ...
    const qel_config_items* scope;   // the section it stands in
    const qel_config_items* opened;  // the section it opens, or null
    std::string_view name, value;    // as the tree has them; no value but for strings
};

/// A statement, or a quoted text within one, that its file ended in.
struct Unfinished {
    Place place;
    bool quoted;
};

struct JournalFile {
    std::string_view path, text;
    Place included_at;  // file -1 for the first
};

/// Memory that runs out, or more statements than anyone writes, lose what could not be noted and
/// nothing else.
class Journal {
  public:
    static constexpr uint32_t kMaxStatements = 1 << 16;

    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// Takes over a file's text, NUL-terminated in C memory; the file's index, or -1 with the text
    /// still the caller's.
    int32_t add_file(const char* path, heap_ptr<char>* text, uint32_t bytes, Place included_at);
    void add_statement(Statement statement);
    void add_unfinished(Place place, bool quoted) { unfinished_.push({place, quoted}); }
    void add_variable(const char* name);

    /// Why parsing ended; the first call counts.
    void set_fault(Place place, const char* format, ...) QEL_PRINTF(3, 4);

    const List<JournalFile>& files() const { return files_; }
    const List<Statement>& statements() const { return statements_; }
    const List<Unfinished>& unfinished() const { return unfinished_; }
    bool uses_variable(const char* name) const;
    /// The fault's text, "" for none.
    const char* fault() const { return fault_; }
    Place fault_place() const { return fault_place_; }

    /// Line and column, both from 1, of a place; a column is a byte.
    int32_t line(Place place) const;
    int32_t column(Place place) const;

  private:
    /// A copy in the journal's own memory; empty when memory runs out.
    std::string_view keep(std::string_view text);

    List<char*> blocks_;
    List<JournalFile> files_;
    List<Statement> statements_;
    List<Unfinished> unfinished_;
    qel_hash_tree* variables_ = nullptr;  // names only
    Place fault_place_ = {-1, 0};
    char fault_[256] = "";
};

/// qel_config_ryl_new_fn(), with a journal or null.
qel_config_ryl* config_parse_file(const char* path, Journal* journal);

/// The same for `bytes` bytes of text; `name` stands for its path, "." is its ${pwd}.
qel_config_ryl* config_parse_text(const char* name, const char* text, uint32_t bytes,
                                  Journal* journal);

}  // namespace qel
