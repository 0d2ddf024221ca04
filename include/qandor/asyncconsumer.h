/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The asynchronous consumer: an event consumer driven so that its caller never waits for the bus
 * and is told how everything went.
 *
 * All functions may be called from any thread. A call leaves a command and returns; only a
 * subscription's token is given out at once. The commands run in the order of the calls, on the
 * thread that iterates the default main context, as do all callbacks. Each callback may be NULL,
 * but for a subscription's event function. Errors handed to a callback belong to it:
 * g_error_free(). So do events and notifications.
 *
 * The handle is an event consumer. Functions of that family may be used with it, too, from the
 * setup callback on.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/consumer.h>
#include <qandor/eventconsumer.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

typedef event_consumer async_consumer;

/**
 * Returns a new consumer at once; it connects later. @setup_callback is told how that went; without
 * one a failure is logged as a critical. Also a consumer that could not connect has to be freed.
 * The name is copied.
 */
QANDOR_API event_consumer *async_consumer_new(const char *name,
                                              event_consumer_setup_callback setup_callback,
                                              gpointer user_data);

/**
 * Frees the consumer once all that was asked of it before has been done and told, then calls
 * @callback. Events may come until then. Nothing may be asked of it after this call, also not by
 * its callbacks. NULL is ignored, without a callback.
 */
QANDOR_API void async_consumer_free(event_consumer *event_consumer,
                                    event_consumer_freed_callback callback, gpointer user_data);

/**
 * Subscribes. Returns the subscription's token at once, or 0 with @error set and nothing queued:
 * code 0 for a NULL consumer, expression or event function, 10 for an error that was already set,
 * 11 for a type that is none of subscription_type.
 *
 * @expression is not copied but read when the command runs: it has to live, and to stay as it is,
 * until @subscribed_callback is called, which is when the subscription has been sent.
 *
 * @event_callback is given each event that satisfies the expression, @notification_callback is told
 * of each declaration that is there or comes, and that goes, whose events can. They are of the
 * forms consumer_event_callback and consumer_notification_callback or, for
 * SUBSCRIPTION_TYPE_SECURE, consumer_secure_event_callback and
 * consumer_secure_notification_callback.
 */
QANDOR_API guint32 async_consumer_subscribe(event_consumer *event_consumer,
                                            subscribe_expression *expression,
                                            event_consumer_subscribed_callback subscribed_callback,
                                            GCallback event_callback,
                                            GCallback notification_callback, gpointer user_data,
                                            guint32 subscription_type, GError **error);

/**
 * Asks for the current states of the properties that the subscription matches; they come to its
 * event function. @callback is called when that has been asked, or with code 3 for a token that is
 * unknown when its turn comes. A NULL consumer is fatal.
 */
QANDOR_API void async_consumer_refresh(event_consumer *event_consumer, guint32 token,
                                       event_consumer_done_callback callback, gpointer user_data);

/**
 * Ends a subscription, when its turn comes: until then its functions may be called. @callback is
 * called when the event switch has been told, or with code 3 for a token that is unknown then. A
 * NULL consumer is fatal.
 */
QANDOR_API void async_consumer_unsubscribe(event_consumer *event_consumer, guint32 token,
                                           event_consumer_done_callback callback,
                                           gpointer user_data);

G_END_DECLS
