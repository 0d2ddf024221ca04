// SPDX-License-Identifier: LGPL-2.1-or-later

// What plain records look like when they are printed, and in the plain view for callers.
#pragma once

#include "unit/model/plainrecords.hpp"

#include "properties/trace.hpp"

namespace qandor::test {

using Lines = std::vector<std::string>;

std::string printed(const PlainKeyValue &record);
Lines printed(const PlainInspectable &record);
Lines printed(const PlainEvent &record);
Lines printed(const PlainDeclaration &record);
Lines printed(const PlainExpression &record);
Lines printed(const PlainState &record);
Lines printed(const PlainNotification &record);

struct PlainRaw {
    MaybeText key;
    MaybeText value;
    MaybeText name_space;
    MaybeText complex_type_name;
    int negated = 0;
    std::vector<std::string> tags;

    bool operator==(const PlainRaw &) const = default;
};

PlainRaw raw(const PlainKeyValue &record);
// And-lists in reverse order; in each, the last bucket first and its key-values in reverse order.
std::vector<std::vector<PlainRaw>> raw(const PlainInspectable &record);

} // namespace qandor::test
