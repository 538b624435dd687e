// Any text as a configuration: the review ends, points into the text, and refuses all that the
// parser refuses.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "fuzz/fuzz.hpp"
#include "qel/api/qel_api_review.h"
#include "qel/core/config/qel_config_ryl.h"

namespace {

struct Seen {
    int32_t lines;  // of the text
    int32_t findings = 0, errors = 0;
};

void check(void* user, const qel_api_finding* finding) {
    auto* seen = static_cast<Seen*>(user);
    ++seen->findings;
    seen->errors += finding->level == QEL_LOG_ERROR;
    require(finding->line >= 0 && finding->line <= seen->lines && finding->column >= 0);
    require(*finding->code != '\0' && *finding->text != '\0' && finding->file);
    require(strlen(finding->key) < 1u << 20 && strlen(finding->written) < 1u << 20);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("configuration", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    FuzzedDataProvider input(data, size);
    const auto frame_len = input.ConsumeIntegral<int16_t>();
    const std::string text = input.ConsumeRemainingBytesAsString();
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));

    Seen seen{static_cast<int32_t>(std::count(text.begin(), text.end(), '\n')) + 1};
    const int32_t result = qel_api_aec_review(path.c_str(), frame_len, check, &seen);
    require(result == (seen.errors > 0 ? -1 : seen.findings));
    const std::unique_ptr<qel_config_ryl, decltype(&qel_config_ryl_delete)> parser(
        qel_config_ryl_new_fn(path.c_str()), qel_config_ryl_delete);
    require(parser || result == -1);
    return 0;
}
