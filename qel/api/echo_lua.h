// The Lua 5.1 module "echo": echo.new(), echo.separate_channel() and objects with feed().
#ifndef QEL_API_ECHO_LUA_H
#define QEL_API_ECHO_LUA_H

#include "qel/core/qel_export.h"

struct lua_State;

QEL_BEGIN_DECLS

/// Registry name of the objects' metatable, "pux.echo.meta"; read whenever the module is opened or
/// an object made. Objects work whatever metatable they carry.
QEL_API extern const char* pux_echo_meta;

/// Opens the module: makes the metatable and the global table "echo". Lua's require() calls it. In
/// a host that does not export Lua 5.1's functions it raises an error or, where none can be raised,
/// writes a line on standard error and returns 0.
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
/// Failures print a message on standard output; why echo.new() failed, or will not do as asked, a
/// WARNING line tells on the application's log, else on standard error. Lua errors: only a
/// non-string for separate_channel, and Lua's own lack of memory.
QEL_API int luaopen_echo(struct lua_State* L);

QEL_END_DECLS

#endif
