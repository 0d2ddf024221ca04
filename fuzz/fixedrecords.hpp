// SPDX-License-Identifier: LGPL-2.1-or-later

// Records that are as records should be, against which others are matched and from which seeds are
// made: each has something that the others have not.
#pragma once

#include <qandor/qandor.h>

#include <vector>

namespace qandor::fuzz {

const std::vector<event_declaration *> &fixed_declarations();
const std::vector<event *> &fixed_events();
const std::vector<subscribe_expression *> &fixed_expressions();

} // namespace qandor::fuzz
