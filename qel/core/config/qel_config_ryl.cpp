// Parser of the text configuration format: a state machine that takes one byte at a time.
#include "qel/core/config/qel_config_ryl.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "qel/core/array/qel_array_string.h"
#include "qel/core/config/items.hpp"
#include "qel/core/internal.hpp"
#include "qel/core/qel_io.h"

// One file being included; lies on the stack of the call that reads it.
struct qel_config_ryl_include {
    const char* path;
    const qel_config_ryl_include* outer;
};

namespace {

constexpr char kSource[] = "qel/core/config/qel_config_ryl";
constexpr uint32_t kTokenBytes = 32;        // room that tokens start with
constexpr uint32_t kKeptTokenBytes = 4096;  // emptying zeroes the storage, so more is given back
constexpr uint32_t kArrayItems = 8;
constexpr uint64_t kMaxFileBytes = INT32_MAX;
constexpr size_t kMaxPwdBytes = 255;

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

int32_t append(qel_string* tok, const char* bytes, uint32_t n) {
    if (n > QEL_CONFIG_RYL_MAX_TOKEN - tok->length) {
        QEL_LOG(QEL_LOG_WARNING, "more than %d bytes in one name or value",
                QEL_CONFIG_RYL_MAX_TOKEN);
        return -1;
    }
    return n > 0 ? qel_string_append(tok, bytes, n) : 0;
}

int32_t append(qel_string* tok, char c) { return append(tok, &c, 1); }

int32_t replace(qel_string* tok, const char* bytes, uint32_t n) {
    restart(tok);
    return append(tok, bytes, n);
}

// The parser's flags and state.

bool is_set(const qel_config_ryl* p, uint32_t flag) { return p->flags & flag; }
void set(qel_config_ryl* p, uint32_t flag) { p->flags = static_cast<uint8_t>(p->flags | flag); }
void clear(qel_config_ryl* p, uint32_t flag) { p->flags = static_cast<uint8_t>(p->flags & ~flag); }

void clear_quote_flags(qel_config_ryl* p) {
    clear(p, QEL_CONFIG_RYL_IN_QUOTES | QEL_CONFIG_RYL_ESCAPED);
}

void open_quote(qel_config_ryl* p, char quote) {
    p->quote = quote;
    set(p, QEL_CONFIG_RYL_IN_QUOTES);
}

bool in_quotes(const qel_config_ryl* p) { return is_set(p, QEL_CONFIG_RYL_IN_QUOTES); }

int32_t go(qel_config_ryl* p, State state) {
    p->state = state;
    return 0;
}

int32_t read_var(qel_config_ryl* p, State return_state) {
    p->return_state = return_state;
    return go(p, kVarStart);
}

int32_t out_of_memory() {
    QEL_LOG(QEL_LOG_ERROR, "out of memory.");
    return -1;
}

// Sections, arrays and variables.

int32_t open_section(qel_config_ryl* p) {
    if (p->depth == QEL_CONFIG_RYL_MAX_DEPTH) {
        QEL_LOG(QEL_LOG_WARNING, "too many nested sections: \"%s\" is within %d others",
                text_of(p->name_tok), QEL_CONFIG_RYL_MAX_DEPTH);
        return -1;
    }
    const char* name = text_of(p->name_tok);
    const qel_config_item* item = qel_config_items_find(p->scope, name, p->name_tok->length);
    if (item && item->type == QEL_CONFIG_SUBITEMS) {
        p->scope = item->value.subitems;
    } else {
        qel_config_items* sub = qel_config_items_new(p->scope);
        if (!qel::config_add(p->scope, name, QEL_CONFIG_SUBITEMS, {.subitems = sub})) {
            return out_of_memory();
        }
        qel_queue_push_back(&p->sections, &sub->link);
        p->scope = sub;
    }
    ++p->depth;
    return go(p, kStart);
}

int32_t close_section(qel_config_ryl* p) {
    if (p->depth == 0) return -1;
    --p->depth;
    p->scope = p->scope->parent;
    return 0;
}

int32_t open_array(qel_config_ryl* p) {
    qel_array* array = qel_array_string_new(kArrayItems);
    if (!qel::config_add(p->scope, text_of(p->name_tok), QEL_CONFIG_ARRAY, {.array = array})) {
        return out_of_memory();
    }
    p->array = array;
    return go(p, kArrayTokStart);
}

int32_t add_element(qel_config_ryl* p) { return qel_array_string_append(p->array, p->value_tok); }

int32_t add_element_unless_empty(qel_config_ryl* p) {
    return p->value_tok->length > 0 ? add_element(p) : 0;
}

/// Appends the variable's value to the token being read.
int32_t expand_var(qel_config_ryl* p) {
    const qel_string* var = p->var_tok;
    for (const qel_config_items* items = p->scope; items; items = items->parent) {
        const qel_config_item* item = qel_config_items_find(items, var->data, var->length);
        if (!item || item->type != QEL_CONFIG_STRING) continue;
        const qel_string* value = item->value.str;
        return append(p->value_tok, value->data, value->length);
    }
    QEL_LOG(QEL_LOG_WARNING, "var ${%.*s} not found.", precision(var->length), text_of(var));
    return -1;
}

// Includes.

/// Refuses loops and, as a path can have many names, deep nesting.
bool may_include(const qel_config_ryl* p, const char* path) {
    int32_t nested = 0;
    for (const auto* outer = p->includes; outer; outer = outer->outer, ++nested) {
        if (strcmp(outer->path, path) != 0) continue;
        QEL_LOG(QEL_LOG_WARNING, "include loop: \"%s\" includes itself", path);
        return false;
    }
    if (nested < QEL_CONFIG_RYL_MAX_INCLUDES) return true;
    QEL_LOG(QEL_LOG_WARNING, "too many nested includes: \"%s\" is within %d others", path, nested);
    return false;
}

bool is_small_enough(const char* path, uint64_t bytes) {
    if (bytes <= kMaxFileBytes) return true;
    QEL_LOG(QEL_LOG_WARNING, "too large: \"%s\"", path);
    return false;
}

qel::heap_ptr<char> load(const qel_config_ryl* p, const char* path, uint64_t* n) {
    if (!p->loader || !p->loader_data) return qel::heap_ptr<char>(qel_io_read_all(path, n));
    char* bytes = nullptr;
    const int32_t result = p->loader(p->loader_data, path, &bytes, n);
    qel::heap_ptr<char> owned(bytes);
    if (result != 0 || *n == 0) owned.reset();  // as an empty file is no file
    return owned;
}

/// Feeds a file's bytes with ${pwd} as its directory, which the current section alone sees.
int32_t feed_in_directory(qel_config_ryl* p, const char* dir, uint32_t dir_len, const char* bytes,
                          uint32_t n) {
    qel_config_items* scope = p->scope;
    qel_config_item* pwd = qel_config_items_find(scope, "pwd", 3);
    if (!pwd) {
        if (qel_config_ryl_add_var(p, scope, "pwd", 3, dir, dir_len) != 0) return -1;
        const int32_t result = qel_config_ryl_feed(p, bytes, n);
        qel_config_ryl_remove_var(p, scope, "pwd", 3);
        return result;
    }
    const OwnedString own(qel_string_new(dir, dir_len));
    if (!own) return out_of_memory();
    const auto [type, value] = std::pair(pwd->type, pwd->value);
    pwd->type = QEL_CONFIG_STRING;
    pwd->value.str = own.get();
    const int32_t result = qel_config_ryl_feed(p, bytes, n);
    pwd->type = type;
    pwd->value = value;
    return result;
}

int32_t include_file(qel_config_ryl* p) {
    clear(p, QEL_CONFIG_RYL_INCLUDE);
    const OwnedString path_copy(qel_string_duplicate(p->value_tok));
    if (!path_copy) return out_of_memory();
    const char* path = text_of(path_copy.get());
    if (!may_include(p, path)) return -1;

    uint64_t n = 0;
    const qel::heap_ptr<char> bytes = load(p, path, &n);
    if (!bytes) {
        QEL_LOG(QEL_LOG_WARNING, "%s not found.", path);
        return -1;
    }
    if (!is_small_enough(path, n)) return -1;

    p->state = kStart;
    const qel_config_ryl_include here = {path, p->includes};
    p->includes = &here;
    const char* slash = strrchr(path, '/');
    const int32_t result =
        feed_in_directory(p, slash ? path : ".", slash ? static_cast<uint32_t>(slash - path) : 1,
                          bytes.get(), static_cast<uint32_t>(n));
    p->includes = here.outer;
    return result == 0 ? go(p, kStart) : result;
}

// The handlers, in the order of their states. Each takes one byte; some pass it on to the handler
// of the state they enter.

int32_t _expr_tok_start(qel_config_ryl* p, char c) {
    if (in_quotes(p)) {
        if (c != p->quote) return append(p->name_tok, c);
        clear(p, QEL_CONFIG_RYL_IN_QUOTES);
        return go(p, kTokEnd);
    }
    if (is_name_byte(c)) return append(p->name_tok, c);
    if (c == '=') return go(p, kValueStart);
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "invalid char '%c'", c);
    return -1;
}

int32_t _expr_start(qel_config_ryl* p, char c) {
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

int32_t _expr_tok_end(qel_config_ryl* p, char c) { return c == '=' ? go(p, kValueStart) : 0; }

int32_t _expr_value_tok_end(qel_config_ryl* p, char c) {
    if (c == ';') {
        if (is_set(p, QEL_CONFIG_RYL_INCLUDE)) return include_file(p);
        if (!qel::config_add_string(p->scope, text_of(p->name_tok), text_of(p->value_tok))) {
            return out_of_memory();
        }
        return go(p, kStart);
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "expect \";\"");
    return -1;
}

int32_t _expr_value_tok_start(qel_config_ryl* p, char c) {
    if (c == '\\') return go(p, kValueEscape);
    if (in_quotes(p)) {
        if (c != p->quote) return append(p->value_tok, c);
        clear(p, QEL_CONFIG_RYL_IN_QUOTES);
        return go(p, kValueTokEnd);
    }
    if (is_unquoted_value_byte(c)) return append(p->value_tok, c);
    if (c == ';') {
        p->state = kValueTokEnd;
        return _expr_value_tok_end(p, c);
    }
    if (c == '$') return read_var(p, kValueTok);
    QEL_LOG(QEL_LOG_WARNING, "expect var value %c end.", c);
    return -1;
}

int32_t _expr_value_start(qel_config_ryl* p, char c) {
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

int32_t _expr_comment(qel_config_ryl* p, char c) {
    constexpr char kInclude[] = "include";
    constexpr uint32_t kLength = sizeof(kInclude) - 1;
    if (c == '\n') return go(p, kStart);
    if (p->name_tok->length >= kLength) return 0;
    if (append(p->name_tok, c) != 0) return -1;
    if (!qel_string_compare(p->name_tok, kInclude, kLength, 0)) return 0;
    set(p, QEL_CONFIG_RYL_INCLUDE);
    return go(p, kValueStart);
}

int32_t _expr_var_start(qel_config_ryl* p, char c) {
    if (c == '{') return go(p, kVarTokStart);
    QEL_LOG(QEL_LOG_WARNING, "expect var '{' start.");
    return -1;
}

int32_t _expr_var_tok(qel_config_ryl* p, char c) {
    if (is_name_byte(c)) return append(p->var_tok, c);
    if (c == '}') {
        if (expand_var(p) != 0) return -1;
        p->state = p->return_state;
        return 0;
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_DEBUG, "expect expr tok start.");
    return -1;
}

int32_t _expr_var_tok_start(qel_config_ryl* p, char c) {
    if (qel::is_blank(c)) return 0;
    if (is_name_byte(c) || c == '}') {
        restart(p->var_tok);
        p->state = kVarTok;
        return _expr_var_tok(p, c);
    }
    QEL_LOG(QEL_LOG_DEBUG, "expect expr tok start.");
    return -1;
}

int32_t _expr_array_tok_start(qel_config_ryl* p, char c) {
    if (qel::is_blank(c) || c == ',') return 0;
    if (c == ']') return go(p, kStart);
    restart(p->value_tok);
    if (c == '$') return read_var(p, kArrayTok);
    p->state = kArrayTok;
    if (!is_quote(c)) return append(p->value_tok, c);
    open_quote(p, c);
    return 0;
}

int32_t _expr_array_tok(qel_config_ryl* p, char c) {
    if (is_set(p, QEL_CONFIG_RYL_ESCAPED)) {
        clear(p, QEL_CONFIG_RYL_ESCAPED);
        return append(p->value_tok, c);
    }
    if (in_quotes(p)) {
        if (c == '\\') {
            set(p, QEL_CONFIG_RYL_ESCAPED);
            return 0;
        }
        if (c != p->quote) return append(p->value_tok, c);
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
    return append(p->value_tok, c);
}

int32_t _expr_array_tok_end(qel_config_ryl* p, char c) {
    if (c == ',' || c == ']') {
        clear_quote_flags(p);
        return go(p, c == ',' ? kArrayTokStart : kStart);
    }
    if (qel::is_blank(c)) return 0;
    QEL_LOG(QEL_LOG_WARNING, "expect array tok like \",\" or \"]\", but found [%c]", c);
    return -1;
}

int32_t _expr_value_escape(qel_config_ryl* p, char c) {
    if (c == 'x' || c == 'X') {
        p->escape_acc = 0;
        return go(p, kValueHex1);
    }
    if (is_octal(c)) {
        p->escape_acc = static_cast<uint8_t>(c - '0');
        return go(p, kValueOct2);
    }
    p->state = kValueTok;
    return append(p->value_tok, c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c);
}

int32_t _expr_value_hex1(qel_config_ryl* p, char c) {
    const int32_t value = hex_value(c);
    if (value < 0) return -1;
    p->escape_acc = static_cast<uint8_t>(value);
    return go(p, kValueHex2);
}

int32_t _expr_value_hex2(qel_config_ryl* p, char c) {
    const int32_t value = hex_value(c);
    if (value < 0) return -1;
    p->escape_acc = static_cast<uint8_t>(p->escape_acc * 16 + value);
    p->state = kValueTok;
    return append(p->value_tok, static_cast<char>(p->escape_acc));
}

// An octal escape takes its three digits and stands for nothing: configurations in use rely on it.

int32_t octal_digit(qel_config_ryl* p, char c, State next) {
    if (!is_octal(c)) return -1;
    p->escape_acc = static_cast<uint8_t>(p->escape_acc * 4 + (c - '0'));
    return go(p, next);
}

int32_t _expr_value_oct2(qel_config_ryl* p, char c) { return octal_digit(p, c, kValueOct3); }

int32_t _expr_value_oct3(qel_config_ryl* p, char c) { return octal_digit(p, c, kValueTok); }

struct Entry {
    int32_t state;
    int32_t (*handler)(qel_config_ryl* p, char c);
};

constexpr std::array<Entry, kStates> kTable = {{
    {kStart, _expr_start},
    {kTok, _expr_tok_start},
    {kTokEnd, _expr_tok_end},
    {kValueStart, _expr_value_start},
    {kValueTok, _expr_value_tok_start},
    {kValueTokEnd, _expr_value_tok_end},
    {kComment, _expr_comment},
    {kVarStart, _expr_var_start},
    {kVarTokStart, _expr_var_tok_start},
    {kVarTok, _expr_var_tok},
    {kArrayTokStart, _expr_array_tok_start},
    {kArrayTok, _expr_array_tok},
    {kArrayTokEnd, _expr_array_tok_end},
    {kValueEscape, _expr_value_escape},
    {kValueHex1, _expr_value_hex1},
    {kValueHex2, _expr_value_hex2},
    {kValueOct2, _expr_value_oct2},
    {kValueOct3, _expr_value_oct3},
}};

// Printing.

void print_items(const qel_config_items* items, int32_t depth);

void indent(int32_t depth) {
    for (int32_t i = 0; i < depth; ++i) putchar('\t');
}

void print_array(const qel_array* array) {
    for (uint32_t i = 0; i < array->count; ++i) {
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
    qel_hash_tree_walk(items->hash, nullptr, print_item, &depth);
}

}  // namespace

qel_config_ryl* qel_config_ryl_new() {
    qel_config_ryl* p = qel::make_zeroed<qel_config_ryl>().release();
    if (p) {
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
    qel_config_ryl* p = qel_config_ryl_new();
    if (!p) return nullptr;
    p->loader_data = loader_data;
    p->loader = loader;
    if (!pwd) pwd = ".";
    if (qel_config_ryl_add_var(p, p->root, "pwd", 3, pwd, static_cast<uint32_t>(strlen(pwd))) ==
            0 &&
        qel_config_ryl_feed(p, bytes, n) == 0) {
        return p;
    }
    qel_config_ryl_delete(p);
    return nullptr;
}

qel_config_ryl* qel_config_ryl_new_fn(const char* path) {
    FILE* probe = fopen(path, "rb");
    if (!probe) {
        QEL_LOG(QEL_LOG_WARNING, "cannot open \"%s\".", path);
        return nullptr;
    }
    fclose(probe);
    uint64_t n = 0;
    const qel::heap_ptr<char> bytes(qel_io_read_all(path, &n));
    if (!bytes || !is_small_enough(path, n)) return nullptr;

    char pwd[kMaxPwdBytes + 1] = "./";
    if (const char* slash = strrchr(path, '/')) {
        const size_t length = std::min(static_cast<size_t>(slash - path), kMaxPwdBytes);
        memcpy(pwd, path, length);
        pwd[length] = '\0';
    }
    return qel_config_ryl_new_data(bytes.get(), static_cast<uint32_t>(n), pwd, nullptr, nullptr);
}

void qel_config_ryl_delete(qel_config_ryl* parser) {
    if (!parser) return;
    qel_config_items_delete(parser->root);
    qel_string_delete(parser->name_tok);
    qel_string_delete(parser->value_tok);
    qel_string_delete(parser->var_tok);
    free(parser);
}

int32_t qel_config_ryl_feed(qel_config_ryl* parser, const char* bytes, uint32_t n) {
    int32_t result = -1;
    for (uint32_t i = 0; i < n; ++i) {
        if (static_cast<uint32_t>(parser->state) >= kStates) {
            QEL_LOG(QEL_LOG_WARNING, "unhandled char '%c' at '%d'", bytes[i], parser->state);
            continue;
        }
        const Entry& entry = kTable[static_cast<uint32_t>(parser->state)];
        if (entry.state != parser->state || !entry.handler) {
            QEL_LOG(QEL_LOG_DEBUG, "%d %d %d %p '%c'", entry.state, parser->state,
                    parser->return_state, reinterpret_cast<void*>(entry.handler), bytes[i]);
            return result;
        }
        result = entry.handler(parser, bytes[i]);
        if (result != 0) {
            QEL_LOG(QEL_LOG_WARNING, "invalid format: [%.*s] at %d", precision(i), bytes,
                    parser->state);
            return result;
        }
    }
    return result;
}

int32_t qel_config_ryl_add_var(qel_config_ryl* parser, qel_config_items* items, const char* name,
                               uint32_t name_len, const char* value, uint32_t value_len) {
    if (replace(parser->name_tok, name, name_len) != 0 ||
        replace(parser->value_tok, value, value_len) != 0) {
        return -1;
    }
    if (qel::config_add_string(items ? items : parser->scope, text_of(parser->name_tok),
                               text_of(parser->value_tok))) {
        return 0;
    }
    return out_of_memory();
}

int32_t qel_config_ryl_remove_var(qel_config_ryl* parser, qel_config_items* items, const char* name,
                                  uint32_t name_len) {
    if (!items) items = parser->scope;
    qel_config_item* item = qel_config_items_find(items, name, name_len);
    qel::ConfigKey key;
    if (!item || !qel::config_key(name, name_len, &key)) return -1;
    qel_config_items_remove(items, key.data());
    if (item->type == QEL_CONFIG_STRING) {
        qel::config_delete_item(item);
    } else {
        QEL_LOG(QEL_LOG_WARNING, "cannot remove subitems or array var");
        qel::config_keep_replaced(items, item);  // the parser may still be reading it
    }
    return 0;
}

void qel_config_ryl_print(qel_config_ryl* parser) { qel_config_ryl_debug_print(parser); }

void qel_config_ryl_debug_print(qel_config_ryl* parser) { print_items(parser->root, 0); }
