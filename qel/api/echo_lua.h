// The Lua 5.1 module "echo": echo.new(), echo.separate_channel() and objects with feed().
#ifndef QEL_API_ECHO_LUA_H
#define QEL_API_ECHO_LUA_H

#include "qel/core/qel_export.h"

struct lua_State;

QEL_BEGIN_DECLS

/// Registry name of the objects' metatable, "pux.echo.meta"; read whenever the module is opened or
/// an object made.
QEL_API extern const char* pux_echo_meta;

/// Opens the module: makes the metatable and the global table "echo". Lua's require() calls it.
///
/// echo.new(json) -> object, or nil. `json` holds "qelCfgFile" (path of the configuration file),
/// "frameLen" (samples per feed), and if wanted "playGain" (integer gain of the reference, 1) and
/// "isBin" (only 0 works).
///
/// object:feed(mic, ref) -> frameLen samples, one frame late, or nil. Both strings hold frameLen
/// little-endian signed 16-bit samples. A gain other than 1 is written into the caller's `ref`
/// itself, wrapping to 16 bits; where `mic` is the same string (Lua shares equal ones), into both.
///
/// echo.separate_channel(pcm) -> first channel, second channel, or nil: splits interleaved stereo
/// 16-bit samples.
///
/// Failures print a message on standard output. Lua errors: only a non-string for
/// separate_channel, and Lua's own lack of memory.
QEL_API int luaopen_echo(struct lua_State* L);

QEL_END_DECLS

#endif
