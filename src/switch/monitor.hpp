// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells people and tools about itself: how much there is, as properties that say
// when they change, and lists of who there is and what he uses. Who listens to what is for root and
// the switch's own user alone.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-bus.h>

#include <array>

namespace qandor {

class Service;

class Monitor {
public:
    explicit Monitor(Service &service) : service_(service) {}
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    // Serves the interface. A negative errno on failure.
    int serve();

    // Producers, consumers, declarations and subscriptions.
    using Counts = std::array<guint32, 4>;
    Counts counts() const;
    Service &service() const { return service_; }

private:
    static int look_for_change(sd_event_source *, void *monitor);
    static int tell_change(sd_event_source *, uint64_t, void *monitor);

    Service &service_;
    Counts told_ = {};
    EventTimerOwner look_;
    EventTimerOwner timer_; // runs while a change is to be told
};

} // namespace qandor
