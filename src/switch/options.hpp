// SPDX-License-Identifier: LGPL-2.1-or-later

// The command line of event-switch.
#pragma once

#include "switch/log.hpp"

#include <optional>
#include <string>

namespace qandor {

struct Options {
    std::optional<std::string> configuration; // the file, where it is not the usual one
    std::optional<std::string> types_read_only;
    std::optional<std::string> types_writable;
    LogLevel log_level = LogLevel::Info;
};

// Fills options in, or says on standard error what is wrong and returns false. --help and --version
// print what they promise and end the process.
bool parse_options(int count, char **arguments, Options &options);

} // namespace qandor
