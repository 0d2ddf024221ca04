// SPDX-License-Identifier: LGPL-2.1-or-later

// A call that waits for its turn, and which of them may be dropped.
#pragma once

#include "bus/eventcall.hpp"
#include "platform/dropqueue.hpp"
#include "platform/owners.hpp"

#include <variant>

namespace qandor {

// Runs in the place of a call's callback when the call could not be sent: with a negative errno, on
// the connection's thread, possibly before the function that was to send it returns. A call without
// one is told by a warning.
using not_sent_handler = void (*)(void *userdata, int error);

struct QueuedCall {
    std::variant<BusMessageOwner, EventCall> content;
    sd_bus_message_handler_t callback;
    void *userdata;
    std::size_t size; // bytes that it takes, about, without those of an event
    not_sent_handler not_sent = nullptr;
    guint64 queued_at = 0;
    BacklogPart charge = {};

    // The event that it delivers, if it does.
    const EventCall *event() const { return std::get_if<EventCall>(&content); }
};

using CallQueue = DropQueue<QueuedCall>;

DropClass drop_class_of(const QueuedCall &call);

} // namespace qandor
