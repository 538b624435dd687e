// The versions of the modules that were loaded.
#ifndef QEL_CORE_QEL_VERSION_H
#define QEL_CORE_QEL_VERSION_H

#include "qel/core/array/qel_array.h"
#include "qel/core/qel_export.h"

QEL_BEGIN_DECLS

/// Version string of each module, a string array; made when the library is loaded, released when
/// it is unloaded. Null if memory ran out.
QEL_API extern qel_array* _g_modules;

/// "core v0.5.3"
QEL_API const char* qel_core_version(void);

QEL_END_DECLS

#endif
