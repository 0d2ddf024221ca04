/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The notification: tells a consumer that a declaration which matches one of its subscriptions was
 * added or removed.
 *
 * A NULL notification is a critical that names the function, and FALSE, NULL or 0, except in the
 * plain accessors that say otherwise. The *_internal functions abort instead. A consumer's
 * notification function is handed a notification that belongs to it. Any thread may use one, one at
 * a time.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/eventdeclaration.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

/** What happened to the declaration. */
typedef enum { NOTIFY_DECLARATION_ADDED = 0, NOTIFY_DECLARATION_REMOVED = 1 } notification_type;

typedef struct notification notification;

/** Returns a new empty notification. */
QANDOR_API notification *notification_new(void);

/** Frees the notification with all its content; NULL is ignored. */
QANDOR_API void notification_free(notification *notification);

/** Returns a deep copy. The source must not be NULL (not checked). */
QANDOR_API notification *notification_copy(const notification *notification_src);

/** Replaces the payload by a copy of @size bytes. @user_data not NULL, @size not 0. */
QANDOR_API void notification_set_user_data(notification *notification, gconstpointer user_data,
                                           guint32 size);

/** Returns a new copy of the payload, which the caller frees with g_free(); NULL for none. */
QANDOR_API gpointer notification_get_user_data(const notification *notification);

/** Stores the string with its NUL as the payload. */
QANDOR_API void notification_set_user_data_string(notification *notification,
                                                  const gchar *user_data);

/** Returns a new copy of the payload's bytes as they are; NULL for none. */
QANDOR_API gchar *notification_get_user_data_string(const notification *notification);

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

/** Sets the time of the change: seconds and microseconds since 1970. */
QANDOR_API void notification_set_timestamp(notification *notification, glong seconds,
                                           glong microseconds);

/** Returns the time of the change. */
QANDOR_API GTimeVal notification_get_timestamp(const notification *notification);

G_GNUC_END_IGNORE_DEPRECATIONS

/** Sets the id of the subscription. NULL is not checked, here and in the next seven. */
QANDOR_API void notification_set_subscription_id(notification *notification,
                                                 guint32 subscription_id);
/** Returns the id of the subscription. */
QANDOR_API guint32 notification_get_subscription_id(const notification *notification);

/** Sets the declaration's global id. */
QANDOR_API void notification_set_declaration_id(notification *notification, guint32 declaration_id);
/** Returns the declaration's global id. */
QANDOR_API guint32 notification_get_declaration_id(const notification *notification);

/** Sets what happened, one of notification_type. */
QANDOR_API void notification_set_type(notification *notification, guint32 type);
/** Returns what happened, one of notification_type. */
QANDOR_API guint32 notification_get_type(const notification *notification);

/**
 * Stores a deep copy of the declaration. To be called once: a declaration stored before is not
 * freed.
 */
QANDOR_API void notification_set_declaration(notification *notification,
                                             const event_declaration *declaration);
/** Returns the declaration, borrowed. */
QANDOR_API event_declaration *notification_get_declaration(const notification *notification);

/**
 * Stores a deep copy of the expression. To be called once: an expression stored before is not
 * freed.
 */
QANDOR_API void
notification_set_subscribe_expression(notification *notification,
                                      const subscribe_expression *subscribe_expression);
/** Returns the expression, borrowed. */
QANDOR_API subscribe_expression *
notification_get_subscribe_expression(const notification *notification);

/** Returns the value of a key of the declaration, or NULL. */
QANDOR_API const gchar *notification_get_value(const notification *notification, const gchar *key);

/** Returns the name space of a key of the declaration, or NULL. */
QANDOR_API const gchar *notification_get_name_space(const notification *notification,
                                                    const gchar *key);

/** Whether the declaration is internal. */
QANDOR_API gboolean notification_is_internal(const notification *notification);

/** Whether the declaration was removed. */
QANDOR_API gboolean notification_is_type_deleted(const notification *notification);

/** Returns a new buffer with the record. Expression and declaration must be there. */
QANDOR_API GArray *notification_serialize(const notification *notification);

/** Appends the record to @array. Expression and declaration must be there. */
QANDOR_API void notification_serialize_internal(const notification *notification, GArray *array);

/** Reads a record from the buffer's beginning; the caller frees it. Malformed bytes are fatal. */
QANDOR_API notification *notification_deserialize(GArray *array);

/** Reads a record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API notification *notification_deserialize_internal(GArray *array, guint *indx);

/** Logs the notification at message level, one line a log message. */
QANDOR_API void notification_print(const notification *notification);

G_END_DECLS
