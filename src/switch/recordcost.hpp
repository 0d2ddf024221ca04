// SPDX-License-Identifier: LGPL-2.1-or-later

// What a stranger's record may consist of, and what it may take in memory. Both are known from its
// bytes alone: a record is made, and the names of its keys are kept for ever, only when it is
// admitted.
#pragma once

#include "model/checker.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qandor {

// Far beyond what anybody has to say. More parts are there only to cost memory or time: a part
// takes few bytes in a message and many in memory, and each is looked at in every match.
struct RecordBounds {
    guint32 alternatives = 1024;
    guint32 empty_alternatives = 1; // one satisfies everything already
    guint32 key_values = 4096;
    guint32 key_values_of_one_key = 1024;
    guint32 tags = 1024;
    std::size_t key_name_bytes = 255; // as of names on the bus
};
inline constexpr RecordBounds record_bounds;

// Which bound the record passes; nothing when it keeps them all.
std::optional<std::string> bound_passed_by(const RecordShape &shape,
                                           const std::vector<std::string_view> &key_names);

// What a record costs, as far as its bytes tell.
struct RecordCost {
    std::size_t bytes;  // serialized
    std::size_t memory; // of the record and of what an index keeps for it, at most
};

RecordCost cost_of(const RecordShape &shape, std::size_t bytes);

} // namespace qandor
