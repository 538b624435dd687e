// This program, run once more: a command's result for another command, apart from its process.
#pragma once

#include <string>
#include <vector>

namespace app {

struct Done {
    int status = 0;  // as a shell has it
    std::string out, error;
};

/// The file of this program.
std::string own_path();

/// Runs this program with the given words and waits for it.
Done call_own(const std::vector<std::string>& words);

}  // namespace app
