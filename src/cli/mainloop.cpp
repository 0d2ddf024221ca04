// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/mainloop.hpp"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <utility>

namespace qandor::cli {

MainLoop::MainLoop()
    : loop_(g_main_loop_new(nullptr, FALSE)), signals_{g_unix_signal_add(SIGINT, interrupt, this),
                                                       g_unix_signal_add(SIGTERM, interrupt, this)}
{
}

MainLoop::~MainLoop()
{
    forget_timers();
    for (guint signal : signals_)
        g_source_remove(signal);
    g_main_loop_unref(loop_);
}

// Who interrupts twice does not want to wait for the farewell either.
gboolean MainLoop::interrupt(gpointer data)
{
    auto *loop = static_cast<MainLoop *>(data);
    if (std::exchange(loop->interrupted_, true))
        std::_Exit(128 + SIGINT);
    g_main_loop_quit(loop->loop_);
    return G_SOURCE_CONTINUE;
}

bool MainLoop::run(std::optional<double> seconds)
{
    guint limit = 0;
    if (seconds)
        limit = g_timeout_add(
            static_cast<guint>(*seconds * 1000),
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop *>(loop));
                return G_SOURCE_CONTINUE;
            },
            loop_);
    if (!quit_ && !failure_)
        g_main_loop_run(loop_);
    if (limit > 0)
        g_source_remove(limit);
    if (failure_)
        throw *std::exchange(failure_, std::nullopt);
    return std::exchange(quit_, false);
}

void MainLoop::quit()
{
    quit_ = true;
    g_main_loop_quit(loop_);
}

void MainLoop::fail(Failure failure)
{
    failure_ = std::move(failure);
    g_main_loop_quit(loop_);
}

void MainLoop::after(double seconds, std::function<void()> function)
{
    Timer &timer = timers_.emplace_back(Timer{*this, std::move(function), 0});
    timer.source = g_timeout_add(static_cast<guint>(seconds * 1000), elapse, &timer);
}

void MainLoop::forget_timers()
{
    for (const Timer &timer : timers_)
        g_source_remove(timer.source);
    timers_.clear();
}

gboolean MainLoop::elapse(gpointer data)
{
    auto *timer = static_cast<Timer *>(data);
    std::function<void()> function = std::move(timer->function);
    timer->loop.timers_.remove_if([timer](const Timer &one) { return &one == timer; });
    function();
    return G_SOURCE_REMOVE;
}

} // namespace qandor::cli
