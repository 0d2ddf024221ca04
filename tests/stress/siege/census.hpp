// SPDX-License-Identifier: LGPL-2.1-or-later

// All that the switch has in its books, as text that can be compared and read.
#pragma once

#include "stress/footprint.hpp"

#include <systemd/sd-bus.h>

#include <string>
#include <vector>

namespace qandor::test {

// The rows that one of the switch's monitoring methods answers with, such as "ListProducers".
// Throws when it does not answer.
std::vector<std::string> list_rows(sd_bus *bus, const char *method);

// Every peer object, subscription and declaration, and what they use of the limits. Names of keys
// are left out, since they are kept for ever.
std::string take_census(sd_bus *bus);

} // namespace qandor::test
