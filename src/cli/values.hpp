// SPDX-License-Identifier: LGPL-2.1-or-later

// Values for events as they are given on the command line: key=value.
#pragma once

#include <qandor/qandor.hpp>

#include <string>
#include <vector>

namespace qandor::cli {

struct GivenValue {
    std::string key;
    std::string value;
};

// A Failure for an argument without '='.
std::vector<GivenValue> parse_values(const std::vector<std::string> &arguments);

// Fills the values in. A Failure for a key that the event does not have or that is fixed, for a
// value that is not of its type, and for keys that stay open.
void fill(Event &event, const std::vector<GivenValue> &values);

} // namespace qandor::cli
