// SPDX-License-Identifier: LGPL-2.1-or-later

// The pause before something is tried again. Each pause is twice as long as the one before, up to a
// bound, so that what goes on failing costs little. After a quiet time the first pause is short
// again.
#pragma once

#include "bus/maintimer.hpp"

namespace qandor {

class RetryTimer {
public:
    // The times are in milliseconds. After a pause function(data) is called, on the default main
    // context; it may destroy the timer.
    RetryTimer(guint shortest, guint longest, MainTimer::Function function, gpointer data)
        : shortest_(shortest), longest_(longest), next_(shortest), timer_(function, data)
    {
    }

    // Begins a pause, unless there is one already.
    void start();
    void stop() { timer_.stop(); }
    // Stops it, and begins again with the shortest pause.
    void reset();

private:
    guint shortest_;
    guint longest_;
    guint next_;
    gint64 started_at_ = 0;
    MainTimer timer_;
};

} // namespace qandor
