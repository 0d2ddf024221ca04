// SPDX-License-Identifier: LGPL-2.1-or-later

// The configuration file of event-switch: a key file with the folders of types, the limits of all
// users, and those of single users.
#pragma once

#include "switch/limits.hpp"
#include "switch/options.hpp"

#include <string>
#include <variant>

namespace qandor {

struct Configuration {
    std::string types_read_only = "//usr/share/event/declarations.d";
    std::string types_writable = "//etc/event_switch/declarations.d";
    UserLimits limits;
};

// What is wrong with a file, as "FILE:LINE: what is wrong and what is expected".
struct ConfigurationFault {
    std::string text;
};

// The configuration that the file says; what it leaves out is as it is by default.
std::variant<Configuration, ConfigurationFault> read_configuration(const std::string &path);

// The configuration for a command line: its file, or the usual one where there is one, and on top
// of it the folders that the command line names.
std::variant<Configuration, ConfigurationFault> find_configuration(const Options &options);

} // namespace qandor
