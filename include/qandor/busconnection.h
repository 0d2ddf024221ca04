/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * Connections to the system bus that are driven from the GLib main loop, and the watch over the
 * event switch's name.
 *
 * Each producer and consumer has a connection of its own. It is used on one thread only, the one
 * that iterates the default main context, which is where all its messages are dispatched.
 *
 * NULL arguments are fatal.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>
#include <systemd/sd-bus.h>

G_BEGIN_DECLS

/** What to call when the event switch comes and goes; lives as long as the connection. */
typedef struct {
    void (*online)(gpointer user_data);  /**< its name got an owner; may be NULL */
    void (*offline)(gpointer user_data); /**< its name lost its owner; may be NULL */
    gpointer user_data;
} bus_driver_watcher;

/**
 * Connects to the system bus and has the default main context drive the connection.
 *
 * Returns 0 or more, *@bus with a reference that the caller owns and *@source without one (the main
 * context holds the only one): both end with disconnect_from_bus_and_detach_events(). On failure
 * returns the negative errno, with *@error set in the domain "libqandor" to the same code, and
 * nothing is attached.
 *
 * Calls that wait for an answer pass a window, because a stock system bus refuses a connection its
 * 129th unanswered call: at most 120 to consumers are under way at a time, at most 64 of them to
 * one consumer, and 4 to the switch. The others wait their turn, in order for each destination. The
 * callback of a call that is not answered within 60 s is told so.
 */
QANDOR_API int connect_to_bus_and_attach_events(GSource **source, sd_bus **bus, GError **error);

/**
 * Ends the connection: sends what is still waiting, waits for the answers to events that are being
 * delivered, flushes, closes and releases the connection, and detaches the source.
 *
 * The answers are waited for at most 2 s, so that a consumer may still ask the bus about the
 * sender; consumers that have not answered for 2 s, and those of the same process, are not waited
 * for. No callback of a pending call runs, and nothing that comes in is dispatched. A bus that does
 * not answer is waited for another 2 s at most.
 */
QANDOR_API void disconnect_from_bus_and_detach_events(GSource *source, sd_bus *bus);

/**
 * Calls @watcher whenever the event switch appears on or disappears from the bus, as the bus itself
 * tells it: signals of others are ignored. Only changes are reported, not how things stand, and not
 * the end of the connection. Returns a negative errno on failure.
 */
QANDOR_API int watch_bus_driver(sd_bus *bus, bus_driver_watcher *watcher);

G_END_DECLS
