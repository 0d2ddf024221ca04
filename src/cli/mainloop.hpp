// SPDX-License-Identifier: LGPL-2.1-or-later

// The main loop of a command that waits for things, which ends when it is interrupted.
#pragma once

#include "cli/failure.hpp"

#include <glib.h>

#include <functional>
#include <list>
#include <optional>

namespace qandor::cli {

class MainLoop {
public:
    MainLoop();
    MainLoop(const MainLoop &) = delete;
    MainLoop &operator=(const MainLoop &) = delete;
    ~MainLoop();

    // Runs until quit() or fail() is called or the process is interrupted; at most so many seconds,
    // if that is said. Whether it was quit. Throws what it failed with.
    bool run(std::optional<double> seconds = std::nullopt);
    void quit();
    void fail(Failure failure);
    // Once, after so many seconds, but not during a farewell. May not throw.
    void after(double seconds, std::function<void()> function);

    bool is_interrupted() const { return interrupted_; }

    // Lets go of a producer or a consumer and waits until it has said farewell.
    template <class Handle> void finish(Handle &handle)
    {
        forget_timers();
        handle->when_gone([this] { quit(); });
        handle.reset();
        run(farewell_seconds);
    }

private:
    static constexpr double farewell_seconds = 5;
    struct Timer {
        MainLoop &loop;
        std::function<void()> function;
        guint source;
    };

    static gboolean interrupt(gpointer loop);
    static gboolean elapse(gpointer timer);
    void forget_timers();

    GMainLoop *loop_;
    guint signals_[2];
    bool interrupted_ = false;
    bool quit_ = false;
    std::optional<Failure> failure_;
    std::list<Timer> timers_;
};

} // namespace qandor::cli
