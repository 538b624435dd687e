// The commands of the program, a file each.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace app {

/// A command's own options, and what runs it and gives the program's exit status.
struct Command {
    CLI::App* options;
    std::function<int()> run;
};

Command add_check(CLI::App& program);
Command add_probe(CLI::App& program);
Command add_report(CLI::App& program);
Command add_run(CLI::App& program);
Command add_simulate(CLI::App& program);
Command add_sweep(CLI::App& program);

}  // namespace app
