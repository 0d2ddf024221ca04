/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The event consumer: subscribes to events and to news about declarations.
 *
 * A subscription has an expression and functions that are called with each event that satisfies it
 * and with each declaration whose events can. A property's subscriber is told its current state at
 * once. Subscriptions outlive the event switch and the connection to the bus: when these come back
 * they are made again, under the same tokens.
 *
 * All functions may be called from any thread. What is to be sent is queued, in order, and runs on
 * the thread that iterates the default main context, as do all callbacks; an application that does
 * not run that context receives nothing. Callbacks may call this family's functions, also to
 * unsubscribe or to free the consumer, but must not wait.
 *
 * Events, notifications and errors handed to a callback belong to it: event_free(),
 * notification_free(), g_error_free(). Errors are of the domain "event-error-quark"; an error
 * argument that is already set is cleared, set to code 10 "Error object already set", and the call
 * fails.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/consumer.h>
#include <qandor/event.h>
#include <qandor/notification.h>
#include <qandor/propertystate.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct event_consumer event_consumer;

/** Tells how the connection was made; @error is NULL for success and belongs to the callee. */
typedef void (*event_consumer_setup_callback)(event_consumer *event_consumer, gpointer user_data,
                                              GError *error);

/** Tells that a subscription was sent. */
typedef void (*event_consumer_subscribed_callback)(guint32 token, gpointer user_data);

/** Tells how something went; @error is NULL for success and belongs to the callee. */
typedef void (*event_consumer_done_callback)(guint32 token, gpointer user_data, GError *error);

/** Tells that a consumer is gone. The pointer is to know it by and must not be used. */
typedef void (*event_consumer_freed_callback)(event_consumer *event_consumer, gpointer user_data);

/**
 * Returns a new consumer at once; it connects later. A connection that fails is logged as a
 * critical, and is tried again after pauses from 0.1 s to 5 s. So is one that ends.
 * @name is UTF-8. A name that is not ends the process with the first call to the switch.
 */
QANDOR_API event_consumer *event_consumer_new(const char *name);

/**
 * Drops all subscriptions at once, and frees the consumer when all that was queued before has run.
 * The main context has to go on for that. NULL is ignored.
 */
QANDOR_API void event_consumer_free(event_consumer *event_consumer);

/**
 * Subscribes. Returns the subscription's token, or 0 with a warning for a NULL argument.
 * @event_callback is given each event that satisfies the expression. The expression is serialized
 * at once and stays the caller's.
 */
QANDOR_API guint32 event_consumer_subscribe(event_consumer *event_consumer,
                                            subscribe_expression *expression,
                                            consumer_event_callback event_callback,
                                            gpointer user_data);

/**
 * Subscribes as event_consumer_subscribe() does; @notification_callback (or NULL) is told of each
 * declaration that is there or comes, and that goes, whose events can satisfy the expression.
 */
QANDOR_API guint32 event_consumer_subscribe_full(
    event_consumer *event_consumer, subscribe_expression *expression,
    consumer_event_callback event_callback, consumer_notification_callback notification_callback,
    gpointer user_data);

/**
 * Subscribes with a function that is also told the sender's user id, at the cost of asking the bus
 * for each event. It is all bits set, with a warning, for a sender that has left the bus before its
 * event is handled.
 */
QANDOR_API guint32 event_consumer_subscribe_secure(event_consumer *event_consumer,
                                                   subscribe_expression *expression,
                                                   consumer_secure_event_callback event_callback,
                                                   gpointer user_data);

/** Subscribes with functions that are also told the sender's user id, at the cost of asking. */
QANDOR_API guint32 event_consumer_subscribe_secure_full(
    event_consumer *event_consumer, subscribe_expression *expression,
    consumer_secure_event_callback event_callback,
    consumer_secure_notification_callback notification_callback, gpointer user_data);

/**
 * Asks for the current states of the properties that the subscription matches; they come to its
 * event function. FALSE with code 3 for an unknown token and 0 for a NULL consumer.
 */
QANDOR_API gboolean event_consumer_refresh(event_consumer *event_consumer, guint32 token,
                                           GError **error);

/** event_consumer_refresh() without an error. */
QANDOR_API gboolean event_consumer_refresh_async(event_consumer *event_consumer, guint32 token);

/**
 * Ends a subscription: its functions are not called any more. FALSE with code 3 for an unknown
 * token and 0 for a NULL consumer.
 */
QANDOR_API gboolean event_consumer_unsubscribe(event_consumer *event_consumer, guint32 token,
                                               GError **error);

/**
 * Unsubscribes; @callback (or NULL) is called when the event switch has been told, and with code 3
 * for an unknown token.
 */
QANDOR_API gboolean event_consumer_unsubscribe_and_notify(event_consumer *event_consumer,
                                                          guint32 token,
                                                          event_consumer_done_callback callback,
                                                          gpointer user_data, GError **error);

/**
 * Returns the current state of a property that the expression matches, which the caller frees with
 * property_state_free(), or NULL with @error set: code 7 with the event switch's words, or when
 * the connection to the bus is lost.
 *
 * Waits for the thread that iterates the default main context, for at most about 60 s. Within an
 * iteration of that context, as in any callback, it is a critical, NULL is returned and @error is
 * not set. Between two iterations of a hand-written loop it waits for ever unless another thread
 * iterates the context, which cannot be known here. A NULL consumer or expression is a critical and
 * NULL.
 */
QANDOR_API property_state *
event_consumer_get_property_state(event_consumer *event_consumer,
                                  subscribe_expression *subscribe_expression, GError **error);

/** A new handle that is not set up. These operations are what the calls above are made of. */
QANDOR_API event_consumer *event_consumer_int_new_empty(void);

/** Sets a handle up and queues its connecting. @name is copied. */
QANDOR_API void event_consumer_int_setup(event_consumer *event_consumer, const char *name,
                                         event_consumer_setup_callback setup_callback,
                                         gpointer user_data);

/** Frees the handle as event_consumer_free() does, then calls @callback. NULL is fatal. */
QANDOR_API void event_consumer_int_free(event_consumer *event_consumer,
                                        event_consumer_freed_callback callback, gpointer user_data);

/**
 * Returns a token for a subscription, or 0 with an error. @event_callback is of the form that
 * @subscription_type says.
 */
QANDOR_API guint32 event_consumer_int_generate_token(event_consumer *event_consumer,
                                                     subscribe_expression *expression,
                                                     GCallback event_callback,
                                                     guint32 subscription_type, GError **error);

/** Files the subscription at once and queues the subscribing; then @subscribed_callback, if any. */
QANDOR_API void event_consumer_int_subscribe(event_consumer *event_consumer, guint32 token,
                                             subscribe_expression *expression,
                                             event_consumer_subscribed_callback subscribed_callback,
                                             GCallback event_callback,
                                             GCallback notification_callback,
                                             guint32 subscription_type, gpointer user_data);

/** Queues the refreshing, also for an unknown token: then only the callback runs. */
QANDOR_API gboolean event_consumer_int_refresh(event_consumer *event_consumer, guint32 token,
                                               event_consumer_done_callback callback,
                                               gpointer user_data, GError **error);

/** Takes the subscription out at once and queues the unsubscribing, also for an unknown token. */
QANDOR_API gboolean event_consumer_int_unsubscribe(event_consumer *event_consumer, guint32 token,
                                                   event_consumer_done_callback callback,
                                                   gpointer user_data, GError **error);

G_END_DECLS
