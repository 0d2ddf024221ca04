// SPDX-License-Identifier: LGPL-2.1-or-later

// A stock bus refuses a connection its 129th unanswered call, and a peer may stay silent for ever:
// the bus counts the call until the peer leaves. So the calls for which the switch waits are
// bounded, and each purpose, each user and each name has a share of them. Calls to the bus itself
// do not count there.
#pragma once

#include <glib.h>

#include <cstddef>
#include <unordered_map>

namespace qandor {

// Subscribe calls that ask for a property's state. Beyond the share of the user who asks and that
// of the user who has declared, producers are asked without a reply: a state arrives all the same.
inline constexpr std::size_t max_askings = 56;
inline constexpr guint max_askings_of_asker = 32;
inline constexpr guint max_askings_of_declarer = 24;
// To one bus name; further ones wait in a queue, unless the name has left a question unanswered.
inline constexpr guint max_askings_of_name = 4;

// Acknowledgements: Ping calls, which a peer answers when it has read what stands before them.
inline constexpr std::size_t acknowledgement_calls = 60;

inline constexpr std::size_t stock_bus_calls = 128;
static_assert(max_askings + acknowledgement_calls < stock_bus_calls);

// The askings that are under way.
class Askings {
public:
    bool has_room(guint32 asker, guint32 declarer) const
    {
        return count_ < max_askings && of(by_asker_, asker) < max_askings_of_asker &&
               of(by_declarer_, declarer) < max_askings_of_declarer;
    }
    void begin(guint32 asker, guint32 declarer)
    {
        ++count_;
        ++by_asker_[asker];
        ++by_declarer_[declarer];
    }
    void end(guint32 asker, guint32 declarer)
    {
        --count_;
        give_back(by_asker_, asker);
        give_back(by_declarer_, declarer);
    }

private:
    using Counts = std::unordered_map<guint32, guint>; // by user id

    static guint of(const Counts &counts, guint32 uid)
    {
        auto found = counts.find(uid);
        return found == counts.end() ? 0 : found->second;
    }
    static void give_back(Counts &counts, guint32 uid)
    {
        if (--counts.at(uid) == 0)
            counts.erase(uid);
    }

    std::size_t count_ = 0;
    Counts by_asker_, by_declarer_;
};

} // namespace qandor
