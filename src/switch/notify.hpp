// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells the service manager that has started it: that it serves, how much it keeps,
// and that it is alive. Without a service manager nobody is told anything.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-event.h>

#include <functional>
#include <string>

namespace qandor {

// How much the switch keeps.
struct Counts {
    std::size_t producers, declarations, consumers, subscriptions;
    bool operator==(const Counts &) const = default;
};

class Notifier {
public:
    Notifier(sd_event *event, std::function<Counts()> count)
        : event_(event), count_(std::move(count))
    {
    }
    Notifier(const Notifier &) = delete;
    Notifier &operator=(const Notifier &) = delete;

    // The switch serves; also the end of a reload. From the first time on the event loop answers
    // the watchdog and keeps the counts up to date.
    void ready();
    void reloading();
    void stopping();

private:
    static int after_work(sd_event_source *, void *notifier);
    static int end_of_pause(sd_event_source *, uint64_t, void *notifier);

    std::string status() const;
    void watch();
    void start_pause();

    using SourceOwner = Owner<sd_event_source, sd_event_source_disable_unref>;

    sd_event *event_;
    std::function<Counts()> count_;
    Counts told_ = {};
    SourceOwner after_work_;
    SourceOwner pause_; // while it lasts the counts are not told again
};

} // namespace qandor
