// SPDX-License-Identifier: LGPL-2.1-or-later

// The name that somebody who mistyped one will have meant.
#pragma once

#include <string>
#include <vector>

namespace qandor::cli {

// The nearest of the names, or "" when none is near.
std::string nearest(const std::string &mistyped, const std::vector<std::string> &names);

// "Did you mean 'NAME'?", or "" when none is near.
std::string did_you_mean(const std::string &mistyped, const std::vector<std::string> &names);

} // namespace qandor::cli
