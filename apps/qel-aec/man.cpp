#include "man.hpp"

namespace app {

namespace {

/// Text that no formatter takes for anything else.
std::string plain(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else if ((c == '.' || c == '\'') && (result.empty() || result.back() == '\n')) {
            result += std::string("\\&") + c;
        } else {
            result += c;
        }
    }
    return result;
}

/// The options of a command, in the words of its help.
std::string options_of(const CLI::App& app) {
    const CLI::Formatter formatter;
    std::string page;
    for (const CLI::Option* option : app.get_options()) {
        const bool positional = option->get_positional();
        page += ".TP\n\\fB" + plain(formatter.make_option_name(option, positional)) + "\\fR" +
                plain(formatter.make_option_opts(option)) + "\n" +
                plain(formatter.make_option_desc(option)) + "\n";
    }
    return page;
}

}  // namespace

std::string man_page(const CLI::App& program) {
    const std::string name = program.get_name();
    std::string page = ".TH QEL\\-AEC 1 \"\" \"" + plain(name) + " " + QEL_AEC_VERSION + "\"\n";
    page += ".SH NAME\n" + plain(name) + " \\- " + plain(program.get_description()) + "\n";
    page += ".SH SYNOPSIS\n.B " + plain(name) + "\nCOMMAND [OPTIONS]\n";
    page += ".SH OPTIONS\n" + options_of(program) + ".SH COMMANDS\n";
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
        page += ".SS " + plain(command->get_name()) + "\n" + plain(command->get_description()) +
                "\n" + options_of(*command);
    }
    return page + ".SH NOTES\n" + plain(program.get_footer()) + "\n";
}

}  // namespace app
