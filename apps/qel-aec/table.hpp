// Tables as text with commas.
#pragma once

#include <string>
#include <vector>

namespace app {

using Row = std::vector<std::string>;

/// The rows of a file, the first of them its head. Throws for what is none.
std::vector<Row> read_csv(const std::string& path);

/// One line, with its newline.
std::string csv_line(const Row& row);

}  // namespace app
