// qel-aec: says what is wrong with a configuration, a recording or a result, and shows it.
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "command.hpp"
#include "man.hpp"
#include "qel/api/qel_api_aec.h"
#include "qel/core/qel_debug.h"

namespace {

constexpr int kFailed = 2;

constexpr const char* kFooter =
    "Exit status: 0 all is well, 1 there are warnings, or less reduction than asked for,\n"
    "2 there are errors, or the command could not do its work.";

/// Standard output is for results: the library's log goes to standard error.
void log_to_standard_error() {
    const int copy = dup(STDERR_FILENO);  // the library closes its stream in the end
    FILE* stream = copy < 0 ? nullptr : fdopen(copy, "w");
    if (stream) qel_debug_set_log_fp(stream);
}

int run(int argc, char** argv) {
    CLI::App program(
        "Acoustic echo cancellation, looked into: configurations, recordings, results.", "qel-aec");
    program.set_version_flag(
        "--version", std::string("qel-aec ") + QEL_AEC_VERSION + ", " + qel_api_aec_get_version());
    program.require_subcommand(1);
    program.footer(kFooter);
    const app::Command commands[] = {app::add_check(program), app::add_probe(program),
                                     app::add_run(program),   app::add_report(program),
                                     app::add_sweep(program), app::add_simulate(program)};
    const auto print_man_page = [&program] {
        std::fputs(app::man_page(program).c_str(), stdout);
        throw CLI::Success();
    };
    program.add_flag_callback("--man", print_man_page, "print this help as a manual page");
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? 0 : kFailed;
    }
    for (const app::Command& command : commands) {
        if (command.options->parsed()) return command.run();
    }
    return kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    log_to_standard_error();
    try {
        const int status = run(argc, argv);
        if (std::fflush(stdout) == 0) return status;
        std::perror("qel-aec: standard output");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qel-aec: %s\n", error.what());
    }
    return kFailed;
}
