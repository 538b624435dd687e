// The version registry and the banner.
#include "qel/core/qel_version.h"

#include <cstdio>
#include <cstring>

#include "qel/core/array/qel_array_string.h"
#include "qel/core/qel_version.hpp"

namespace {

constexpr char kModule[] = "core v0.5.3";
constexpr const char* kVersion = kModule + sizeof("core ") - 1;
constexpr char kTitle[] = "QEL (Quiet Echo Line)";
constexpr char kContact[] = "qel@example.org";
constexpr char kNotice[] = "Copyright the QEL authors. All rights reserved.";
constexpr char kSeparator[] =
    "----------------------------------------------------------------------\n";
static_assert(sizeof(kSeparator) == 70 + 2);

constexpr uint32_t kRoomForModules = 16;

}  // namespace

qel_array* _g_modules = nullptr;

const char* qel_core_version(void) { return kModule; }

void qel::register_module(const char* version) {
    if (!_g_modules) return;
    qel_string text;
    qel_string_init(&text, version, static_cast<uint32_t>(strlen(version)));
    qel_array_string_append(_g_modules, &text);
    qel_string_clean(&text);
}

void _g_version_init() {
    if (!_g_modules) _g_modules = qel_array_string_new(kRoomForModules);
}

void _g_module_core() { qel::register_module(kModule); }

void _g_version_print() {
    fputs(kSeparator, stderr);
    fprintf(stderr, "%s.%s\n\n", kTitle, kVersion);
    fprintf(stderr, "please contact: %s\n", kContact);
    fprintf(stderr, "%s\n", kNotice);
    fputs(kSeparator, stderr);
}

void _g_version_release() {
    qel_array_delete(_g_modules);
    _g_modules = nullptr;
}
