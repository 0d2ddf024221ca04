// SPDX-License-Identifier: LGPL-2.1-or-later

// How commands look on at events: from the states that are there at the start on, clandestinely
// where nothing else is asked for, until enough has come, the time is over or they are interrupted.
#pragma once

#include "cli/mainloop.hpp"
#include "cli/options.hpp"
#include "cli/switchwatch.hpp"

#include <qandor/qandor.hpp>

#include <chrono>
#include <memory>

namespace qandor::cli {

struct WatchOptions {
    void add_to(Options &options);

    std::optional<guint64> count;
    std::optional<double> timeout;
    bool secure = false;      // the function is told who sent
    bool since_start = false; // without the states that are there at the start
    bool visible = false;
};

class EventWatch {
public:
    // Connects to a switch; a Failure when there is none.
    EventWatch(MainLoop &loop, const char *name, const WatchOptions &options);
    EventWatch(const EventWatch &) = delete;
    EventWatch &operator=(const EventWatch &) = delete;
    ~EventWatch() = default;

    void subscribe(const Expression &expression, SecureEventFunction event,
                   const NotificationFunction &notification = {});

    // Looks on to the end, with the exit code.
    int run();
    // Ends it: says farewell, and whether all has come that was wanted.
    int end();

private:
    void receive(const Event &event, std::optional<guint32> uid);

    MainLoop &loop_;
    WatchOptions options_;
    std::chrono::system_clock::time_point start_ = std::chrono::system_clock::now();
    guint64 seen_ = 0;
    SecureEventFunction function_;
    SwitchWatch switch_;
    std::unique_ptr<EventConsumer> consumer_;
    std::optional<Subscription> subscription_;
};

} // namespace qandor::cli
