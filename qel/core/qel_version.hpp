// Steps of loading and unloading that concern the version registry; qel_load.cpp runs them.
#pragma once

#include "qel/core/qel_version.h"

namespace qel {

/// Adds a module's version string to the registry, if there is one.
void register_module(const char* version);

}  // namespace qel

/// Makes the registry, unless it exists.
void _g_version_init();

/// Registers this room.
void _g_module_core();

/// Prints the banner on standard error.
void _g_version_print();

/// Releases the registry.
void _g_version_release();
