/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The subscribe expression: a consumer's filter. Conditions on keys, values and name spaces are
 * joined by AND; groups of them are joined by OR; single conditions may be negated.
 *
 * Several positive conditions on one key in one group are alternatives ("a=1 and a=2" is satisfied
 * by a=1 and by a=2); any negated one that is broken breaks the group. docs/matching.md has it all.
 *
 * A NULL argument is a critical that names the function, and FALSE, NULL or 0; the expression stays
 * as it was. The *_internal functions abort instead. Texts given are copied, texts returned are
 * borrowed. Any thread may use an expression, one at a time; several may match against one at once.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/inspectable.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct subscribe_expression subscribe_expression;

/** Returns a new expression without conditions: every event satisfies it. */
QANDOR_API subscribe_expression *subscribe_expression_new(void);

/**
 * Returns a new expression without conditions. A clandestine subscription receives events but does
 * not count as a subscriber when producers are told which of their declarations have some.
 */
QANDOR_API subscribe_expression *subscribe_expression_new_full(gboolean clandestine);

/** Frees the expression with all its content; NULL is ignored. */
QANDOR_API void subscribe_expression_free(subscribe_expression *se);

/** Returns a deep copy, routing data included. */
QANDOR_API subscribe_expression *subscribe_expression_copy(const subscribe_expression *se);

/** Sets the subscription id. */
QANDOR_API void subscribe_expression_set_id(subscribe_expression *se, guint32 id);
/** Returns the subscription id. */
QANDOR_API guint32 subscribe_expression_get_id(const subscribe_expression *se);

/** Sets the subscriber's bus name. */
QANDOR_API void subscribe_expression_set_dbus_service(subscribe_expression *se,
                                                      const gchar *dbus_service);
/** Returns the subscriber's bus name, "" when it is not set. */
QANDOR_API const gchar *subscribe_expression_get_dbus_service(const subscribe_expression *se);

/** Sets the subscriber's object path. */
QANDOR_API void subscribe_expression_set_dbus_object(subscribe_expression *se,
                                                     const gchar *dbus_object);
/** Returns the subscriber's object path, "" when it is not set. */
QANDOR_API const gchar *subscribe_expression_get_dbus_object(const subscribe_expression *se);

/** Sets the token by which the subscriber knows the subscription. */
QANDOR_API void subscribe_expression_set_consumer_token(subscribe_expression *se,
                                                        guint32 consumer_token);
/** Returns the token by which the subscriber knows the subscription. */
QANDOR_API guint32 subscribe_expression_get_consumer_token(const subscribe_expression *se);

/** Whether the subscription is clandestine. */
QANDOR_API gboolean subscribe_expression_get_clandestine(const subscribe_expression *se);

/** Returns the expression's own inspectable, borrowed. */
QANDOR_API inspectable *subscribe_expression_get_inspectable(subscribe_expression *se);

/** The event has the key with this value. */
QANDOR_API gboolean subscribe_expression_add_key_value(subscribe_expression *se, const gchar *key,
                                                       const gchar *value);

/** The event lacks the key or has it with another value. */
QANDOR_API gboolean subscribe_expression_add_key_not_value(subscribe_expression *se,
                                                           const gchar *key, const gchar *value);

/** The event has the key, with any value. */
QANDOR_API gboolean subscribe_expression_add_key(subscribe_expression *se, const gchar *key);

/** The event does not have the key. */
QANDOR_API gboolean subscribe_expression_add_not_key(subscribe_expression *se, const gchar *key);

/** The event has this value under any key. */
QANDOR_API gboolean subscribe_expression_add_value(subscribe_expression *se, const gchar *value);

/** The event has this value under no key. */
QANDOR_API gboolean subscribe_expression_add_not_value(subscribe_expression *se,
                                                       const gchar *value);

/**
 * Restricts the first condition on the key in the current group to a name space. FALSE when there
 * is no condition on the key.
 */
QANDOR_API gboolean subscribe_expression_set_name_space(subscribe_expression *se, const gchar *key,
                                                        const gchar *name_space);

/** Closes the current group of conditions and begins an alternative to it. */
QANDOR_API void subscribe_expression_or(subscribe_expression *se);

/** Returns a plain view of the conditions, see inspectable_get_raw(). */
QANDOR_API GList *subscribe_expression_get_raw(const subscribe_expression *se);

/** Frees a plain view. */
QANDOR_API void subscribe_expression_free_raw(GList *raw);

/** Returns a new buffer with the record; the caller frees it with g_array_unref(). */
QANDOR_API GArray *subscribe_expression_serialize(const subscribe_expression *se);

/** Appends the record to @array. */
QANDOR_API void subscribe_expression_serialize_internal(const subscribe_expression *se,
                                                        GArray *array);

/** Reads a record from the buffer's beginning; the caller frees it. Malformed bytes are fatal. */
QANDOR_API subscribe_expression *subscribe_expression_deserialize(GArray *array);

/** Reads a record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API subscribe_expression *subscribe_expression_deserialize_internal(GArray *array,
                                                                           guint *indx);

/** Returns a new XML element "subscribe" with the conditions; routing data is not in it. */
QANDOR_API xmlnode *subscribe_expression_serialize_xmlnode(const subscribe_expression *se);

/** Returns the XML form as a new text, which the caller frees with g_free(). */
QANDOR_API gchar *subscribe_expression_serialize_xml(const subscribe_expression *se);

/** Reads an XML element "subscribe"; NULL with a warning for another or a malformed one. */
QANDOR_API subscribe_expression *subscribe_expression_deserialize_xmlnode(const xmlnode *node);

/** Reads the XML form from a text; NULL with a warning when it cannot be read. */
QANDOR_API subscribe_expression *subscribe_expression_deserialize_xml(const gchar *xml);

/** Logs the expression at message level, one line a log message. */
QANDOR_API void subscribe_expression_print(const subscribe_expression *se);

G_END_DECLS
