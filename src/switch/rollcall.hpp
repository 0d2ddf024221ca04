// SPDX-License-Identifier: LGPL-2.1-or-later

// Finds the names that have left the bus without the switch being told: dbus-daemon drops its own
// signals while too much waits for the switch. The bus is asked for all names, some time after
// something has arrived.
//
//     signal dropped        much waits still       arrives       all names
//     ------x----------------------------------------|--- 60 s ----|--->
//
// No drop goes unnoticed for ever: whenever the bus drops something, much is on the way to the
// switch and arrives after that. If the answer is dropped as well, more arrives, and so on.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-bus.h>

#include <functional>
#include <string>
#include <vector>

namespace qandor {

class RollCall {
public:
    struct Names {
        std::function<std::vector<std::string>()> known;
        std::function<void(const std::string &name)> forget; // a name that has left
    };

    explicit RollCall(Names names) : names_(std::move(names)) {}
    RollCall(const RollCall &) = delete;
    RollCall &operator=(const RollCall &) = delete;

    // A negative errno on failure.
    int begin(sd_bus *bus);
    // To be called for each message that arrives.
    void note(sd_bus_message *message);

    static constexpr guint64 pause_usec = 60 * G_USEC_PER_SEC;

private:
    static int ask(sd_event_source *, uint64_t, void *roll_call);
    static int receive_names(sd_bus_message *reply, void *roll_call, sd_bus_error *);

    Names names_;
    sd_bus *bus_ = nullptr;
    bool is_due_ = false; // the timer runs
    EventTimerOwner timer_;
    BusSlotOwner asking_;
};

} // namespace qandor
