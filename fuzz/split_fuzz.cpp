// A text split at a delimiter: no token holds it unless the text has quotes.
#include "fuzz/fuzz.hpp"
#include "qel/core/array/qel_array_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string delim = input.ConsumeRandomLengthString(3).c_str();
    const std::string text = input.ConsumeRemainingBytesAsString().c_str();
    qel_array* tokens = qel_array_string_new(1);
    require(qel_array_string_split(tokens, text.c_str(), delim.c_str()) == 0);
    const bool quoted = (text + delim).find_first_of("'\"") != std::string::npos;
    for (uint32_t i = 0; i < tokens->count; ++i) {
        const auto* token = static_cast<const qel_string*>(qel_array_peek(tokens, i));
        const std::string bytes(token->data ? token->data : "", token->length);
        require(quoted || delim.empty() || bytes.find(delim) == std::string::npos);
    }
    qel_array_string_print(tokens);
    qel_array_delete(tokens);
    return 0;
}
