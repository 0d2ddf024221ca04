// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/retrytimer.hpp"

#include <algorithm>

namespace qandor {

void RetryTimer::start(Function function, gpointer data)
{
    if (source_)
        return;
    gint64 now = g_get_monotonic_time();
    if (now - started_at_ > gint64(2) * longest_ * 1000)
        next_ = shortest_;
    started_at_ = now;
    function_ = function;
    data_ = data;
    source_.reset(g_timeout_source_new(next_));
    g_source_set_callback(source_.get(), run, this, nullptr);
    g_source_attach(source_.get(), nullptr);
    next_ = std::min(2 * next_, longest_);
}

gboolean RetryTimer::run(gpointer self)
{
    auto &timer = *static_cast<RetryTimer *>(self);
    timer.source_.reset();
    timer.function_(timer.data_);
    return G_SOURCE_REMOVE;
}

void RetryTimer::stop()
{
    if (!source_)
        return;
    g_source_destroy(source_.get());
    source_.reset();
}

void RetryTimer::reset()
{
    stop();
    next_ = shortest_;
}

} // namespace qandor
