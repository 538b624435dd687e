// Whole files into memory.
#include "qel/core/qel_io.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/qel_io";

// Some file systems report the largest offset as the size of a directory.
constexpr uint64_t kMaxBytes = SIZE_MAX / 2 - 4;

struct Closer {
    void operator()(FILE* stream) const { fclose(stream); }
};

}  // namespace

uint64_t qel_io_file_bytes(FILE* stream) {
    if (!stream || fileno(stream) < 0 || fseeko(stream, 0, SEEK_END) != 0) return 0;
    const off_t size = ftello(stream);
    rewind(stream);
    return size > 0 ? static_cast<uint64_t>(size) : 0;
}

char* qel_io_read_all(const char* path, uint64_t* out_length) {
    const std::unique_ptr<FILE, Closer> stream(fopen(path, "rb"));
    if (!stream) {
        QEL_LOG(QEL_LOG_WARNING, "failed to open file: %s", path);
        return nullptr;
    }
    const uint64_t size = qel_io_file_bytes(stream.get());
    if (size == 0) return nullptr;
    if (size > kMaxBytes) {
        QEL_LOG(QEL_LOG_WARNING, "failed to read file: %s", path);
        return nullptr;
    }
    qel::heap_ptr<char> bytes(static_cast<char*>(malloc((static_cast<size_t>(size) + 4) & ~3)));
    if (!bytes) {
        QEL_LOG(QEL_LOG_ERROR, "out of memory.");
        return nullptr;
    }
    const size_t n = fread(bytes.get(), 1, static_cast<size_t>(size), stream.get());
    if (ferror(stream.get())) {
        QEL_LOG(QEL_LOG_WARNING, "failed to read file: %s", path);
        return nullptr;
    }
    bytes.get()[n] = '\0';
    if (out_length) *out_length = n;
    return bytes.release();
}
