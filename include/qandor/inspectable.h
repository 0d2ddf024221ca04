/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The inspectable: the typed set of key-values beneath every message object.
 *
 * Key-values of one key form a bucket, buckets form an and-list. A subscribe expression may hold
 * several and-lists, which are alternatives; all other types have exactly one. Keys are looked up
 * in the current and-list, the last one begun. Positional reading sees the first key-value of each
 * bucket; positions are valid until the next key is added.
 *
 * Preconditions are fatal throughout: a NULL inspectable, key or text, and a type that the function
 * does not allow. What a caller can meet in normal operation is not: an absent key or a position
 * past the end gives FALSE, NULL, 0 or -1.
 *
 * Texts given are copied; texts returned are borrowed, valid until the same key is changed or the
 * inspectable is freed. Any thread may use these functions, one at a time for each inspectable;
 * questions that change nothing may be asked from several threads at once.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/eventutils.h>
#include <qandor/keyvalue.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct inspectable inspectable;

/** Returns a new inspectable of the type, with one empty and-list. */
QANDOR_API inspectable *inspectable_new(guint32 type);

/** Returns a deep copy as @type, whatever the type of @inspect. */
QANDOR_API inspectable *inspectable_copy(const inspectable *inspect, guint32 type);

/** Frees the inspectable with all its content; NULL is ignored. */
QANDOR_API void inspectable_free(inspectable *inspect);

/**
 * Begins a new and-list, an alternative to those before, which becomes the current one. Returns
 * FALSE with a warning for any type but IT_SUBSCRIBE_EXPRESSION.
 */
QANDOR_API gboolean inspectable_or(inspectable *inspect);

/**
 * Adds a key-value to the current and-list and returns TRUE. Not both wildcards at once; a key
 * wildcard in a subscribe expression only; @key and @value are needed where no wildcard stands for
 * them. A key that is there already is fatal in an event and a property state, replaced in a
 * declaration, and one more condition on the key in a subscribe expression.
 */
QANDOR_API gboolean inspectable_add_key_value(inspectable *inspect, const gchar *key,
                                              gboolean key_wildcard, const gchar *value,
                                              gboolean value_wildcard, gboolean negated);

/** Returns the first key-value of the key in the current and-list, borrowed; or NULL. */
QANDOR_API key_value *inspectable_get_key_value(inspectable *inspect, const gchar *key);

/** Returns the value of the key as text, or NULL. */
QANDOR_API const gchar *inspectable_get_value(const inspectable *inspect, const gchar *key);

/** Returns the name space of the key ("" when it has none), or NULL. */
QANDOR_API const gchar *inspectable_get_name_space(const inspectable *inspect, const gchar *key);

/** Returns the complex type name of the key ("" when it has none), or NULL. */
QANDOR_API const gchar *inspectable_get_complex_type_name(const inspectable *inspect,
                                                          const gchar *key);

/** Returns the user string of the key's value ("" when it has none), or NULL. */
QANDOR_API const gchar *inspectable_get_value_user_string(const inspectable *inspect,
                                                          const gchar *key);

/** Returns the display name of the key ("" when it has none), or NULL. Events only. */
QANDOR_API const gchar *inspectable_get_key_nice_name(const inspectable *inspect, const gchar *key);

/** Returns the display name of the key's value ("" when it has none), or NULL. Events only. */
QANDOR_API const gchar *inspectable_get_value_nice_name(const inspectable *inspect,
                                                        const gchar *key);

/**
 * Fills in a value given in the key's value type (see event_utils_value_type_to_string()). Returns
 * FALSE when the key is absent or was not created with a value wildcard; a key that was may be
 * filled again. Events and declarations only.
 */
QANDOR_API gboolean inspectable_set_value(inspectable *inspect, const gchar *key,
                                          gconstpointer value);

/** Like inspectable_set_value(), with the text as it is. */
QANDOR_API gboolean inspectable_set_value_as_string(inspectable *inspect, const gchar *key,
                                                    const gchar *text);

/** Replaces the user string of the key's value. Declarations only. */
QANDOR_API gboolean inspectable_set_value_user_string(inspectable *inspect, const gchar *key,
                                                      const gchar *text);

/** Replaces each display name that is not NULL. Declarations only. */
QANDOR_API gboolean inspectable_set_nice_names(inspectable *inspect, const gchar *key,
                                               const gchar *key_nice_name,
                                               const gchar *value_nice_name);

/** Replaces the name space; NULL means none. Declarations, expressions and property states. */
QANDOR_API gboolean inspectable_set_name_space(inspectable *inspect, const gchar *key,
                                               const gchar *text);

/** Replaces the complex type name; NULL means none. As inspectable_set_name_space(). */
QANDOR_API gboolean inspectable_set_complex_type_name(inspectable *inspect, const gchar *key,
                                                      const gchar *text);

/** Replaces the value type (1 to 4). Declarations only; an absent key is fatal. */
QANDOR_API gboolean inspectable_set_value_type(inspectable *inspect, const gchar *key,
                                               guint32 value_type);

/** Adds a tag to the key unless it has it. Declarations, property states and events. */
QANDOR_API gboolean inspectable_add_key_tag(inspectable *inspect, const gchar *key,
                                            const gchar *tag);

/** Appends a tag of the whole object, also when it has it. Declarations and events. */
QANDOR_API gboolean inspectable_add_tag(inspectable *inspect, const gchar *tag);

/**
 * Returns the tags of the whole object as a new list of new strings in reverse order, NULL for
 * none; the caller frees both, as with g_list_free_full(tags, g_free).
 */
QANDOR_API GList *inspectable_get_tags(const inspectable *inspect);

/** Whether the object itself has the tag. */
QANDOR_API gboolean inspectable_has_tag(const inspectable *inspect, const gchar *tag);

/** Whether a key that can be reached by position has the tag. Not for expressions. */
QANDOR_API gboolean inspectable_has_keyvalue_with_tag(const inspectable *inspect, const gchar *tag);

/** Sets the internal flag; returns TRUE. */
QANDOR_API gboolean inspectable_set_internal(inspectable *inspect, gboolean internal);

/** Returns the internal flag. */
QANDOR_API gboolean inspectable_get_internal(const inspectable *inspect);

/** Returns the first position of the key, or -1. Events only. */
QANDOR_API gint inspectable_get_index(const inspectable *inspect, const gchar *key);

/** Returns the number of positions. Events and property states, as are the following. */
QANDOR_API guint inspectable_get_key_count(const inspectable *inspect);

/** Returns the key at a position. */
QANDOR_API const gchar *inspectable_get_key_at(const inspectable *inspect, guint position);

/** Returns the value at a position as text. */
QANDOR_API const gchar *inspectable_get_value_at(const inspectable *inspect, guint position);

/** Returns the name space at a position. */
QANDOR_API const gchar *inspectable_get_name_space_at(const inspectable *inspect, guint position);

/** Returns the complex type name at a position. */
QANDOR_API const gchar *inspectable_get_complex_type_name_at(const inspectable *inspect,
                                                             guint position);

/** Returns the tags at a position as inspectable_get_tags() does. */
QANDOR_API GList *inspectable_get_tags_at(const inspectable *inspect, guint position);

/** Whether the key at a position has the tag. */
QANDOR_API gboolean inspectable_has_tag_at(const inspectable *inspect, guint position,
                                           const gchar *tag);

/** Whether the key at a position has a value: it was fixed from the start or is filled. Events. */
QANDOR_API gboolean inspectable_has_value_at(const inspectable *inspect, guint position);

/** Returns the value type at a position. Events only. */
QANDOR_API guint32 inspectable_get_type_at(const inspectable *inspect, guint position);

/**
 * Writes the value at a position to *@result in its own type and returns TRUE: a gint (the text
 * read as a number, truncated toward zero and clamped to 32 bits; no number gives 0), a gboolean
 * (the text must be "1" or "0", anything else is fatal), a gdouble, or a const gchar * borrowed
 * from the inspectable. Numbers are read with a point in every locale. Events only.
 */
QANDOR_API gboolean inspectable_get_typed_value_at(const inspectable *inspect, guint position,
                                                   gpointer result);

/**
 * Whether the two hold the same: type, internal flag, tags, and the same and-lists in any order
 * with the same key-values in any order.
 */
QANDOR_API gboolean inspectable_is_equal(const inspectable *inspect1, const inspectable *inspect2);

/** Whether @container satisfies the conditions of @containee; see docs/matching.md. */
QANDOR_API gboolean inspectable_contains(const inspectable *container,
                                         const inspectable *containee);

/** Whether no value that was left open is still open. Events and declarations. */
QANDOR_API gboolean inspectable_is_complete(const inspectable *inspect);

/** Appends the record to @array. */
QANDOR_API void inspectable_serialize_internal(const inspectable *inspect, GArray *array);

/** Reads one record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API inspectable *inspectable_deserialize_internal(GArray *array, guint *indx);

/** Returns a new XML element without a name, which the caller gives it. */
QANDOR_API xmlnode *inspectable_serialize_xml(const inspectable *insp);

/**
 * Reads the children of an XML element as an inspectable of the type. Returns NULL with a warning
 * when there are no children or one of them cannot be read.
 */
QANDOR_API inspectable *inspectable_deserialize_xml(const xmlnode *node, guint32 type);

/**
 * Returns a plain view: a list with one entry for each and-list, each a list of key_value_raw, in
 * reverse order throughout; NULL when there are no and-lists. Freed by inspectable_free_raw().
 */
QANDOR_API GList *inspectable_get_raw(const inspectable *inspect);

/** Frees a plain view. */
QANDOR_API void inspectable_free_raw(GList *raw);

/** Logs every key-value, "OR" between and-lists, and every tag, one line each. */
QANDOR_API void inspectable_print(const inspectable *inspect);

G_END_DECLS
