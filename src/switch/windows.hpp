// SPDX-License-Identifier: LGPL-2.1-or-later

// How many bytes may be on the way to peers who have not shown yet that they have read them.
//
//     stock bus: 127 MiB of one sender, then it reads nothing more from it, for ever
//     |- large 60 -----------------------------|- all 16 ---|- names 16 -|   the rest is spare
//
// A message goes out when it is inside the window of its name, and inside what its user and all
// users have left. A part of what is left, not all of it, may be taken: so there is always
// something left for those who come later, however many read nothing. Each name has a little of its
// own that nobody else can take. A large message, such as a list of all declarations, goes out when
// the name has read all before it.
//
// Who waits for an answer may show nothing until it has come, because a synchronous call handles
// nothing else. So what is waited for goes out beyond the window of its name, as large messages do.
#pragma once

#include <glib.h>

namespace qandor {

// Unread bytes, of one name, one user or all.
struct Unread {
    guint64 small = 0;
    guint64 large = 0;
    guint64 total() const { return small + large; }
    void operator+=(const Unread &more)
    {
        small += more.small;
        large += more.large;
    }
    void operator-=(const Unread &less)
    {
        small -= less.small;
        large -= less.large;
    }
};

class Windows {
public:
    static constexpr guint64 of_name = 256 << 10;
    static constexpr guint64 of_user = 4 << 20;
    static constexpr guint64 of_all = 16 << 20;
    static constexpr guint64 of_large = 60 << 20;
    // A stock bus has 2,048 connections.
    static constexpr guint64 own_of_name = 8 << 10;

    enum class Way { None, Small, Large };

    // Which way so many bytes may go to a name, of which, and of whose user, so much is unread.
    Way way_for(guint64 bytes, bool is_waited_for, const Unread &name, const Unread &user) const;

    void add(const Unread &more) { all_ += more; }
    void remove(const Unread &less) { all_ -= less; }
    const Unread &all() const { return all_; }

private:
    Unread all_;
};

} // namespace qandor
