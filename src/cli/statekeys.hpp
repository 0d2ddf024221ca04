// SPDX-License-Identifier: LGPL-2.1-or-later

// The keys of a property's state, which knows less about them than an event does.
#pragma once

#include "cli/eventjson.hpp"

namespace qandor::cli {

std::vector<KeyView> keys_of(const PropertyState &state);
Json json_of_state(const std::vector<KeyView> &keys);

} // namespace qandor::cli
