// The nearest of known names to one that is not known.
#include "qel/api/nearest.hpp"

#include <algorithm>
#include <cstddef>

namespace {

constexpr size_t kMaxName = 31;
constexpr int kFar = 99;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

int qel::edit_distance(std::string_view a, std::string_view b) {
    if (a.size() > kMaxName || b.size() > kMaxName) return kFar;
    int d[kMaxName + 1][kMaxName + 1];
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t k = 0; k <= b.size(); ++k) {
            if (i == 0 || k == 0) {
                d[i][k] = static_cast<int>(i + k);
                continue;
            }
            const auto same = [&](size_t x, size_t y) { return lower(a[x]) == lower(b[y]); };
            d[i][k] = std::min(
                {d[i - 1][k] + 1, d[i][k - 1] + 1, d[i - 1][k - 1] + (same(i - 1, k - 1) ? 0 : 1)});
            if (i > 1 && k > 1 && same(i - 1, k - 2) && same(i - 2, k - 1)) {
                d[i][k] = std::min(d[i][k], d[i - 2][k - 2] + 1);
            }
        }
    }
    return d[a.size()][b.size()];
}
