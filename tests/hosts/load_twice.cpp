// Loads and unloads the library twice in a program without Lua, and says on standard error, where
// the banner goes, what that does.
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdio>

#include "qel/core/qel_debug.h"
#include "qel/core/qel_string.h"
#include "qel/core/qel_version.h"

int main(int, char** argv) {
    for (int round = 0; round < 2; ++round) {
        void* const library = dlopen(argv[1], RTLD_NOW);
        const auto& modules = **static_cast<qel_array**>(dlsym(library, "_g_modules"));
        const auto* const names = static_cast<const qel_string*>(modules.data);
        for (uint32_t i = 0; i < modules.count; ++i) std::fprintf(stderr, "%s\n", names[i].data);
        std::FILE* const log = std::tmpfile();
        const int descriptor = fileno(log);
        void* const set_log = dlsym(library, "qel_debug_set_log_fp");
        reinterpret_cast<decltype(&qel_debug_set_log_fp)>(set_log)(log);
        dlclose(library);
        const bool loaded = dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) != nullptr;
        const bool open = fcntl(descriptor, F_GETFD) != -1;
        std::fprintf(stderr, "%sloaded, log %s\n", loaded ? "" : "un", open ? "open" : "closed");
    }
}
