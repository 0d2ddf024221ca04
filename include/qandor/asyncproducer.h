/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The asynchronous producer: an event producer driven so that its caller never waits for the bus
 * and is told how everything went.
 *
 * All functions may be called from any thread. A call leaves a command and returns; only a
 * declaration's local id is given out at once. The commands run in the order of the calls, on the
 * thread that iterates the default main context, as do all callbacks. Each callback may be NULL.
 * Errors handed to a callback belong to it: g_error_free(). They are those of the event producer.
 *
 * A command does its checks and puts the talking to the bus behind what is queued by then:
 *
 * - What is declared before the setup callback is sent with the connecting, so that its declared
 *   callback comes a little after.
 * - An event is checked with what is known when its turn comes, and sent a little later. One that
 *   is followed at once by the undeclaring of its declaration is not sent any more: code 4.
 *
 * The handle is an event producer. Functions of that family may be used with it, too, from the
 * setup callback on.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/event.h>
#include <qandor/eventdeclaration.h>
#include <qandor/eventproducer.h>
#include <qandor/producer.h>

#include <glib.h>

G_BEGIN_DECLS

typedef event_producer async_producer;

/**
 * Returns a new producer at once; it connects later. @setup_callback is told how that went; without
 * one a failure is logged as a critical. Also a producer that could not connect has to be freed.
 * @ids_callback is told which declarations have subscribers whenever one gets its first or loses
 * its last. Both are given @user_data. The name is copied.
 */
QANDOR_API event_producer *async_producer_new(const char *name,
                                              event_producer_setup_callback setup_callback,
                                              producer_ids_callback ids_callback,
                                              gpointer user_data);

/**
 * Frees the producer once all that was asked of it before has been done and told, then calls
 * @callback. Nothing may be asked of it after this call, also not by its callbacks. NULL is
 * ignored, without a callback.
 */
QANDOR_API void async_producer_free(event_producer *event_producer,
                                    event_producer_freed_callback callback, gpointer user_data);

/**
 * Declares an event type. Returns its local id at once, or 0 with @error set and nothing queued:
 * code 0 for a NULL producer or declaration, 6 for an external declaration that has no value for
 * "topic0", 10 for an error that was already set. The declaration is copied.
 *
 * @declared_callback is called when the declaration is about to be sent; from then on events can be
 * prepared. @notify_callback is called once when the event switch has finished with it; from then
 * on events can be sent.
 */
QANDOR_API guint32 async_producer_declare(event_producer *event_producer,
                                          event_declaration *declaration,
                                          event_producer_declared_callback declared_callback,
                                          producer_complete_callback notify_callback,
                                          gpointer user_data, GError **error);

/**
 * Declares an installed type with values for its open keys, which come as for
 * event_producer_register() and end with NULL. Returns the local id at once, or 0 with nothing
 * queued and @error set: code 12 to 15 as event_producer_int_register_list() has them, otherwise as
 * async_producer_declare(). A NULL type is a critical and 0, and @error is not set.
 *
 * The callbacks are those of async_producer_declare(). The state that a property was given is
 * remembered before they are called.
 */
QANDOR_API guint32 async_producer_register(event_producer *event_producer, const char *type,
                                           event_producer_declared_callback declared_callback,
                                           producer_complete_callback notify_callback,
                                           gpointer user_data, GError **error,
                                           ...) G_GNUC_NULL_TERMINATED;

/**
 * async_producer_register() with the keys, values and types as elements of a list, types as by
 * GUINT_TO_POINTER(). The list stays the caller's. A length that is no multiple of 3 is fatal.
 */
QANDOR_API guint32 async_producer_register_list(event_producer *event_producer, const char *type,
                                                event_producer_declared_callback declared_callback,
                                                producer_complete_callback notify_callback,
                                                gpointer user_data, GList *triples, GError **error);

/**
 * Takes a declaration back. @callback is called when the event switch has been told, or with code 4
 * for an unknown id. A NULL producer or an id of 0 is a critical, and nothing is queued.
 */
QANDOR_API void async_producer_undeclare(event_producer *event_producer, guint32 local_declare_id,
                                         event_producer_undeclared_callback callback,
                                         gpointer user_data);

/**
 * Returns a new event of the declaration, ready to be filled, which the caller frees with
 * event_free(). NULL before the declared callback, after the undeclaring, and for an unknown id.
 */
QANDOR_API event *async_producer_prepare_event(event_producer *event_producer,
                                               guint32 local_declare_id);

/**
 * Sends a copy of the event, stamped with the time at which its turn comes unless it has one; the
 * event stays the caller's, who may free it at once. @callback is called when it has been sent,
 * with the event's pointer to know it by, or with the error of the check that it did not pass, as
 * event_producer_send_event() has them. An event that was dropped because too much is waiting is an
 * error of the domain "libqandor" with the code -ENOBUFS. A NULL producer is a critical, and
 * nothing is queued.
 */
QANDOR_API void async_producer_send_event(event_producer *event_producer, event *event,
                                          event_producer_sent_callback callback,
                                          gpointer user_data);

G_END_DECLS
