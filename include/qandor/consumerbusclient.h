/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The call by which a producer delivers an event: straight to the consumer's own object.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>
#include <systemd/sd-bus.h>

G_BEGIN_DECLS

/** The interface of a consumer's object. */
#define DBUS_INTERFACE_CONSUMER "com.vemo.Event.Consumer"

/**
 * Calls Event(event bytes, consumer token) on the object at @path of the bus name @destination.
 *
 * @callback runs on the connection's thread when the answer, an error or the end of 60 s comes. A
 * NULL @bus or @event is a critical and nothing is sent; a message that cannot be built is fatal;
 * a call that cannot be sent is a warning, and @callback never runs.
 */
QANDOR_API void com_vemo_Event_Consumer_event_async_(sd_bus *bus, const gchar *destination,
                                                     const gchar *path, const guint8 *event,
                                                     gsize event_length, guint32 consumer_token,
                                                     sd_bus_message_handler_t callback,
                                                     gpointer userdata);

G_END_DECLS
