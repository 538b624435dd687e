// What stops a command: told in one line, with the status 2.
#pragma once

#include <stdexcept>

namespace app {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace app
