// String operations in any order beside a std::string that does the same.
#include <algorithm>
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "qel/core/qel_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::string model;
    qel_string* s = qel_string_new(nullptr, 0);
    while (input.remaining_bytes() > 0) {
        const auto step = input.ConsumeIntegral<uint8_t>();
        const std::string bytes = input.ConsumeRandomLengthString(40);
        const auto n = static_cast<uint32_t>(bytes.size());
        const char byte = bytes.empty() ? 'x' : bytes[0];
        int64_t integer;
        double real;
        char letter[4];
        switch (step % 14) {
            case 0:
                qel_string_append(s, bytes.data(), n);
                model += bytes;
                break;
            case 1:
                qel_string_assign(s, bytes.data(), n);
                model = bytes;
                break;
            case 2:
                qel_string_append_char(s, byte);
                model += byte;
                break;
            case 3:
                qel_string_append_fmt(s, "%s", bytes.c_str());
                model += bytes.c_str();
                break;
            case 4:
                qel_string_resize(s, n);
                model.resize(std::min<size_t>(n, model.size()));
                break;
            case 5:
                qel_string_concat(s, bytes.c_str());
                model += bytes.c_str();
                break;
            case 6:
                qel_string_remove_ahead(s, n);
                model.erase(0, n);
                break;
            case 7:
                qel_string_reset(s, step & 1);
                model.clear();
                break;
            case 8:
                qel_string_filter_out(s, byte);
                model.assign(s->data ? s->data : "", s->length);
                break;
            case 9:
                require(qel_string_is_start_with(s, bytes.data(), n, 0) ==
                        (n > 0 ? model.starts_with(bytes) : model.starts_with(bytes.c_str())));
                qel_string_is_end_with(s, bytes.data(), n, 1);
                require(qel_string_compare(s, bytes.data(), n, 0) == (model == bytes));
                break;
            case 10:
                qel_string_has_char(s, byte);
                qel_string_strrchr(s, byte);
                break;
            case 11:
                qel_string_is_hex(s);
                qel_string_is_oct(s);
                qel_string_to_integer(s, &integer, step & 0x30, nullptr);
                qel_string_to_double(s, &real, nullptr);
                break;
            case 12: qel_string_get_achar(bytes.c_str(), letter); break;
            default:
                if (model.size() > 1 << 16) break;  // it grows by half each time
                qel_string_append(s, s->data, s->length / 2);
                model += std::string(model, 0, model.size() / 2);
                break;
        }
        require(s->length == model.size() && (s->length < s->capacity || !s->data));
        require(!s->data || memcmp(s->data, model.data(), model.size()) == 0);
    }
    qel_string_delete(s);
    return 0;
}
