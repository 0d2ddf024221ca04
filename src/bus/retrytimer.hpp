// SPDX-License-Identifier: LGPL-2.1-or-later

// The pause before something is tried again. Each pause is twice as long as the one before, up to a
// bound, so that what goes on failing costs little. After a quiet time the first pause is short
// again.
#pragma once

#include "platform/owners.hpp"

namespace qandor {

class RetryTimer {
public:
    using Function = void (*)(gpointer data);

    RetryTimer(guint shortest_msec, guint longest_msec)
        : shortest_(shortest_msec), longest_(longest_msec), next_(shortest_msec)
    {
    }
    RetryTimer(const RetryTimer &) = delete;
    RetryTimer &operator=(const RetryTimer &) = delete;
    ~RetryTimer() { stop(); }

    // Calls the function once after the pause, on the default main context. It may destroy the
    // timer. Nothing changes while the timer runs already.
    void start(Function function, gpointer data);
    void stop();
    // Stops it, and begins again with the shortest pause.
    void reset();

private:
    static gboolean run(gpointer self);

    guint shortest_;
    guint longest_;
    guint next_;
    gint64 started_at_ = 0;
    MainSourceOwner source_;
    Function function_ = nullptr;
    gpointer data_ = nullptr;
};

} // namespace qandor
