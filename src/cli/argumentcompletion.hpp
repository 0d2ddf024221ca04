// SPDX-License-Identifier: LGPL-2.1-or-later

// What arguments and the values of options can become.
#pragma once

#include "cli/command.hpp"
#include "cli/completion.hpp"
#include "cli/givenwords.hpp"

namespace qandor::cli {

Candidates beginning_with(const std::string &begun, const Candidates &all);
Candidates command_names();

// Behind the words that are given already.
Completion complete_argument(Argument argument, const GivenWords &given, const std::string &begun);
// The value of an option, by what the help calls it.
Completion complete_value(const char *what, const GivenWords &given, const std::string &begun);

} // namespace qandor::cli
