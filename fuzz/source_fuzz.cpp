// Readers in any order on a file of any bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/core/source/qel_source_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("input", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    FuzzedDataProvider input(data, size);
    const std::string steps = input.ConsumeRandomLengthString(64);
    const bool several_buffers = input.ConsumeBool();
    std::string content = input.ConsumeRemainingBytesAsString();
    while (several_buffers && !content.empty() && content.size() < 9000) content += content;
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, content.data(), content.size(), 0) ==
            static_cast<ssize_t>(content.size()));

    qel_source source;
    require(qel_source_file_init(&source, path.c_str()) == 0);
    qel_string* string = qel_string_new(nullptr, 0);
    std::vector<char> bytes(5000);  // exact sizes on the heap, for the sanitizer to watch
    for (const char step : steps) {
        const uint32_t binary = step >> 7 & 1;
        auto n = static_cast<uint32_t>(step & 0x70) * 40;
        int32_t count = static_cast<int32_t>(n), end;
        uint32_t lines;
        std::vector<double> values(n / 8);
        switch (step & 15) {
            case 0: qel_source_peek(&source); break;
            case 1: qel_source_skip_space(&source); break;
            case 2: qel_source_count_lines(&source, &lines); break;
            case 3: qel_source_read_string(&source, string, nullptr); break;
            case 4: qel_source_read_line(&source, string, &end); break;
            case 5: qel_source_read_char(&source, bytes.data(), &count); break;
            case 6: qel_source_read_utf8_char(&source, string); break;
            case 7: qel_source_fill(&source, bytes.data(), &n); break;
            case 8:
                qel_source_read_int(&source, reinterpret_cast<int32_t*>(values.data()), n / 4,
                                    binary);
                break;
            case 9:
                qel_source_read_short(&source, reinterpret_cast<int16_t*>(values.data()), n / 2,
                                      binary);
                break;
            case 10:
                qel_source_read_float(&source, reinterpret_cast<float*>(values.data()), n / 4,
                                      binary);
                break;
            case 11: qel_source_read_double(&source, values.data(), n / 8, binary); break;
            case 12: qel_source_file_seek(&source, n); break;
            case 13: source.unget(source.data, step); break;
            case 14: source.read = nullptr; break;
            default: qel_string_reset(string, 1); break;
        }
        require(string->length <= 70 * content.size() + 70);
    }
    qel_string_delete(string);
    qel_source_file_clean(&source);
    return 0;
}
