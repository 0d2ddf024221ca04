// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/retrytimer.hpp"

#include <algorithm>

namespace qandor {
namespace {

constexpr gint64 usec_per_msec = 1000;

} // namespace

void RetryTimer::start()
{
    if (timer_.is_running())
        return;
    gint64 now = g_get_monotonic_time();
    if (now - started_at_ > 2 * longest_ * usec_per_msec)
        next_ = shortest_;
    started_at_ = now;
    timer_.start(now + next_ * usec_per_msec);
    next_ = std::min(2 * next_, longest_);
}

void RetryTimer::reset()
{
    timer_.stop();
    next_ = shortest_;
}

} // namespace qandor
