// The commands of the program, a file each.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace app {

/// A command's own options, and what runs it and gives the program's exit status.
struct Command {
    CLI::App* options;
    std::function<int()> run;
};

// Options that several commands have.

/// RECORDING: a microphone and its reference, as read_pair() reads them.
void add_pair(CLI::App* app, std::vector<std::string>* paths);
void add_configuration(CLI::App* app, std::string* path);  // -c, which must be given
void add_folder(CLI::App* app, std::string* path);         // -o, which must be given
void add_json(CLI::App* app, bool* json);
void add_resample(CLI::App* app, bool* resample);

Command add_check(CLI::App& program);
Command add_probe(CLI::App& program);
Command add_report(CLI::App& program);
Command add_run(CLI::App& program);
Command add_simulate(CLI::App& program);
Command add_sweep(CLI::App& program);

}  // namespace app
