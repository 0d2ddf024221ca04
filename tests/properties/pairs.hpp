// SPDX-License-Identifier: LGPL-2.1-or-later

// Two records and what there is to ask about them.
#pragma once

#include "properties/subject.hpp"
#include "unit/model/naivemodel.hpp"

namespace qandor::test {

NaiveInspectable naive(const PlainInspectable &content);

// Throws when the library and the naive matcher disagree about the two.
void check_pair(const Subject &one, const Subject &other);

} // namespace qandor::test
