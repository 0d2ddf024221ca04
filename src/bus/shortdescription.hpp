// SPDX-License-Identifier: LGPL-2.1-or-later

// What a declaration or an expression says, in a few words for a log line.
#pragma once

#include "model/inspectable.hpp"

#include <string>

namespace qandor {

// The topics first, then the other keys: "topic0=Device topic1=Door state"; alternatives are parted
// by "|". Long ones are cut.
std::string short_description(const inspectable &content);

} // namespace qandor
