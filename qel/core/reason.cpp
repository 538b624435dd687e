// Why the last call failed: a ring of texts, so that one can be read while others are written.
#include "qel/core/reason.hpp"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace {

constexpr uint32_t kTexts = 16;
constexpr size_t kTextBytes = 512;

std::array<std::array<char, kTextBytes>, kTexts> texts;
std::atomic<uint32_t> writes = 0;
std::atomic<const char*> last = "";

}  // namespace

void qel::set_reason(const char* format, ...) {
    auto& text = texts[writes.fetch_add(1, std::memory_order_relaxed) % kTexts];
    va_list args;
    va_start(args, format);
    vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    last.store(text.data(), std::memory_order_release);
}

const char* qel::last_reason() { return last.load(std::memory_order_acquire); }
