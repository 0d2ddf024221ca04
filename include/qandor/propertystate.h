/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The property state: a set of keys and values that names one state of a property. One key, the
 * state key, is tagged "property-state".
 *
 * From it come two subscribe expressions: one that events in this state satisfy and an inverted one
 * for events of the same property in any other state. Asking for either locks the state; a state
 * read from bytes or XML is locked from the start.
 *
 * A NULL argument is a critical that names the function, and FALSE or NULL, unless a function says
 * otherwise. The *_internal functions abort instead. Texts given are copied. Any thread may use a
 * state, one at a time.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/inspectable.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct property_state property_state;

/** Returns a new unlocked state without keys. */
QANDOR_API property_state *property_state_new(void);

/** Frees the state with its expressions; NULL is ignored. */
QANDOR_API void property_state_free(property_state *prop);

/**
 * Adds a key with its value. FALSE for a key that is there, and for a second state key; FALSE with
 * a critical once the state is locked. The state itself must not be NULL (not checked).
 */
QANDOR_API gboolean property_state_add_key_value(property_state *self, const gchar *key,
                                                 const gchar *value, gboolean is_state_key);

/**
 * Sets the name space of the key (NULL: none); FALSE when there is no such key. Expressions that
 * are there already do not see the change.
 */
QANDOR_API gboolean property_state_set_name_space(property_state *self, const gchar *key,
                                                  const gchar *name_space);

/** Returns the expression for this state, borrowed; locks the state. */
QANDOR_API subscribe_expression *property_state_get_subscribe_expression(property_state *self);

/** Returns the expression for every other state, borrowed; locks the state. */
QANDOR_API subscribe_expression *
property_state_get_inverted_subscribe_expression(property_state *self);

/** Returns the state's own inspectable, borrowed. */
QANDOR_API inspectable *property_state_get_inspectable(property_state *prop);

/** Returns a new buffer with the record; the caller frees it with g_array_unref(). */
QANDOR_API GArray *property_state_serialize(const property_state *ps);

/** Appends the record to @array. */
QANDOR_API void property_state_serialize_internal(const property_state *ps, GArray *array);

/** Reads a record from the buffer's beginning; the caller frees it. Malformed bytes are fatal. */
QANDOR_API property_state *property_state_deserialize(GArray *array);

/** Reads a record from *@indx on; the caller frees it. Malformed bytes are fatal. */
QANDOR_API property_state *property_state_deserialize_internal(GArray *array, guint *indx);

/** Returns a new XML element "property". */
QANDOR_API xmlnode *property_state_serialize_xmlnode(const property_state *ps);

/** Returns the XML form as a new text, which the caller frees with g_free(). */
QANDOR_API gchar *property_state_serialize_xml(const property_state *ps);

/**
 * Reads an XML element "property"; NULL with a warning for another or a malformed one, and for one
 * that does not have exactly one key tagged "property-state".
 */
QANDOR_API property_state *property_state_deserialize_xmlnode(const xmlnode *node);

/** Reads the XML form from a text; NULL with a warning when it cannot be read. */
QANDOR_API property_state *property_state_deserialize_xml(const gchar *xml);

/** Logs the state at message level, one line a log message. */
QANDOR_API void property_state_print(const property_state *self);

G_END_DECLS
