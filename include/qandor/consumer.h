/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The Consumer object: a consumer's presence on the bus. It keeps the subscriptions, makes them
 * known to the event switch, again whenever it comes back, and hands events and notifications to
 * the subscriptions' functions.
 *
 * Applications use event_consumer, which runs everything that talks to the bus on the right thread.
 *
 * One recursive lock guards an instance and is held through every operation, also while the
 * application's functions are called; these may call back into the same instance. Operations that
 * send something run on the thread that iterates the default main context; the others may be called
 * from any thread.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/event.h>
#include <qandor/notification.h>
#include <qandor/propertystate.h>
#include <qandor/subscribeexpression.h>

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _Consumer Consumer;
typedef struct _ConsumerClass ConsumerClass;

#define QANDOR_TYPE_CONSUMER (consumer_get_type())

/** Whether a subscription's functions are told the sender's user id. */
typedef enum { SUBSCRIPTION_TYPE_NORMAL = 0, SUBSCRIPTION_TYPE_SECURE = 1 } subscription_type;

/** A subscription as the Consumer keeps it. */
typedef struct subscription_data subscription_data;

/** Is given an event, which belongs to the callee: event_free(). */
typedef void (*consumer_event_callback)(event *event, gpointer user_data);

/** Is given a notification, which belongs to the callee: notification_free(). */
typedef void (*consumer_notification_callback)(notification *notification, gpointer user_data);

/**
 * As consumer_event_callback, with the sender's effective user id, or all bits set when the bus
 * does not know it (any more).
 */
typedef void (*consumer_secure_event_callback)(event *event, guint32 uid, gpointer user_data);

/** As consumer_notification_callback, with the sender's effective user id, or all bits set. */
typedef void (*consumer_secure_notification_callback)(notification *notification, guint32 uid,
                                                      gpointer user_data);

QANDOR_API GType consumer_get_type(void) G_GNUC_CONST;

/** Returns a new instance without a bus; the last g_object_unref() disconnects it. */
QANDOR_API Consumer *consumer_new(const gchar *name);

/**
 * Connects, serves the object and subscribes what is there. FALSE with @error set on failure: then
 * it is tried again later, by itself, after pauses from 0.1 s to 5 s. The same happens, after a
 * critical, when the connection ends.
 */
QANDOR_API gboolean consumer_init_dbus(Consumer *self, GError **error);

/** Whether there is a subscription under the token. */
QANDOR_API gboolean consumer_token_exists(Consumer *self, guint32 token);

/**
 * Files a subscription under the token, in the place of one that is there. The expression is
 * serialized at once. The functions are of the secure forms for SUBSCRIPTION_TYPE_SECURE and of the
 * plain ones for any other type; without @notification_cb notifications are dropped.
 */
QANDOR_API void consumer_prepare_subscribe(Consumer *self, guint32 token,
                                           const subscribe_expression *expression,
                                           GCallback event_cb, GCallback notification_cb,
                                           gpointer user_data, guint32 type);

/** Subscribes with the event switch, unless that has been done. */
QANDOR_API void consumer_send_subscribe(Consumer *self, guint32 token);

/** Asks for the states of the properties that the subscription matches. */
QANDOR_API void consumer_send_refresh(Consumer *self, guint32 token);

/** Takes a subscription out, and returns it for consumer_send_unsubscribe(), or NULL. */
QANDOR_API subscription_data *consumer_send_unsubscribe_prepare(Consumer *self, guint32 token);

/** Unsubscribes with the event switch and frees the subscription. */
QANDOR_API void consumer_send_unsubscribe(Consumer *self, subscription_data *subscription);

/** Says farewell to the event switch. */
QANDOR_API void consumer_send_disconnect(Consumer *self);

/**
 * Asks the event switch for the state of a property and waits for it, for at most 60 s. NULL with
 * code 7 set when there is none.
 */
QANDOR_API property_state *consumer_send_get_property_state(Consumer *self,
                                                            const subscribe_expression *expression,
                                                            GError **error);

/** An event has come: serialized bytes for the subscription under the token. */
QANDOR_API void consumer_receive_event(Consumer *self, GArray *array, guint32 token, guint32 uid);

/** A notification has come: serialized bytes for the subscription under the token. */
QANDOR_API void consumer_receive_notification(Consumer *self, GArray *array, guint32 token,
                                              guint32 uid);

/** Drops all subscriptions; before the last unref. */
QANDOR_API void consumer_prepare_free(Consumer *self);

G_END_DECLS
