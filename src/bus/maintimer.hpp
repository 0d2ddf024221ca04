// SPDX-License-Identifier: LGPL-2.1-or-later

// A timer on the default main context that runs out once.
#pragma once

#include "platform/owners.hpp"

namespace qandor {

class MainTimer {
public:
    using Function = void (*)(gpointer data);

    MainTimer(Function function, gpointer data) : function_(function), data_(data) {}
    MainTimer(const MainTimer &) = delete;
    MainTimer &operator=(const MainTimer &) = delete;
    ~MainTimer() { stop(); }

    // Calls function(data) at that time of g_get_monotonic_time(), unless it runs already. The
    // function may destroy the timer.
    void start(gint64 time);
    void stop();
    bool is_running() const { return source_ != nullptr; }

private:
    static gboolean run(gpointer self);

    Function function_;
    gpointer data_;
    MainSourceOwner source_;
};

} // namespace qandor
