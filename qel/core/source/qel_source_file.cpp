// A byte source that reads a file through a buffer of 4096 bytes.
#include "qel/core/source/qel_source_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "qel/core/internal.hpp"

namespace {

constexpr char kSource[] = "qel/core/source/qel_source_file";
constexpr uint32_t kBufferBytes = 4096;
static_assert(sizeof(off_t) >= sizeof(int64_t), "32-bit processors need _FILE_OFFSET_BITS=64");

qel_source_file_item* item_of(void* data) { return static_cast<qel_source_file_item*>(data); }

int32_t item_get(void* data) {
    qel_source_file_item* item = item_of(data);
    if (item->pos == item->end) {
        if (item->eof) return -1;
        const size_t n = fread(item->buffer, 1, item->buffer_size, item->stream);
        item->pos = item->buffer;
        item->end = item->buffer + n;
        item->eof = n < item->buffer_size;
        if (n == 0) return -1;
    }
    return *item->pos++;
}

void item_unget(void* data, int32_t byte) {
    qel_source_file_item* item = item_of(data);
    if (item->pos > item->buffer) {
        *--item->pos = static_cast<uint8_t>(byte);
    } else {
        // Drops what is still buffered: only one byte of push-back is promised here.
        ungetc(static_cast<uint8_t>(byte), item->stream);
        item->pos = item->end;
    }
}

int32_t item_read(void* data, void* dst, uint32_t* count) {
    qel_source_file_item* item = item_of(data);
    auto* bytes = static_cast<uint8_t*>(dst);
    uint32_t done = 0;
    while (done < *count) {
        const auto buffered = static_cast<uint32_t>(item->end - item->pos);
        const uint32_t n = std::min(*count - done, buffered);
        memcpy(bytes + done, item->pos, n);
        item->pos += n;
        done += n;
        if (done == *count) break;
        const int32_t c = item_get(data);
        if (c == -1) {
            *count = done;
            return -1;
        }
        bytes[done++] = static_cast<uint8_t>(c);
    }
    return 0;
}

int32_t item_seek(qel_source_file_item* item, int64_t offset) {
    const int32_t result = fseeko(item->stream, offset, SEEK_SET);
    if (result != 0) return result;
    item->pos = item->end;
    item->eof = 0;
    return 0;
}

/// Reads `stream`, which stays the caller's on failure.
qel_source_file_item* item_new(FILE* stream) {
    auto item = qel::make_zeroed<qel_source_file_item>();
    auto buffer = qel::make_zeroed<uint8_t>(kBufferBytes);
    if (!item || !buffer) {
        qel_debug_log(QEL_LOG_WARNING, kSource, "_source_file_item_new", __LINE__,
                      "out of memory.");
        return nullptr;
    }
    item->stream = stream;
    item->buffer = item->pos = item->end = buffer.release();
    item->buffer_size = kBufferBytes;
    item->seek = item_seek;
    return item.release();
}

}  // namespace

int32_t qel_source_file_init(qel_source* source, const char* path) {
    if (!source) return -1;
    *source = {};
    FILE* stream = fopen(path, "rb");
    if (!stream) return -1;
    qel_source_file_item* item = item_new(stream);
    if (!item) {
        fclose(stream);
        return -1;
    }
    const int32_t result = qel_source_init(source);
    source->data = item;
    source->get = item_get;
    source->unget = item_unget;
    source->read = item_read;
    if (result != 0) qel_source_file_clean(source);
    return result;
}

int32_t qel_source_file_clean(qel_source* source) {
    if (qel_source_file_item* item = item_of(source->data)) {
        fclose(item->stream);
        free(item->buffer);
        free(item);
        source->data = nullptr;
    }
    return qel_source_clean(source);
}

int32_t qel_source_file_seek(qel_source* source, int64_t offset) {
    qel_source_file_item* item = item_of(source->data);
    return item ? item->seek(item, offset) : -1;
}

int32_t qel_source_file_load(void* /*ignored*/, void* user, qel_source_load_fn load,
                             const char* path) {
    qel_source source;
    int32_t result = qel_source_file_init(&source, path);
    if (result == 0) {
        result = load(user, &source);
        qel_source_file_clean(&source);
    }
    if (result != 0) QEL_LOG(QEL_LOG_WARNING, "load \"%s\" failed.", path);
    return result;
}
