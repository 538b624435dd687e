// A source of bytes with one byte of push-back, and readers of text and binary values on top.
#ifndef QEL_CORE_SOURCE_QEL_SOURCE_H
#define QEL_CORE_SOURCE_QEL_SOURCE_H

#include <stdint.h>

#include "qel/core/qel_export.h"
#include "qel/core/qel_string.h"

QEL_BEGIN_DECLS

// Bit of qel_source.flags: byte order of binary values. Set by qel_source_init().
enum { QEL_SOURCE_BYTE_ORDER = 0x1 };

typedef struct qel_source {
    int32_t (*get)(void* data);               // the next byte, 0 to 255, or -1 at the end
    void (*unget)(void* data, int32_t byte);  // pushes back the low 8 bits of `byte`
    // Optional bulk read of *count bytes; stores the number read. Null: byte by byte through get.
    int32_t (*read)(void* data, void* dst, uint32_t* count);
    // Optional replacement of the tokeniser behind qel_source_read_string().
    int32_t (*read_string)(void* data, qel_string* string, void* arg);
    void (*reserved)(void);  // null
    qel_string* scratch;     // the number readers'
    void* data;              // handed to the functions above
    uint32_t flags;
} qel_source;

typedef int32_t (*qel_source_load_fn)(void* user, qel_source* source);

// A way to open what `path` names: qel_source_file_load() is one.
typedef struct qel_source_loader {
    void* user_data;
    int32_t (*load)(void* user_data, void* user, qel_source_load_fn load, const char* path);
} qel_source_loader;

/// Clears the record, sets QEL_SOURCE_BYTE_ORDER and makes the scratch string. -1 for null or when
/// memory runs out.
QEL_API int32_t qel_source_init(qel_source* source);

/// Releases the scratch string; -1 for null.
QEL_API int32_t qel_source_clean(qel_source* source);

/// The loader's result for these arguments.
QEL_API int32_t qel_source_loader_load(const qel_source_loader* loader, void* user,
                                       qel_source_load_fn load, const char* path);

// Text. Blanks are space and the bytes 9 to 13; strings are appended to unless stated.

/// The next byte, 0 to 255, or -1 at the end; it is pushed back, the end as byte 0xFF.
QEL_API int32_t qel_source_peek(qel_source* source);

/// Consumes blanks; 0, or -1 if the input ends first.
QEL_API int32_t qel_source_skip_space(qel_source* source);

/// Counts into `out` the lines with at least one byte, reading to the end or to a byte 0xFF;
/// a null source has none. Returns 0.
QEL_API int32_t qel_source_count_lines(qel_source* source, uint32_t* out);

/// Reads one token: blanks are skipped, then bytes up to a blank, the end, or the closing quote if
/// the token began with ' or ". A blank ends a quoted token too. A backslash takes the next byte
/// literally, or three octal digits as one byte. -1 if only blanks are left, else 0.
QEL_API int32_t qel_source_read_string(qel_source* source, qel_string* string, void* arg);

/// Reads up to a newline, which is consumed and not stored, to the end or to a byte 0xFF;
/// `eof_out`, unless null, becomes 1 for the latter two, else 0. Returns 0.
QEL_API int32_t qel_source_read_line(qel_source* source, qel_string* string, int32_t* eof_out);

/// Reads *count bytes and returns 0. If the input ends first, stores one more than the number of
/// bytes read in *count. -1 for a null buffer or a count below 1.
QEL_API int32_t qel_source_read_char(qel_source* source, char* buffer, int32_t* count);

/// Replaces `string` by one UTF-8 character; -1 if the input ends within it.
QEL_API int32_t qel_source_read_utf8_char(qel_source* source, qel_string* string);

/// Reads a decimal integer; 0, or -1 with the byte left unread if none begins here. A lone sign
/// is 0. A blank behind the digits is pushed back twice.
QEL_API int32_t qel_source_atoi(qel_source* source, int32_t* out);

/// Reads a number up to the next blank or the end; 0, or -1 with the byte left unread unless it is
/// a sign, a point or a digit. What strtod() leaves of the word is lost.
QEL_API int32_t qel_source_atof(qel_source* source, double* out);

// Arrays.

/// Reads *count bytes. With a `read` function: 0 if all came, else -1 and *count bytes read.
/// Without one: 0 and *count bytes read.
QEL_API int32_t qel_source_fill(qel_source* source, void* dst, uint32_t* count);

/// Read `n` values, as text when `binary` is 0; -1 at the first that fails. Binary values are
/// byte-reversed by QEL_SOURCE_BYTE_ORDER: 32-bit integers when it is set, as it is at first, the
/// other types when it is clear.
QEL_API int32_t qel_source_read_int(qel_source* source, int32_t* out, uint32_t n, int32_t binary);
QEL_API int32_t qel_source_read_short(qel_source* source, int16_t* out, uint32_t n, int32_t binary);
QEL_API int32_t qel_source_read_float(qel_source* source, float* out, uint32_t n, int32_t binary);
QEL_API int32_t qel_source_read_double(qel_source* source, double* out, uint32_t n, int32_t binary);

QEL_END_DECLS

#endif
