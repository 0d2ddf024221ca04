/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The event: one occurrence of a declared event type, which its producer delivers to every consumer
 * whose subscribe expression it satisfies.
 *
 * A producer gets an event that is ready to be filled from event_producer_prepare_event(), sets
 * the keys that its declaration left open and sends it. A consumer's event function is handed an
 * event that belongs to it and that it frees with event_free().
 *
 * A NULL argument is a critical that names the function, and FALSE, NULL, 0 or -1; the event stays
 * as it was. The *_internal functions, which the library's own records are built from, abort
 * instead. Texts given are copied; texts returned are borrowed, valid until the same key is set
 * again or the event is freed.
 *
 * An event is a plain value: any thread may use it, one at a time; several threads may read one
 * event at once.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/inspectable.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct event event;

/** Returns a new event without keys; ids, timestamp and payload are 0 or none. */
QANDOR_API event *event_new(void);

/** Frees the event with all its content; NULL is ignored. */
QANDOR_API void event_free(event *event);

/** Returns a deep copy. */
QANDOR_API event *event_copy(const event *event_src);

/** Returns the event's own inspectable, borrowed. */
QANDOR_API inspectable *event_get_inspectable(event *event);

/** Replaces the event's inspectable by a copy of the given one as IT_EVENT. */
QANDOR_API void event_set_inspectable(event *event, const inspectable *inspectable);

/**
 * Replaces the payload by a copy of @size bytes. @user_data must not be NULL and @size not 0. At
 * most 65535 bytes travel: a larger payload is the caller's to refuse.
 */
QANDOR_API void event_set_user_data(event *event, gconstpointer user_data, guint32 size);

/** Returns a new copy of the payload, which the caller frees with g_free(); NULL for none. */
QANDOR_API gpointer event_get_user_data(const event *event);

/** Stores the string with its NUL as the payload. */
QANDOR_API void event_set_user_data_string(event *event, const gchar *user_data);

/** Returns a new copy of the payload's bytes as they are; NULL for none. */
QANDOR_API gchar *event_get_user_data_string(const event *event);

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

/** Sets the time at which the event happened: seconds and microseconds since 1970. */
QANDOR_API void event_set_timestamp(event *event, glong seconds, glong microseconds);

/** Returns the time at which the event happened; 0.0 means not stamped yet. */
QANDOR_API GTimeVal event_get_timestamp(const event *event);

G_GNUC_END_IGNORE_DEPRECATIONS

/** Stamps the event with the current time unless it carries a timestamp. */
QANDOR_API void set_event_time_now(event *event);

/** Sets the id that the event switch gave the producer. */
QANDOR_API void event_set_producer_id(event *event, guint32 producer_id);
/** Returns the id that the event switch gave the producer. */
QANDOR_API guint32 event_get_producer_id(const event *event);

/** Sets the declaration's id in the whole system. */
QANDOR_API void event_set_global_id(event *event, guint32 global_id);
/** Returns the declaration's id in the whole system. */
QANDOR_API guint32 event_get_global_id(const event *event);

/** Sets the declaration's id inside its producer. */
QANDOR_API void event_set_local_id(event *event, guint32 local_id);
/** Returns the declaration's id inside its producer. */
QANDOR_API guint32 event_get_local_id(const event *event);

/** Marks the event as the state of a property. */
QANDOR_API void event_set_property(event *event, gboolean property);
/** Whether the event is the state of a property. */
QANDOR_API gboolean event_is_property(const event *event);

/** Whether the event is internal: an external one carries its topic in the key "topic0". */
QANDOR_API gboolean event_is_internal(const event *event);

/** Whether every value that the declaration left open is filled. */
QANDOR_API gboolean event_is_complete(const event *event);

/** Whether the event satisfies the expression. */
QANDOR_API gboolean event_contains(const event *container, const subscribe_expression *containee);

/**
 * Fills in a value, given in the key's declared type: a pointer to a gint, gboolean or gdouble, or
 * the string itself. FALSE when there is no such key, and for one whose value never was open: in an
 * event that was received, or a declaration that was read from XML.
 */
QANDOR_API gboolean event_set_value(event *event, const gchar *key, gconstpointer value);

/** Returns the value of the key as text, or NULL. */
QANDOR_API const gchar *event_get_value(const event *event, const gchar *key);

/** Returns the name space of the key, or NULL. */
QANDOR_API const gchar *event_get_name_space(const event *event, const gchar *key);

/** Returns the complex type name of the key, or NULL. */
QANDOR_API const gchar *event_get_complex_type_name(const event *event, const gchar *key);

/** Returns the user string of the key's value, or NULL. */
QANDOR_API const gchar *event_get_value_user_string(const event *event, const gchar *key);

/** Returns the display name of the key, or NULL. */
QANDOR_API const gchar *event_get_key_nice_name(const event *event, const gchar *key);

/** Returns the display name of the key's value, or NULL. */
QANDOR_API const gchar *event_get_value_nice_name(const event *event, const gchar *key);

/** Returns the position of the key, or -1. */
QANDOR_API gint event_get_index(const event *event, const gchar *key);

/** Returns the number of keys; positions run from 0 to one less. */
QANDOR_API guint event_get_key_count(const event *event);

/** Returns the key at a position, or NULL past the end. */
QANDOR_API const gchar *event_get_key_at(const event *event, guint index);

/** Returns the name space at a position, or NULL past the end. */
QANDOR_API const gchar *event_get_name_space_at(const event *event, guint index);

/** Returns the complex type name at a position, or NULL past the end. */
QANDOR_API const gchar *event_get_complex_type_name_at(const event *event, guint index);

/** Returns the value at a position as text, or NULL past the end. */
QANDOR_API const gchar *event_get_value_at(const event *event, guint index);

/** Returns the value type at a position, or 0 past the end. */
QANDOR_API guint32 event_get_type_at(const event *event, guint index);

/**
 * Writes the value at a position to *@value in its own type: gint, gboolean, gdouble, or a borrowed
 * const gchar *, so look at event_get_type_at() first. FALSE past the end. See
 * inspectable_get_typed_value_at().
 */
QANDOR_API gboolean event_get_typed_value_at(const event *event, guint index, gpointer value);

/**
 * Like event_get_typed_value_at(), by key. FALSE, and *@value untouched, for an unknown key. What
 * is written is of the type that the event says, which for a received one is its producer's choice:
 * look at event_get_type_at() before.
 */
QANDOR_API gboolean event_get_typed_value(const event *event, const gchar *key, gpointer value);

/** Returns the tags at a position: a new list of new strings, in reverse order. */
QANDOR_API GList *event_get_tags_at(const event *event, guint index);

/** Returns the tags of the whole event: a new list of new strings, in reverse order. */
QANDOR_API GList *event_get_tags(const event *event);

/** Whether the key at a position has a value. */
QANDOR_API gboolean event_has_value_at(const event *event, guint index);

/** Whether the key at a position has the tag. */
QANDOR_API gboolean event_has_tag_at(const event *event, guint index, const gchar *tag);

/** Whether the event itself has the tag. */
QANDOR_API gboolean event_has_tag(const event *event, const gchar *tag);

/** Appends a tag of the whole event. */
QANDOR_API gboolean event_add_tag(event *event, const gchar *tag);

/** Adds a tag to the key; FALSE when there is no such key. */
QANDOR_API gboolean event_add_key_tag(event *event, const gchar *key, const gchar *tag);

/** Returns a new buffer with the record; the caller frees it with g_array_unref(). */
QANDOR_API GArray *event_serialize(const event *event);

/** Appends the record to @array. */
QANDOR_API void event_serialize_internal(const event *event, GArray *array);

/** Reads a record from the buffer's beginning; the caller frees it. Malformed bytes are fatal. */
QANDOR_API event *event_deserialize(GArray *array);

/** Reads a record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API event *event_deserialize_internal(GArray *array, guint *indx);

/** Logs the event at message level, one line a log message. */
QANDOR_API void event_print(const event *event);

G_END_DECLS
