// Whole files into memory.
#include "qel/core/qel_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "qel/core/io.hpp"

namespace {

constexpr char kSource[] = "qel/core/qel_io";
constexpr uint64_t kMaxBytes = SIZE_MAX / 2 - 4;

struct Closer {
    void operator()(FILE* stream) const { fclose(stream); }
};

/// Opens a regular file for reading; null for none, with `result` telling why.
FILE* open_regular(const char* path, qel::FileRead* result) {
    *result = qel::FileRead::kNone;
    // Without waiting: a FIFO would keep the caller until somebody writes to it.
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) return nullptr;
    struct stat status;
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    FILE* stream = regular ? fdopen(descriptor, "rb") : nullptr;
    if (!regular) *result = qel::FileRead::kNotRegular;
    if (!stream) close(descriptor);
    return stream;
}

}  // namespace

qel::FileRead qel::read_file(const char* path, uint64_t most, heap_ptr<char>* bytes, uint64_t* n) {
    FileRead result;
    const std::unique_ptr<FILE, Closer> stream(open_regular(path, &result));
    if (!stream) return result;
    const uint64_t size = qel_io_file_bytes(stream.get());
    if (size == 0) return FileRead::kEmpty;
    if (size > most) return FileRead::kTooLarge;
    bytes->reset(static_cast<char*>(malloc((static_cast<size_t>(size) + 4) & ~size_t{3})));
    if (!*bytes) return FileRead::kNoMemory;
    *n = fread(bytes->get(), 1, static_cast<size_t>(size), stream.get());
    bytes->get()[*n] = '\0';
    if (ferror(stream.get())) return FileRead::kFailed;
    return *n > 0 ? FileRead::kDone : FileRead::kEmpty;
}

uint64_t qel_io_file_bytes(FILE* stream) {
    if (!stream || fileno(stream) < 0 || fseeko(stream, 0, SEEK_END) != 0) return 0;
    const off_t size = ftello(stream);
    rewind(stream);
    return size > 0 ? static_cast<uint64_t>(size) : 0;
}

char* qel_io_read_all(const char* path, uint64_t* out_length) {
    qel::heap_ptr<char> bytes;
    uint64_t n = 0;
    switch (qel::read_file(path, kMaxBytes, &bytes, &n)) {
        case qel::FileRead::kDone: break;
        case qel::FileRead::kEmpty: return nullptr;
        case qel::FileRead::kNone:
            QEL_LOG(QEL_LOG_WARNING, "failed to open file: %s", path);
            return nullptr;
        case qel::FileRead::kNoMemory: QEL_LOG(QEL_LOG_ERROR, "out of memory."); return nullptr;
        default: QEL_LOG(QEL_LOG_WARNING, "failed to read file: %s", path); return nullptr;
    }
    if (out_length) *out_length = n;
    return bytes.release();
}
