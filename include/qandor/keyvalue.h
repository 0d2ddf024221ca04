/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The key-value: one key with one value, and what a declaration or a subscribe expression attaches
 * to it (name space, complex type name, display names, a user string, tags, wildcards, negation).
 *
 * A value is always held as text; its type says how to interpret the text. Texts given to this
 * family are copied, texts it returns inside a record belong to the record.
 *
 * Broken preconditions are fatal (a NULL record, a NULL key or value where one is needed). Any
 * thread may use these functions, one at a time for each record; reading one record from several
 * threads at once is safe.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/eventutils.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct key_value key_value;

/** The essential content of a key_value as a plain record, see key_value_get_raw(). */
typedef struct {
    gchar *key;               /**< NULL for a key wildcard */
    gchar *value;             /**< NULL for a value wildcard */
    gchar *name_space;        /**< NULL when there is none */
    gchar *complex_type_name; /**< NULL when there is none */
    gboolean negated;         /**< the condition is negated */
    GList *tags;              /**< gchar *, in reverse order of the key_value's tags */
} key_value_raw;

/**
 * Returns a new key_value of type VALUE_TYPE_STRING without tags; the caller frees it with
 * key_value_free().
 *
 * With @key_wildcard TRUE the key matches any key and @key is ignored; with @value_wildcard TRUE
 * the value matches any value and @value is ignored. Both at once return NULL. Both flags are
 * compared with exactly TRUE. Where no wildcard stands for them @key and @value must not be NULL
 * (fatal). The texts that may be absent are given as "": a record with a NULL text cannot be
 * written.
 */
QANDOR_API key_value *key_value_new(const gchar *key, gboolean key_wildcard,
                                    const gchar *name_space, const gchar *key_nice_name,
                                    const gchar *value, gboolean value_wildcard,
                                    const gchar *value_nice_name, const gchar *value_user_string,
                                    const gchar *complex_type_name, gboolean negated);

/** Frees the record with all its texts; NULL is ignored. */
QANDOR_API void key_value_free(key_value *key_value);

/** Appends a copy of @tag unless an equal tag is there. */
QANDOR_API void key_value_add_tag(key_value *key_value, const gchar *tag);

/** Appends @tag without looking for an equal one, and takes it over (it is freed with g_free()). */
QANDOR_API void key_value_give_tag(key_value *key_value, gchar *tag);

/** Returns a deep copy; equal tags collapse into one. */
QANDOR_API key_value *key_value_copy(const key_value *key_value);

/**
 * Whether everything that is written of the two records agrees: key, value type, name space,
 * flags, value, tags in any order, display names, user string and complex type name.
 */
QANDOR_API gboolean key_value_is_equal(const key_value *key_value1, const key_value *key_value2);

/**
 * Tests whether @key_value_container (the record that is there, or NULL when there is none with the
 * key) satisfies the condition @key_value_containee. The keys are not compared: the caller has
 * paired them.
 *
 * Sets *@excluded when the condition is broken and *@matched when it holds as a positive match;
 * never clears either. Only name space, wildcards, negation and the value as text take part.
 * Neither record may be a key wildcard (fatal).
 */
QANDOR_API void key_value_is_contained(const key_value *key_value_container,
                                       const key_value *key_value_containee, gboolean *excluded,
                                       gboolean *matched);

/** Appends the record to @array. A NULL text in it is fatal. */
QANDOR_API void key_value_serialize(const key_value *key_value, GArray *array);

/** Reads one record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API key_value *key_value_deserialize(GArray *array, guint *indx);

/** Returns a new XML element "keyvalue"; empty texts and FALSE flags are left out. */
QANDOR_API xmlnode *key_value_serialize_xml(const key_value *key_value);

/**
 * Reads an XML element "keyvalue". Returns NULL with a warning for an element of another name, and
 * NULL silently when both wildcards are "true".
 */
QANDOR_API key_value *key_value_deserialize_xml(const xmlnode *node);

/** Returns a new plain view; the caller frees it with key_value_free_raw(). */
QANDOR_API key_value_raw *key_value_get_raw(const key_value *key_value);

/** Frees a plain view; NULL is ignored. */
QANDOR_API void key_value_free_raw(key_value_raw *raw);

/** Logs the record as one line at message level, as in "[ns1:state != 'on'] {x}". */
QANDOR_API void key_value_print(const key_value *key_value);

G_END_DECLS
