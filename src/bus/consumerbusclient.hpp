// SPDX-License-Identifier: LGPL-2.1-or-later

// Delivering an event to a consumer.
#pragma once

#include "bus/callqueue.hpp"

namespace qandor {

// Takes the bytes of an event that is about to be delivered on the connection.
std::shared_ptr<const EventBytes> new_event_bytes(sd_bus *bus, GArray *array);

// Losses of a delivery without not_sent are told in the window's report.
void call_consumer_event(sd_bus *bus, const gchar *destination, EventCall call,
                         sd_bus_message_handler_t callback, gpointer userdata,
                         not_sent_handler not_sent = nullptr);

} // namespace qandor
