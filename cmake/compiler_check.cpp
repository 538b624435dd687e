// What the tree asks of a compiler beyond plain C++17, in a few lines; cmake/compiler.cmake
// compiles it.
#include <bit>
#include <cstdint>
#include <memory>
#include <span>

struct Pair {
    int first, second;
};
constexpr Pair kPair = {.first = 1, .second = 2};
static_assert(std::bit_cast<uint32_t>(1.0f) == 0x3f800000 && std::countl_one(uint8_t{0xc0}) == 2);

#define LAST(first, ...) Pair{first __VA_OPT__(, ) __VA_ARGS__}.second
static_assert(LAST(1) == 0 && LAST(1, 2) == kPair.second);

using Nothing = decltype([](int*) {});
std::unique_ptr<int, Nothing> nobody;

template <class T>
constexpr bool kHasSecond = requires(T t) {
    t.second;
};
static_assert(kHasSecond<Pair> && !kHasSecond<int>);

typedef float Lanes __attribute__((vector_size(16)));
Lanes reversed(std::span<const Lanes> x) {
    return __builtin_shufflevector(x.front(), x.front(), 3, 2, 1, 0);
}
