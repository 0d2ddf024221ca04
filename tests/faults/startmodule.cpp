// SPDX-License-Identifier: LGPL-2.1-or-later

// Loaded before a program, it lets one of its calls fail, which QANDOR_FAULT names.

#include "failures.hpp"

#include <cstdlib>

namespace {

[[gnu::constructor]] void arm_from_environment()
{
    const char *name = std::getenv("QANDOR_FAULT");
    if (std::optional<qandor::faults::Fault> fault = qandor::faults::parse_fault(name ? name : ""))
        qandor::faults::arm(*fault);
}

} // namespace
