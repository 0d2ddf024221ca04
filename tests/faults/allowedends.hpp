// SPDX-License-Identifier: LGPL-2.1-or-later

// The assertions that a fault may end a process with, each with its reason.
#pragma once

#include "seam.hpp"

#include <string>

namespace qandor::faults {

// Whether a process may have ended with what its log says.
bool may_end(const std::string &log);
// Whether the day need not end well after the fault, as long as nothing crashes.
bool may_break(const Fault &fault);

} // namespace qandor::faults
