// SPDX-License-Identifier: LGPL-2.1-or-later

// Delivering an event to a consumer, told what kind of event it is: that decides what may be
// dropped when the consumer does not keep up.
#pragma once

#include "bus/methodcall.hpp"

namespace qandor {

struct ConsumerAddress {
    const gchar *destination;
    const gchar *path;
    guint32 token;
};

void call_consumer_event(sd_bus *bus, const ConsumerAddress &address, const Bytes &event,
                         const CallTraits &traits, sd_bus_message_handler_t callback,
                         gpointer userdata);

} // namespace qandor
