// SPDX-License-Identifier: LGPL-2.1-or-later

// A stock bus refuses a connection its 129th unanswered call, and a peer may never answer. So the
// calls for which the switch waits are bounded, and each purpose, each user and each name has a
// share of them.
#pragma once

#include <cstddef>

#include <glib.h>

namespace qandor {

// Subscribe calls that ask for a property's state. Beyond the share of the user who asks and that
// of the user who has declared, producers are asked without a reply: a state arrives all the same.
inline constexpr std::size_t max_askings = 56;
inline constexpr guint max_askings_of_asker = 32;
inline constexpr guint max_askings_of_declarer = 24;
// To one bus name; further ones wait in a queue, unless the name has left a question unanswered.
inline constexpr guint max_askings_of_name = 4;

} // namespace qandor
