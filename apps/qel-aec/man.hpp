// The program's help as a manual page.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace app {

std::string man_page(const CLI::App& program);

}  // namespace app
