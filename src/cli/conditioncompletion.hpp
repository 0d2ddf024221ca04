// SPDX-License-Identifier: LGPL-2.1-or-later

// What an expression can become that is being written: conditions on what is declared.
#pragma once

#include "cli/completion.hpp"

#include <qandor/qandor.hpp>

namespace qandor::cli {

// Completes the last condition of the text. Conditions that it is joined to by '&' say of which
// declarations keys and values are taken.
Candidates complete_condition(const std::string &text,
                              const std::vector<Declaration> &declarations);

} // namespace qandor::cli
