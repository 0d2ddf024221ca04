// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/windows.hpp"

#include <algorithm>

namespace qandor {
namespace {

guint64 left(guint64 window, guint64 used)
{
    return window - std::min(window, used);
}

} // namespace

Windows::Way Windows::way_for(guint64 bytes, bool is_waited_for, const Unread &name,
                              const Unread &user) const
{
    guint64 after = name.total() + bytes;
    if (after <= own_of_name)
        return Way::Small;
    guint64 left_of_user = std::min(left(of_user, user.small), left(of_all, all_.small) / 2);
    if (after <= std::min(of_name, left_of_user / 4))
        return Way::Small;
    if (name.total() > 0 && !is_waited_for)
        return Way::None;
    // Of what others have left, a user takes one message, or up to a third.
    guint64 left_of_large = left(of_large, all_.large);
    bool fits = user.large == 0 ? bytes <= left_of_large || all_.large == 0
                                : bytes <= left(left_of_large, 2 * user.large) / 3;
    return fits ? Way::Large : Way::None;
}

} // namespace qandor
