// What every public header starts from: linkage and visibility of the C boundary.
#ifndef QEL_CORE_QEL_EXPORT_H
#define QEL_CORE_QEL_EXPORT_H

#ifdef __cplusplus
#define QEL_BEGIN_DECLS extern "C" {
#define QEL_END_DECLS }
#else
#define QEL_BEGIN_DECLS
#define QEL_END_DECLS
#endif

// Marks what echo.so exports; everything else is compiled hidden.
#define QEL_API __attribute__((visibility("default")))

// Lets the compiler check printf-style arguments; both positions count from 1.
#define QEL_PRINTF(format_at, first_arg_at) __attribute__((format(printf, format_at, first_arg_at)))

#endif
