// The canceller's configuration from the arguments of the sound server.
#pragma once

#include <spa/utils/dict.h>

#include <cstdint>
#include <string>

/// The text of the configuration that the arguments "qel.*" make at a server of `rate` Hz: the file
/// that "qel.config" names, or the defaults of a sound server, and over them every other argument.
/// Throws std::invalid_argument for one that cannot be written down.
std::string configuration_text(const spa_dict* args, uint32_t rate);
