// SPDX-License-Identifier: LGPL-2.1-or-later

// What peers have been told while announcements are under way.
//
// A declaration d and a subscription s that match are a pair. Of the two the one whose announcing
// begins later announces the pair: it walks over the other side, by id, and its cursor says how far
// it is.
//
//     subscriptions by id      1    2    3    4    5    6
//     announcing d            told told told  |cursor
//
// - A pair is told when the later of the two has its cursor behind the other's id, or is not
//   announcing any more.
// - A record whose announcing has not begun is later than every other. So announcements that come
//   across it leave the pair to it.
// - A removal tells exactly those that had been told when the record went. Others' cursors move on
//   meanwhile and pass over what has gone, so the removal keeps the cursors of that moment.
#pragma once

#include <glib.h>

#include <map>

namespace qandor {

// The order in which announcements begin, from 1 up.
using Begin = guint64;
inline constexpr Begin not_begun = G_MAXUINT64;

// How far announcing is at one moment. The cursors are of the announcements under way, by the
// record's id: what has a smaller id is told. There are few, because a user's calls are handled one
// after another.
struct Cursors {
    Begin last = 0; // that has begun
    std::map<guint32, guint64> of_declarations;
    std::map<guint32, guint64> of_subscriptions;
};

struct Party {
    guint32 id;
    Begin begin;
};

inline bool was_told(const Party &declaration, const Party &subscription, const Cursors &cursors)
{
    bool is_declaration_later = declaration.begin > subscription.begin;
    const Party &later = is_declaration_later ? declaration : subscription;
    const Party &earlier = is_declaration_later ? subscription : declaration;
    if (later.begin > cursors.last)
        return false;
    const auto &of_later =
        is_declaration_later ? cursors.of_declarations : cursors.of_subscriptions;
    auto cursor = of_later.find(later.id);
    return cursor == of_later.end() || earlier.id < cursor->second;
}

} // namespace qandor
