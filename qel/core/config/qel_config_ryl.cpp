// Parser of the text configuration format: a state machine that takes one byte at a time.
#include "qel/core/config/qel_config_ryl.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "qel/core/array/qel_array_string.h"
#include "qel/core/config/items.hpp"
#include "qel/core/config/journal.hpp"
#include "qel/core/internal.hpp"
#include "qel/core/io.hpp"

namespace {

/// A text being read; that of an include lies on the stack of the call that reads it.
struct Text {
    const char* path;                    // null for what is fed from outside
    Text* outer;                         // the text that includes it
    int32_t file;                        // its index in the journal, or -1
    uint32_t at;                         // of the byte being taken
    uint32_t name_at, value_at, var_at;  // where those of the current statement begin
};

}  // namespace

/// The public record and the parser's own state.
struct qel::Parser : qel_config_ryl {
    Text fed;    // what is fed from outside
    Text* text;  // the innermost being read
    uint32_t files;
    uint64_t loaded, expanded;  // bytes, of files and of variables
    Journal* journal;           // or null
    bool closing;               // all sections go at once
};

using qel::Parser;

namespace {

constexpr char kSource[] = "qel/core/config/qel_config_ryl";
constexpr uint32_t kTokenBytes = 32;        // room that tokens start with
constexpr uint32_t kKeptTokenBytes = 4096;  // emptying zeroes the storage, so more is given back
constexpr uint32_t kArrayItems = 8;
constexpr size_t kMaxPwdBytes = 255;
constexpr char kNewFn[] = "qel_config_ryl_new_fn";  // stands in log lines

enum State : int32_t {
    kStart,
    kTok,
    kTokEnd,
    kValueStart,
    kValueTok,
    kValueTokEnd,
    kComment,
    kVarStart,
    kVarTokStart,
    kVarTok,
    kArrayTokStart,
    kArrayTok,
    kArrayTokEnd,
    kValueEscape,
    kValueHex1,
    kValueHex2,
    kValueOct2,
    kValueOct3,
    kStates
};

struct StringDeleter {
    void operator()(qel_string* string) const { qel_string_delete(string); }
};
using OwnedString = std::unique_ptr<qel_string, StringDeleter>;

// Classes of bytes, ASCII whatever the locale.

bool is_one_of(char c, const char* set) { return c != '\0' && strchr(set, c); }
bool is_word_byte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}
bool is_name_byte(char c) { return is_word_byte(c) || is_one_of(c, "-./:@"); }
bool is_value_start_byte(char c) { return is_word_byte(c) || is_one_of(c, "\"$-:@"); }
bool is_unquoted_value_byte(char c) { return is_word_byte(c) || is_one_of(c, "-./:"); }
bool is_quote(char c) { return c == '"' || c == '\''; }
bool is_octal(char c) { return c >= '0' && c <= '7'; }

/// Value of a hexadecimal digit; -1 for any other byte.
int32_t hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Tokens.

/// The token as NUL-terminated text.
const char* text_of(const qel_string* tok) { return tok->data ? tok->data : ""; }

int32_t precision(uint32_t n) { return static_cast<int32_t>(std::min<uint32_t>(n, INT_MAX)); }

void restart(qel_string* tok) { qel_string_reset(tok, tok->capacity > kKeptTokenBytes); }

// Refuses the input: logs why, in the caller's name, and notes it for the journal.
#define REFUSE(p, ...) \
    (QEL_LOG(QEL_LOG_WARNING, __VA_ARGS__), note_fault(p, (p)->text->at, __VA_ARGS__), -1)

void note_fault(Parser* p, uint32_t at, const char* format, ...) QEL_PRINTF(3, 4);

void note_fault(Parser* p, uint32_t at, const char* format, ...) {
    if (!p->journal) return;
    char why[256];
    va_list args;
    va_start(args, format);
    vsnprintf(why, sizeof(why), format, args);
    va_end(args);
    p->journal->set_fault({p->text->file, at}, "%s", why);
}

int32_t append(Parser* p, qel_string* tok, const char* bytes, uint32_t n) {
    if (n > QEL_CONFIG_RYL_MAX_TOKEN - tok->length) {
        return REFUSE(p, "more than %d bytes in one name or value", QEL_CONFIG_RYL_MAX_TOKEN);
    }
    return n > 0 ? qel_string_append(tok, bytes, n) : 0;
}

int32_t append(Parser* p, qel_string* tok, char c) { return append(p, tok, &c, 1); }

int32_t replace(Parser* p, qel_string* tok, const char* bytes, uint32_t n) {
    restart(tok);
    return append(p, tok, bytes, n);
}

// The parser's flags and state.

bool is_set(const Parser* p, uint32_t flag) { return p->flags & flag; }
void set(Parser* p, uint32_t flag) { p->flags = static_cast<uint8_t>(p->flags | flag); }
void clear(Parser* p, uint32_t flag) { p->flags = static_cast<uint8_t>(p->flags & ~flag); }

void clear_quote_flags(Parser* p) { clear(p, QEL_CONFIG_RYL_IN_QUOTES | QEL_CONFIG_RYL_ESCAPED); }

void open_quote(Parser* p, char quote) {
    p->quote = quote;
    set(p, QEL_CONFIG_RYL_IN_QUOTES);
}

bool in_quotes(const Parser* p) { return is_set(p, QEL_CONFIG_RYL_IN_QUOTES); }

int32_t go(Parser* p, State state) {
    p->state = state;
    return 0;
}

int32_t read_var(Parser* p, State return_state) {
    p->text->var_at = p->text->at;
    p->return_state = return_state;
    return go(p, kVarStart);
}

int32_t out_of_memory(Parser* p) {
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    note_fault(p, p->text->at, "out of memory");
    return -1;
}

/// Writes a statement of the current names down, for whoever asked for a journal.
void note_statement(Parser* p, int32_t type, const qel_config_items* scope,
                    const qel_config_items* opened) {
    if (!p->journal) return;
    const Text& text = *p->text;
    const char* value = type == QEL_CONFIG_STRING ? text_of(p->value_tok) : "";
    p->journal->add_statement({{text.file, text.name_at},
                               text.value_at,
                               text.at + 1,
                               type,
                               scope,
                               opened,
                               text_of(p->name_tok),
                               value});
}

// Sections, arrays and variables.

/// Takes a section into the bookkeeping, so that the parser hears of its end: one that it made, or
/// one of a caller's that it enters.
void get_to_know(Parser* p, qel_config_items* section) {
    if (qel::tree_of(section)->parser) return;
    qel::tree_of(section)->parser = p;
    qel_queue_push_back(&p->sections, &section->link);
}

int32_t open_section(Parser* p) {
    if (p->depth == QEL_CONFIG_RYL_MAX_DEPTH) {
        return REFUSE(p, "too many nested sections: \"%s\" is within %d others",
                      text_of(p->name_tok), QEL_CONFIG_RYL_MAX_DEPTH);
    }
    const char* name = text_of(p->name_tok);
    qel_config_items* outer = p->scope;
    const qel_config_item* item = qel_config_items_find(outer, name, p->name_tok->length);
    if (item && item->type == QEL_CONFIG_SUBITEMS && item->value.subitems) {
        p->scope = item->value.subitems;
        if (!p->scope->parent) p->scope->parent = outer;  // a caller's, made for nowhere
        get_to_know(p, p->scope);
    } else {
        qel_config_items* sub = qel_config_items_new(outer);
        if (!sub || !qel::config_add(outer, name, QEL_CONFIG_SUBITEMS, {.subitems = sub})) {
            return out_of_memory(p);
        }
        get_to_know(p, sub);
        p->scope = sub;
    }
    note_statement(p, QEL_CONFIG_SUBITEMS, outer, p->scope);
    ++p->depth;
    return go(p, kStart);
}

int32_t close_section(Parser* p) {
    if (p->depth == 0 || !p->scope->parent) return -1;
    --p->depth;
    p->scope = p->scope->parent;
    return 0;
}

int32_t open_array(Parser* p) {
    qel_array* array = qel_array_string_new(kArrayItems);
    if (!array ||
        !qel::config_add(p->scope, text_of(p->name_tok), QEL_CONFIG_ARRAY, {.array = array})) {
        return out_of_memory(p);
    }
    note_statement(p, QEL_CONFIG_ARRAY, p->scope, nullptr);
    p->array = array;
    return go(p, kArrayTokStart);
}

/// Appends the token to the array being read, as long as that is where it was: between two feeds a
/// caller may have taken it out.
int32_t add_element(Parser* p) {
    void* found = nullptr;
    qel_hash_tree_search(p->scope->hash, text_of(p->name_tok), &found);
    const auto* item = static_cast<const qel_config_item*>(found);
    const bool open = item && item->type == QEL_CONFIG_ARRAY && item->value.array == p->array;
    return open ? qel_array_string_append(p->array, p->value_tok) : 0;
}

int32_t add_element_unless_empty(Parser* p) {
    return p->value_tok->length > 0 ? add_element(p) : 0;
}

/// Appends the variable's value to the token being read.
int32_t expand_var(Parser* p) {
    const qel_string* var = p->var_tok;
    if (p->journal) p->journal->add_variable(text_of(var));
    for (const qel_config_items* items = p->scope; items; items = items->parent) {
        const qel_config_item* item = qel_config_items_find(items, var->data, var->length);
        if (!item || item->type != QEL_CONFIG_STRING) continue;
        const qel_string* value = item->value.str;
        p->expanded += value->length;
        if (p->expanded > QEL_CONFIG_RYL_MAX_BYTES) {
            return REFUSE(p, "variables stand for more than %d bytes", QEL_CONFIG_RYL_MAX_BYTES);
        }
        return append(p, p->value_tok, value->data, value->length);
    }
    QEL_LOG(QEL_LOG_WARNING, "var ${%.*s} not found.", precision(var->length), text_of(var));
    note_fault(p, p->text->var_at, "no ${%.*s} is set above this, here or in a section around it",
               precision(var->length), text_of(var));
    return -1;
}

// Includes.

/// Refuses loops, many files and, as a path can have many names, deep nesting.
bool may_include(Parser* p, const char* path) {
    int32_t nested = 0;
    for (const Text* outer = p->text; outer->outer; outer = outer->outer, ++nested) {
        if (strcmp(outer->path, path) != 0) continue;
        return REFUSE(p, "include loop: \"%s\" includes itself", path) == 0;
    }
    if (nested == QEL_CONFIG_RYL_MAX_INCLUDES) {
        return REFUSE(p, "too many nested includes: \"%s\" is within %d others", path, nested) == 0;
    }
    if (++p->files > QEL_CONFIG_RYL_MAX_FILES) {
        return REFUSE(p, "more than %d files: \"%s\"", QEL_CONFIG_RYL_MAX_FILES, path) == 0;
    }
    return true;
}

/// Counts a file's bytes; false, with a log line, when they are too many with those before.
bool may_load(Parser* p, const char* path, uint64_t bytes) {
    p->loaded = std::min<uint64_t>(p->loaded + bytes, UINT32_MAX);
    if (bytes <= QEL_CONFIG_RYL_MAX_BYTES && p->loaded <= QEL_CONFIG_RYL_MAX_BYTES) return true;
    return REFUSE(p, "too large: \"%s\"", path) == 0;
}

qel::heap_ptr<char> load(const Parser* p, const char* path, uint64_t* n) {
    if (!p->loader || !p->loader_data) return qel::heap_ptr<char>(qel_io_read_all(path, n));
    char* bytes = nullptr;
    p->loader(p->loader_data, path, &bytes, n);
    qel::heap_ptr<char> owned(bytes);
    if (*n == 0) owned.reset();  // as an empty file is no file
    return owned;
}

int32_t feed(Parser* p, const char* bytes, uint32_t n);

/// Reads a text in place. A statement that it ends in is lost, and nothing of it is left over for
/// what follows.
int32_t feed_text(Parser* p, Text* text, const char* bytes, uint32_t n) {
    p->text = text;
    const int32_t result = feed(p, bytes, n);
    if (result == 0 && p->journal && p->state != kStart && p->state != kComment) {
        p->journal->add_unfinished({text->file, text->name_at},
                                   is_set(p, QEL_CONFIG_RYL_IN_QUOTES));
    }
    p->text = text->outer;
    return result;
}

/// Feeds a file's bytes with ${pwd} as its directory, which the current section alone sees.
int32_t feed_in_directory(Parser* p, const char* dir, uint32_t dir_len, Text* text,
                          const char* bytes, uint32_t n) {
    qel_config_items* scope = p->scope;
    qel_config_item* pwd = qel_config_items_find(scope, "pwd", 3);
    if (!pwd) {
        if (qel_config_ryl_add_var(p, scope, "pwd", 3, dir, dir_len) != 0) return -1;
        const int32_t result = feed_text(p, text, bytes, n);
        qel_config_ryl_remove_var(p, scope, "pwd", 3);
        return result;
    }
    const OwnedString own(qel_string_new(dir, dir_len));
    if (!own) return out_of_memory(p);
    const auto [type, value] = std::pair(pwd->type, pwd->value);
    pwd->type = QEL_CONFIG_STRING;
    pwd->value.str = own.get();
    const int32_t result = feed_text(p, text, bytes, n);
    pwd->type = type;
    pwd->value = value;
    return result;
}

int32_t include_file(Parser* p) {
    clear(p, QEL_CONFIG_RYL_INCLUDE);
    const OwnedString path_copy(qel_string_duplicate(p->value_tok));
    if (!path_copy) return out_of_memory(p);
    const char* path = text_of(path_copy.get());
    if (!may_include(p, path)) return -1;

    uint64_t n = 0;
    qel::heap_ptr<char> owned = load(p, path, &n);
    if (!owned) {
        QEL_LOG(QEL_LOG_WARNING, "%s not found.", path);
        note_fault(p, p->text->value_at, "cannot read the file \"%s\" that is included here", path);
        return -1;
    }
    if (!may_load(p, path, n)) return -1;

    p->state = kStart;
    const char* bytes = owned.get();
    Text here = {path, p->text, -1, 0, 0, 0, 0};
    if (p->journal) {
        here.file = p->journal->add_file(path, &owned, static_cast<uint32_t>(n),
                                         {p->text->file, p->text->name_at});
    }
    const char* slash = strrchr(path, '/');
    const int32_t result =
        feed_in_directory(p, slash ? path : ".", slash ? static_cast<uint32_t>(slash - path) : 1,
                          &here, bytes, static_cast<uint32_t>(n));
    if (result != 0) return result;
    clear_quote_flags(p);
    clear(p, QEL_CONFIG_RYL_INCLUDE);
    return go(p, kStart);
}

// The handlers, in the order of their states. Their names stand in log lines: renaming one changes
// a message. Each takes one byte; some pass it on to the handler of the state they enter.

int32_t _expr_tok_start(Parser* p, char c) {
    if (in_quotes(p)) {
        if (c != p->quote) return append(p, p->name_tok, c);
        clear(p, QEL_CONFIG_RYL_IN_QUOTES);
        return go(p, kTokEnd);
    }
    if (is_name_byte(c)) return append(p, p->name_tok, c);
    if (c == '=') return go(p, kValueStart);
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "invalid char '%c'", c);
    return -1;
}

int32_t _expr_start(Parser* p, char c) {
    p->text->name_at = p->text->at;
    if (is_name_byte(c)) {
        restart(p->name_tok);
        p->state = kTok;
        return _expr_tok_start(p, c);
    }
    if (is_quote(c)) {
        restart(p->name_tok);
        open_quote(p, c);
        return go(p, kTok);
    }
    if (c == '}') return close_section(p);
    if (c == '#') {
        restart(p->name_tok);
        return go(p, kComment);
    }
    return 0;
}

int32_t _expr_tok_end(Parser* p, char c) { return c == '=' ? go(p, kValueStart) : 0; }

int32_t _expr_value_tok_end(Parser* p, char c) {
    if (c == ';') {
        if (is_set(p, QEL_CONFIG_RYL_INCLUDE)) return include_file(p);
        if (!qel::config_add_string(p->scope, text_of(p->name_tok), text_of(p->value_tok))) {
            return out_of_memory(p);
        }
        note_statement(p, QEL_CONFIG_STRING, p->scope, nullptr);
        return go(p, kStart);
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "expect \";\"");
    return -1;
}

int32_t _expr_value_tok_start(Parser* p, char c) {
    if (c == '\\') return go(p, kValueEscape);
    if (in_quotes(p)) {
        if (c != p->quote) return append(p, p->value_tok, c);
        clear(p, QEL_CONFIG_RYL_IN_QUOTES);
        return go(p, kValueTokEnd);
    }
    if (is_unquoted_value_byte(c)) return append(p, p->value_tok, c);
    if (c == ';') {
        p->state = kValueTokEnd;
        return _expr_value_tok_end(p, c);
    }
    if (c == '$') return read_var(p, kValueTok);
    QEL_LOG(QEL_LOG_WARNING, "expect var value %c end.", c);
    return -1;
}

int32_t _expr_value_start(Parser* p, char c) {
    p->text->value_at = p->text->at;
    if (c == '{') return open_section(p);
    if (c == '[') return open_array(p);
    if (c == '"') {
        restart(p->value_tok);
        open_quote(p, c);
        return go(p, kValueTok);
    }
    if (is_value_start_byte(c)) {
        restart(p->value_tok);
        clear(p, QEL_CONFIG_RYL_IN_QUOTES);
        p->state = kValueTok;
        return _expr_value_tok_start(p, c);
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "invalid char '%c'", c);
    return -1;
}

int32_t _expr_comment(Parser* p, char c) {
    constexpr char kInclude[] = "include";
    constexpr uint32_t kLength = sizeof(kInclude) - 1;
    if (c == '\n') return go(p, kStart);
    if (p->name_tok->length >= kLength) return 0;
    if (append(p, p->name_tok, c) != 0) return -1;
    if (!qel_string_compare(p->name_tok, kInclude, kLength, 0)) return 0;
    set(p, QEL_CONFIG_RYL_INCLUDE);
    return go(p, kValueStart);
}

int32_t _expr_var_start(Parser* p, char c) {
    if (c == '{') return go(p, kVarTokStart);
    QEL_LOG(QEL_LOG_WARNING, "expect var '{' start.");
    return -1;
}

int32_t _expr_var_tok(Parser* p, char c) {
    if (is_name_byte(c)) return append(p, p->var_tok, c);
    if (c == '}') {
        if (expand_var(p) != 0) return -1;
        p->state = p->return_state;
        return 0;
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_DEBUG, "expect expr tok start.");
    return -1;
}

int32_t _expr_var_tok_start(Parser* p, char c) {
    if (qel::is_blank(c)) return 0;
    if (is_name_byte(c) || c == '}') {
        restart(p->var_tok);
        p->state = kVarTok;
        return _expr_var_tok(p, c);
    }
    QEL_LOG(QEL_LOG_DEBUG, "expect expr tok start.");
    return -1;
}

int32_t _expr_array_tok_start(Parser* p, char c) {
    if (qel::is_blank(c) || c == ',') return 0;
    if (c == ']') return go(p, kStart);
    restart(p->value_tok);
    if (c == '$') return read_var(p, kArrayTok);
    p->state = kArrayTok;
    if (!is_quote(c)) return append(p, p->value_tok, c);
    open_quote(p, c);
    return 0;
}

int32_t _expr_array_tok(Parser* p, char c) {
    if (is_set(p, QEL_CONFIG_RYL_ESCAPED)) {
        clear(p, QEL_CONFIG_RYL_ESCAPED);
        return append(p, p->value_tok, c);
    }
    if (in_quotes(p)) {
        if (c == '\\') {
            set(p, QEL_CONFIG_RYL_ESCAPED);
            return 0;
        }
        if (c != p->quote) return append(p, p->value_tok, c);
        clear_quote_flags(p);
        p->state = kArrayTokEnd;
        return add_element(p);
    }
    if (qel::is_blank(c) || c == ',' || c == ']') {
        p->state = c == ',' ? kArrayTokStart : c == ']' ? kStart : kArrayTokEnd;
        return add_element_unless_empty(p);
    }
    if (c == '$') {
        clear_quote_flags(p);
        return read_var(p, kArrayTok);
    }
    if (is_quote(c) && p->value_tok->length == 0) {
        open_quote(p, c);
        return 0;
    }
    return append(p, p->value_tok, c);
}

int32_t _expr_array_tok_end(Parser* p, char c) {
    if (c == ',' || c == ']') {
        clear_quote_flags(p);
        return go(p, c == ',' ? kArrayTokStart : kStart);
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "expect array tok like \",\" or \"]\", but found [%c]", c);
    return -1;
}

int32_t _expr_value_escape(Parser* p, char c) {
    if (c == 'x' || c == 'X') {
        p->escape_acc = 0;
        return go(p, kValueHex1);
    }
    if (is_octal(c)) {
        p->escape_acc = static_cast<uint8_t>(c - '0');
        return go(p, kValueOct2);
    }
    p->state = kValueTok;
    return append(p, p->value_tok, c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c);
}

int32_t _expr_value_hex1(Parser* p, char c) {
    const int32_t value = hex_value(c);
    if (value < 0) return -1;
    p->escape_acc = static_cast<uint8_t>(value);
    return go(p, kValueHex2);
}

int32_t _expr_value_hex2(Parser* p, char c) {
    const int32_t value = hex_value(c);
    if (value < 0) return -1;
    p->escape_acc = static_cast<uint8_t>(p->escape_acc * 16 + value);
    p->state = kValueTok;
    return append(p, p->value_tok, static_cast<char>(p->escape_acc));
}

// An octal escape takes its three digits and stands for nothing: configurations in use rely on it.

int32_t octal_digit(Parser* p, char c, State next) {
    if (!is_octal(c)) return -1;
    p->escape_acc = static_cast<uint8_t>(p->escape_acc * 4 + (c - '0'));
    return go(p, next);
}

int32_t _expr_value_oct2(Parser* p, char c) { return octal_digit(p, c, kValueOct3); }

int32_t _expr_value_oct3(Parser* p, char c) { return octal_digit(p, c, kValueTok); }

struct Entry {
    int32_t state;
    int32_t (*handler)(Parser* p, char c);
    const char* expected;  // in words, for whoever wrote what does not fit
};

constexpr std::array<Entry, kStates> kTable = {{
    {kStart, _expr_start, "no section is open: one '}' too many"},
    {kTok, _expr_tok_start, "expected '=' behind a name of letters, digits and _ - . / : @"},
    {kTokEnd, _expr_tok_end, "expected '=' behind the name"},
    {kValueStart, _expr_value_start,
     "expected a value, '{' or '['; a plain value begins with a letter, a digit, _ - : or ${, any "
     "other needs double quotes"},
    {kValueTok, _expr_value_tok_start,
     "expected ';' right behind a plain value of letters, digits and _ - . / :, any other needs "
     "double quotes"},
    {kValueTokEnd, _expr_value_tok_end, "expected ';' behind the quoted value"},
    {kComment, _expr_comment, "a comment"},
    {kVarStart, _expr_var_start, "expected '{' behind '$'"},
    {kVarTokStart, _expr_var_tok_start,
     "expected a variable's name of letters, digits and _ - . / : @"},
    {kVarTok, _expr_var_tok,
     "expected '}' behind a variable's name of letters, digits and _ - . / : @"},
    {kArrayTokStart, _expr_array_tok_start, "expected an element"},
    {kArrayTok, _expr_array_tok, "expected an element"},
    {kArrayTokEnd, _expr_array_tok_end, "expected ',' or ']' behind the element"},
    {kValueEscape, _expr_value_escape, "expected an escape"},
    {kValueHex1, _expr_value_hex1, "expected two hexadecimal digits behind \\x"},
    {kValueHex2, _expr_value_hex2, "expected two hexadecimal digits behind \\x"},
    {kValueOct2, _expr_value_oct2, "expected three octal digits behind the backslash"},
    {kValueOct3, _expr_value_oct3, "expected three octal digits behind the backslash"},
}};

/// Says what a byte broke, in words.
void note_unexpected(Parser* p, char c) {
    if (!p->journal) return;
    const char* expected = kTable[static_cast<uint32_t>(p->state)].expected;
    const bool in_name = p->state == kTok;
    const char* name = text_of(p->name_tok);
    const bool foreign_comment =
        in_name && (strncmp(name, "//", 2) == 0 || strncmp(name, "--", 2) == 0 ||
                    (strcmp(name, "/") == 0 && c == '*'));
    if (foreign_comment) expected = "only '#' begins a comment";
    if (c == '\n') {
        note_fault(p, p->text->at, "%s; found the end of the line", expected);
    } else if (qel::is_blank(c)) {
        note_fault(p, p->text->at, "%s; found a blank", expected);
    } else if (c > ' ' && c < '\x7f') {
        note_fault(p, p->text->at, "%s; found '%c'", expected, c);
    } else {
        note_fault(p, p->text->at, "%s; found byte 0x%02x", expected, static_cast<uint8_t>(c));
    }
}

int32_t feed(Parser* p, const char* bytes, uint32_t n) {
    int32_t result = -1;
    for (uint32_t i = 0; i < n; ++i) {
        if (static_cast<uint32_t>(p->state) >= kStates) {
            QEL_LOG(QEL_LOG_WARNING, "unhandled char '%c' at '%d'", bytes[i], p->state);
            continue;
        }
        const Entry& entry = kTable[static_cast<uint32_t>(p->state)];
        if (entry.state != p->state || !entry.handler) {
            QEL_LOG(QEL_LOG_DEBUG, "%d %d %d %p '%c'", entry.state, p->state, p->return_state,
                    reinterpret_cast<void*>(entry.handler), bytes[i]);
            return result;
        }
        p->text->at = i;
        result = entry.handler(p, bytes[i]);
        if (result != 0) {
            note_unexpected(p, bytes[i]);
            qel_debug_log(QEL_LOG_WARNING, kSource, "qel_config_ryl_feed", __LINE__,
                          "invalid format: [%.*s] at %d", precision(i), bytes, p->state);
            return result;
        }
    }
    return result;
}

/// A parser with ${pwd} set; null, with a log line, when memory runs out.
Parser* make_parser(const char* pwd) {
    auto* p = static_cast<Parser*>(qel_config_ryl_new());
    if (!p) return nullptr;
    if (qel_config_ryl_add_var(p, p->root, "pwd", 3, pwd, static_cast<uint32_t>(strlen(pwd))) == 0)
        return p;
    qel_config_ryl_delete(p);
    return nullptr;
}

/// Parses a whole text that is at `path`; takes the parser, and gives it back or null.
qel_config_ryl* parse(Parser* p, const char* path, qel::heap_ptr<char> owned, uint32_t n,
                      qel::Journal* journal) {
    const char* bytes = owned.get();
    p->journal = journal;
    p->fed.path = path;
    if (journal) p->fed.file = journal->add_file(path, &owned, n, {-1, 0});
    int32_t result = feed_text(p, &p->fed, bytes, n);
    p->text = &p->fed;
    p->fed = {nullptr, nullptr, -1, 0, 0, 0, 0};
    p->journal = nullptr;
    if (result == 0) return p;
    qel_config_ryl_delete(p);
    return nullptr;
}

/// Why a file could not be read, as a format for its path.
const char* why_unread(qel::FileRead result) {
    switch (result) {
        case qel::FileRead::kNone: return "cannot open \"%s\".";
        case qel::FileRead::kTooLarge: return "too large: \"%s\"";
        case qel::FileRead::kNotRegular: return "not a regular file: \"%s\"";
        case qel::FileRead::kEmpty: return "empty: \"%s\"";
        case qel::FileRead::kNoMemory: return "out of memory. \"%s\"";
        default: return "cannot read \"%s\".";
    }
}

// Printing.

void print_items(const qel_config_items* items, int32_t depth);

void indent(int32_t depth) {
    for (int32_t i = 0; i < depth; ++i) putchar('\t');
}

void print_array(const qel_array* array) {
    for (uint32_t i = 0; array && i < array->count; ++i) {
        const auto* element = static_cast<const qel_string*>(qel_array_peek(array, i));
        printf("%s%s", i > 0 ? ", " : "", text_of(element));
    }
}

void print_item(void* /*user*/, void* value, void* arg) {
    if (!value) return;
    const auto* item = static_cast<const qel_config_item*>(value);
    const int32_t depth = *static_cast<const int32_t*>(arg);
    const char* name = text_of(item->name);
    indent(depth);
    switch (item->type) {
        case QEL_CONFIG_STRING: printf("%s = %s;\n", name, text_of(item->value.str)); break;
        case QEL_CONFIG_SUBITEMS:
            printf("%s = {\n", name);
            print_items(item->value.subitems, depth + 1);
            indent(depth);
            printf("};\n");
            break;
        case QEL_CONFIG_ARRAY:
            printf("%s = [", name);
            print_array(item->value.array);
            printf("];\n");
            break;
        default: break;
    }
}

void print_items(const qel_config_items* items, int32_t depth) {
    if (items) qel_hash_tree_walk(items->hash, nullptr, print_item, &depth);
}

}  // namespace

void qel::config_forget(ItemTree* section) {
    Parser* p = section->parser;
    qel_queue_remove(&p->sections, &section->link);
    if (p->closing) return;
    bool open = false;
    for (const qel_config_items* s = p->scope; s; s = s->parent) open |= s == section;
    if (open) --p->depth;
    if (p->scope == section) p->scope = section->parent;
    for (qel_queue_node* link = p->sections.head; link; link = link->next) {
        auto* inner = reinterpret_cast<qel_config_items*>(link);  // the link is its first member
        if (inner->parent == section) inner->parent = section->parent;
    }
}

qel_config_ryl* qel::config_parse_file(const char* path, Journal* journal) {
    uint64_t n = 0;
    heap_ptr<char> bytes;
    const FileRead result = read_file(path, QEL_CONFIG_RYL_MAX_BYTES, &bytes, &n);
    if (result != FileRead::kDone) {
        char why[512];
        snprintf(why, sizeof(why), why_unread(result), path);
        if (journal) journal->set_fault({-1, 0}, "%s", why);
        if (result == FileRead::kEmpty) return nullptr;  // without a line, as ever
        const uint32_t level = result == FileRead::kNoMemory ? QEL_LOG_ERROR : QEL_LOG_WARNING;
        qel_debug_log(level, kSource, kNewFn, __LINE__, "%s", why);
        return nullptr;
    }
    char pwd[kMaxPwdBytes + 1] = "./";
    if (const char* slash = strrchr(path, '/')) {
        const size_t length = std::min(static_cast<size_t>(slash - path), kMaxPwdBytes);
        memcpy(pwd, path, length);
        pwd[length] = '\0';
    }
    Parser* p = make_parser(pwd);
    if (!p && journal) journal->set_fault({-1, 0}, "out of memory");
    if (!p) return nullptr;
    p->files = 1;
    p->loaded = n;
    return parse(p, path, std::move(bytes), static_cast<uint32_t>(n), journal);
}

qel_config_ryl* qel::config_parse_text(const char* name, const char* text, uint32_t bytes,
                                       Journal* journal) {
    if (bytes == 0 && journal) journal->set_fault({-1, 0}, why_unread(FileRead::kEmpty), name);
    heap_ptr<char> copy(static_cast<char*>(malloc(size_t{bytes} + 1)));
    if (!copy) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    if (bytes > 0) memcpy(copy.get(), text, bytes);
    copy.get()[bytes] = '\0';
    Parser* p = make_parser(".");
    if (journal && !p) journal->set_fault({-1, 0}, "out of memory");
    return p ? parse(p, name, std::move(copy), bytes, journal) : nullptr;
}

qel_config_ryl* qel_config_ryl_new() {
    auto* p = qel::make_zeroed<Parser>().release();
    if (p) {
        p->fed.file = -1;
        p->text = &p->fed;
        p->root = p->scope = qel_config_items_new(nullptr);
        p->name_tok = qel_string_new(nullptr, kTokenBytes);
        p->value_tok = qel_string_new(nullptr, kTokenBytes);
        p->var_tok = qel_string_new(nullptr, kTokenBytes);
        if (p->root && p->name_tok && p->value_tok && p->var_tok) return p;
    }
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    qel_config_ryl_delete(p);
    return nullptr;
}

qel_config_ryl* qel_config_ryl_new_data(const char* bytes, uint32_t n, const char* pwd,
                                        void* loader_data, qel_config_ryl_load_fn loader) {
    Parser* p = make_parser(pwd ? pwd : ".");
    if (!p) return nullptr;
    p->loader_data = loader_data;
    p->loader = loader;
    if (qel_config_ryl_feed(p, bytes, n) == 0) return p;
    qel_config_ryl_delete(p);
    return nullptr;
}

qel_config_ryl* qel_config_ryl_new_fn(const char* path) {
    return qel::config_parse_file(path, nullptr);
}

void qel_config_ryl_delete(qel_config_ryl* parser) {
    if (!parser) return;
    auto* p = static_cast<Parser*>(parser);
    p->closing = true;
    qel_config_items_delete(p->root);
    // Sections that a caller took out of the tree outlive the parser.
    while (qel_queue_node* link = qel_queue_pop_head(&p->sections)) {
        auto* section = static_cast<qel::ItemTree*>(reinterpret_cast<qel_config_items*>(link));
        section->parser = nullptr;
        section->parent = nullptr;
    }
    qel_string_delete(p->name_tok);
    qel_string_delete(p->value_tok);
    qel_string_delete(p->var_tok);
    free(p);
}

int32_t qel_config_ryl_feed(qel_config_ryl* parser, const char* bytes, uint32_t n) {
    return feed(static_cast<Parser*>(parser), bytes, n);
}

int32_t qel_config_ryl_add_var(qel_config_ryl* parser, qel_config_items* items, const char* name,
                               uint32_t name_len, const char* value, uint32_t value_len) {
    auto* p = static_cast<Parser*>(parser);
    if (replace(p, p->name_tok, name, name_len) != 0 ||
        replace(p, p->value_tok, value, value_len) != 0) {
        return -1;
    }
    if (qel::config_add_string(items ? items : p->scope, text_of(p->name_tok),
                               text_of(p->value_tok))) {
        return 0;
    }
    return out_of_memory(p);
}

int32_t qel_config_ryl_remove_var(qel_config_ryl* parser, qel_config_items* items, const char* name,
                                  uint32_t name_len) {
    if (!items) items = parser->scope;
    qel_config_item* item = qel_config_items_find(items, name, name_len);
    qel::ConfigKey key;
    if (!item || !qel::config_key(name, name_len, &key)) return -1;
    if (item->type == QEL_CONFIG_STRING) {
        qel_config_items_remove(items, key.data());
        qel::config_delete_item(item);
        return 0;
    }
    QEL_LOG(QEL_LOG_WARNING, "cannot remove subitems or array var");
    return qel::config_hide(items, key.data()) ? 0 : -1;  // the parser may still be reading it
}

void qel_config_ryl_print(qel_config_ryl* parser) { qel_config_ryl_debug_print(parser); }

void qel_config_ryl_debug_print(qel_config_ryl* parser) { print_items(parser->root, 0); }
