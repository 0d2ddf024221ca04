// SPDX-License-Identifier: LGPL-2.1-or-later

// Calls wait for their turn. A user's calls are handled one after another, each when all that the
// one before has made the switch send has gone out. So whoever makes the switch say much waits for
// that himself, and the others do not.
#pragma once

#include "platform/owners.hpp"
#include "switch/accounts.hpp"
#include "switch/outbox.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <deque>
#include <map>
#include <string>

namespace qandor {

class Turns {
public:
    Turns(Outbox &outbox, Accounts &accounts) : outbox_(outbox), accounts_(accounts) {}
    Turns(const Turns &) = delete;
    Turns &operator=(const Turns &) = delete;

    // From now on the event loop sees to what waits. A negative errno on failure.
    int begin(sd_event *event);

    // Handles a call now, or later; refuses it when too many of the user's calls wait.
    int take(sd_bus_message *call, guint32 uid, sd_bus_message_handler_t handle, void *userdata);
    // Nobody waits for what the name has called any more.
    void forget_peer(const std::string &name);

private:
    struct Waiting {
        BusMessageOwner call;
        sd_bus_message_handler_t handle;
        void *userdata;
        Charge charge;
    };

    static int after_work(sd_event_source *, void *turns);

    int handle(sd_bus_message *call, guint32 uid, sd_bus_message_handler_t handle, void *userdata);
    bool handle_next();

    Outbox &outbox_;
    Accounts &accounts_;
    std::map<guint32, std::deque<Waiting>> waiting_; // by user id
    guint32 last_uid_ = 0;                           // whose turn it was
    EventTimerOwner after_work_;
    EventTimerOwner again_; // wakes the event loop when there is more to do
};

} // namespace qandor
