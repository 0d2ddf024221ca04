// SPDX-License-Identifier: LGPL-2.1-or-later

// How much the switch keeps, and that it has changed: counts change with every call, and whoever is
// told of it hears so once in a while.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-event.h>

#include <functional>

namespace qandor {

struct Counts {
    std::size_t producers, declarations, consumers, subscriptions;
    bool operator==(const Counts &) const = default;
};

class CountWatch {
public:
    using Count = std::function<Counts()>;
    using Tell = std::function<void()>;

    // Tells at most once in a pause, with what has come of a burst.
    CountWatch(Count count, guint64 pause_usec, Tell tell)
        : count_(std::move(count)), pause_usec_(pause_usec), tell_(std::move(tell))
    {
    }
    CountWatch(const CountWatch &) = delete;
    CountWatch &operator=(const CountWatch &) = delete;

    // What there is now is known, also when it has begun before. A negative errno on failure.
    int begin(sd_event *event);
    bool has_begun() const { return after_work_ != nullptr; }

private:
    static int after_work(sd_event_source *, void *watch);
    static int end_of_pause(sd_event_source *, uint64_t, void *watch);

    Count count_;
    guint64 pause_usec_;
    Tell tell_;
    Counts told_ = {};
    EventTimerOwner after_work_;
    EventTimerOwner pause_; // runs while a change is to be told
};

} // namespace qandor
