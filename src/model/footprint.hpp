// SPDX-License-Identifier: LGPL-2.1-or-later

// What records take in memory, to be charged to those who made them. A part of a record can take
// thirty times its bytes on the wire, so what is counted are the blocks that malloc gives for it.
// Parts that several records share are counted with each.
//
// Key names are not part of it, nor are the records that an index has of a key, whoever uses it:
// both are bounded by the number of key names.
#pragma once

#include <qandor/inspectable.h>

#include <cstddef>

namespace qandor {

// What malloc takes for a block of so many bytes.
std::size_t block_size(std::size_t bytes);

// The record alone, as it stands now.
std::size_t memory_of_record(const inspectable &inspect);

// The record, and what the index of its type (of expressions or of declarations) keeps for it at
// most, whatever else is in there. Property states and events are in none.
std::size_t memory_of(const inspectable &inspect);

} // namespace qandor
