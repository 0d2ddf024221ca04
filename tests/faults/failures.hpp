// SPDX-License-Identifier: LGPL-2.1-or-later

// Which functions the sweep lets fail, and how.
#pragma once

#include "seam.hpp"

#include <optional>
#include <string>
#include <vector>

namespace qandor::faults {

struct Failures {
    const char *function;
    std::vector<int> failures;
};
const std::vector<Failures> &all_failures();

// "sendmsg:EINTR:17", as faults are named on the command line.
std::string name_of(const Fault &fault);
std::optional<Fault> parse_fault(const std::string &name);

} // namespace qandor::faults
