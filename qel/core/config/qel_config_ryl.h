// Parser of the text configuration format:
//
//     # a comment, to the end of the line
//     #include ${pwd}/common.conf;
//     rate = 16000;  title = "any bytes, \"escaped\"";
//     aec = { taps = 4;  nlp = { use_mute = 1; } }
//     list = [ one, "number two", ${title} ]
//
// A section that is opened again is continued. ${name} is the string of the nearest enclosing
// section that has one; ${pwd} is the directory of the file being read.
#ifndef QEL_CORE_CONFIG_QEL_CONFIG_RYL_H
#define QEL_CORE_CONFIG_QEL_CONFIG_RYL_H

#include <stdint.h>

#include "qel/core/array/qel_array.h"
#include "qel/core/config/qel_config_base.h"
#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"
#include "qel/core/queue/qel_queue.h"

QEL_BEGIN_DECLS

// Bits of qel_config_ryl.flags.
enum {
    QEL_CONFIG_RYL_ESCAPED = 0x1,  // the next byte of a quoted array element is literal
    QEL_CONFIG_RYL_IN_QUOTES = 0x2,
    QEL_CONFIG_RYL_INCLUDE = 0x4  // the value being read is the path of an include
};

// What is accepted: sections within sections, includes within includes, bytes of one token; and of
// one parser in all, the files and bytes that it reads and the bytes that variables stand for.
enum {
    QEL_CONFIG_RYL_MAX_DEPTH = 255,
    QEL_CONFIG_RYL_MAX_INCLUDES = 16,
    QEL_CONFIG_RYL_MAX_TOKEN = 1 << 20,
    QEL_CONFIG_RYL_MAX_FILES = 1000,
    QEL_CONFIG_RYL_MAX_BYTES = 16 << 20
};

/// Delivers an included file in a block that the parser frees with free(). What it hands out
/// counts, not what it returns: no bytes, or a length of 0, mean that there is no such file.
typedef int32_t (*qel_config_ryl_load_fn)(void* loader_data, const char* path, char** out_bytes,
                                          uint64_t* out_length);

typedef struct qel_config_ryl {
    qel_config_items* root;
    qel_config_items* scope;  // the section that statements go into
    qel_queue sections;       // every section made or entered that still exists, by its link
    void* loader_data;
    qel_config_ryl_load_fn loader;  // used for includes when both are set
    int32_t state;                  // 0 to 17
    int32_t return_state;           // the state behind a ${name}
    qel_string* name_tok;
    qel_string* value_tok;
    qel_string* var_tok;
    qel_array* array;    // the one being read; its item owns it
    uint8_t depth;       // open sections
    char quote;          // the byte that opened the current quoted token
    uint8_t escape_acc;  // value of the numeric escape being read
    uint8_t flags;
} qel_config_ryl;

/// Makes a parser with an empty root; null, with an ERROR line, when memory runs out.
QEL_API qel_config_ryl* qel_config_ryl_new(void);

/// Parses `n` bytes, or the NUL-terminated `pwd` and the bytes: ${pwd} is "." when `pwd` is null.
/// Includes come from `loader` when it and `loader_data` are set, else from files. Null if
/// anything fails, with a log line unless `n` is 0.
QEL_API qel_config_ryl* qel_config_ryl_new_data(const char* bytes, uint32_t n, const char* pwd,
                                                void* loader_data, qel_config_ryl_load_fn loader);

/// Parses a whole regular file; null if anything fails, with a log line unless the file is empty.
QEL_API qel_config_ryl* qel_config_ryl_new_fn(const char* path);

/// Releases the parser and all that it read; null is accepted.
QEL_API void qel_config_ryl_delete(qel_config_ryl* parser);

/// Parses `n` more bytes of the same statement stream. 0, or -1 with a log line at the first byte
/// that does not fit; -1 for n = 0. What was read before the error stays. An unfinished statement
/// waits for more and defines nothing yet.
QEL_API int32_t qel_config_ryl_feed(qel_config_ryl* parser, const char* bytes, uint32_t n);

/// Adds a string to `items`, or to the current section when that is null; 0, or -1 when memory
/// runs out. Not between two pieces of one statement: it uses the statement's buffers.
QEL_API int32_t qel_config_ryl_add_var(qel_config_ryl* parser, qel_config_items* items,
                                       const char* name, uint32_t name_len, const char* value,
                                       uint32_t value_len);

/// Takes an item out of `items`, or of the current section when that is null, and releases it;
/// 0, or -1 if there is none. A section or an array is taken out with a WARNING and released with
/// its tree.
QEL_API int32_t qel_config_ryl_remove_var(qel_config_ryl* parser, qel_config_items* items,
                                          const char* name, uint32_t name_len);

/// Print all items on standard output, in the format's own form but unquoted and unescaped.
QEL_API void qel_config_ryl_print(qel_config_ryl* parser);
QEL_API void qel_config_ryl_debug_print(qel_config_ryl* parser);

QEL_END_DECLS

#endif
