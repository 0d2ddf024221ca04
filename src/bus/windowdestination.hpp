// SPDX-License-Identifier: LGPL-2.1-or-later

// What a call window keeps for a destination and for a call under way.
#pragma once

#include "bus/callwindow.hpp"

namespace qandor {

struct CallWindow::Destination {
    Destination(CallWindow &window, const char *name, bool is_switch) : window(window), name(name)
    {
        standing.is_switch = is_switch;
    }

    bool is_idle() const { return standing.under_way == 0 && queue.empty() && !is_ready; }

    CallWindow &window;
    const std::string name;
    Standing standing;
    CallQueue queue;
    guint plain_calls = 0; // in the queue, that are no events
    bool is_ready = false; // stands among those that wait for a slot
    bool is_resting = false;
    std::list<Destination *>::iterator resting_place{}; // among the idle ones
};

struct CallWindow::PendingCall {
    Destination *destination;
    sd_bus_message_handler_t callback;
    void *userdata;
    guint64 since;
    bool is_event;
    bool is_lost;
    BusSlotOwner slot;
    std::list<PendingCall>::iterator place;
};

} // namespace qandor
