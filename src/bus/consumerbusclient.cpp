// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/consumerbusclient.hpp"

#include "platform/check.hpp"

#include <qandor/consumerbusclient.h>

using namespace qandor;

void qandor::call_consumer_event(sd_bus *bus, const ConsumerAddress &address, const Bytes &event,
                                 const CallTraits &traits, sd_bus_message_handler_t callback,
                                 gpointer userdata)
{
    Method method{address.destination, address.path, DBUS_INTERFACE_CONSUMER, "Event"};
    MethodCall(bus, method)
        .append_bytes(event)
        .append("u", address.token)
        .send(callback, userdata, traits);
}

void com_vemo_Event_Consumer_event_async_(sd_bus *bus, const gchar *destination, const gchar *path,
                                          const guint8 *event, gsize event_length,
                                          guint32 consumer_token, sd_bus_message_handler_t callback,
                                          gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(event != NULL);
    CallTraits traits;
    traits.kind = CallTraits::Kind::Event;
    call_consumer_event(bus, {destination, path, consumer_token}, {event, event_length}, traits,
                        callback, userdata);
}
