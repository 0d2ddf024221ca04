// SPDX-License-Identifier: LGPL-2.1-or-later

// Expressions of the command line.
#pragma once

#include <qandor/qandor.hpp>

#include <string>
#include <vector>

namespace qandor::cli {

// The expression that a text says; a Failure that shows the place when it says none.
Expression parse_argument(const std::string &text);

// Any of the expressions; everything when there are none.
Expression any_of(const std::vector<std::string> &texts);

} // namespace qandor::cli
