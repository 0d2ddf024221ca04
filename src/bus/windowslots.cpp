// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/windowslots.hpp"

#include <algorithm>
#include <utility>

namespace qandor {

// The calls that one destination may have under way.
guint WindowSlots::share(const Standing &standing) const
{
    if (!standing.seated) {
        bool is_quiet = silent_ == 0 && taken_ + kept_free_ < limits_.quiet;
        return is_quiet ? limits_.newcomer : 1;
    }
    if (silent_ == 0)
        return limits_.destination;
    return std::clamp(free() / 4 + 1, 1U, limits_.destination);
}

bool WindowSlots::may_have_another(const Standing &standing) const
{
    if (standing.is_switch)
        return standing.under_way < limits_.to_switch;
    if (standing.is_stuck())
        return false;
    return standing.under_way == 0 || standing.under_way < share(standing);
}

bool WindowSlots::admits(const Standing &standing) const
{
    if (!may_have_another(standing))
        return false;
    if (standing.is_switch)
        return true;
    if (!standing.seated)
        return taken_ + kept_free_ < limits_.newcomers;
    if (standing.under_way == 0)
        return true;
    return free() > 0 && (silent_ > 0 || taken_ < limits_.window);
}

void WindowSlots::take(Standing &standing, guint64 now)
{
    if (standing.under_way == 0)
        standing.last_sign = now;
    if (!standing.is_switch) {
        if (standing.seated && standing.under_way == 0)
            --kept_free_;
        ++taken_;
    }
    ++standing.under_way;
}

void WindowSlots::give_back(Standing &standing, bool was_lost, Sign sign, guint64 now)
{
    --standing.under_way;
    if (was_lost)
        --standing.lost;
    if (standing.is_switch)
        return;
    --taken_;
    if (standing.silent)
        --silent_;
    if (standing.seated && standing.under_way == 0)
        ++kept_free_;
    if (sign == Sign::OfLife)
        speak(standing, now);
    if (standing.under_way > 0)
        return;
    standing.silent = false;
    if (sign == Sign::OfLeaving)
        unseat(standing);
}

void WindowSlots::speak(Standing &standing, guint64 now)
{
    standing.last_sign = now;
    if (standing.silent) {
        standing.silent = false;
        silent_ -= standing.under_way;
    }
    if (standing.seated)
        return;
    standing.seated = true;
    standing.seat_number = ++last_seat_;
    if (standing.under_way == 0)
        ++kept_free_;
}

bool WindowSlots::is_overdue(const Standing &standing, guint64 now) const
{
    return silence_begins(standing) <= now;
}

guint64 WindowSlots::silence_begins(const Standing &standing) const
{
    if (standing.is_switch || standing.silent || standing.under_way == 0)
        return G_MAXUINT64;
    return standing.last_sign + limits_.silence;
}

void WindowSlots::fall_silent(Standing &standing)
{
    standing.silent = true;
    silent_ += standing.under_way;
}

void WindowSlots::unseat(Standing &standing)
{
    if (std::exchange(standing.seated, false))
        --kept_free_;
}

} // namespace qandor
