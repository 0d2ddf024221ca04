/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The event declaration: an event type with the keys that its events carry, their value types, name
 * spaces, display names, tags and, where the declaration fixes them, values.
 *
 * An external declaration has a value for the key "topic0", its place in the tree of topics;
 * internal ones need none. A property is a declaration with a remembered state: the key tagged
 * "property-state" is the one whose value is the state.
 *
 * A NULL argument is a critical that names the function, and FALSE, NULL or 0; the declaration
 * stays as it was. The *_internal functions abort instead. Texts given are copied. Any thread may
 * use a declaration, one at a time; several may read one at once.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/event.h>
#include <qandor/inspectable.h>
#include <qandor/subscribeexpression.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct event_declaration event_declaration;

/**
 * Fills a property's event with the current state (event_set_value()). The event is borrowed. The
 * result is ignored.
 */
typedef gboolean (*event_declaration_property_callback)(event *event, gpointer callback_data);

/** Returns a new declaration without keys. */
QANDOR_API event_declaration *event_declaration_new(gboolean internal);

/** Frees the declaration with all its content, the callback's data aside; NULL is ignored. */
QANDOR_API void event_declaration_free(event_declaration *declaration);

/** Returns a deep copy that shares the callback's data. */
QANDOR_API event_declaration *event_declaration_copy(const event_declaration *declaration_src);

/** Returns the declaration's own inspectable, borrowed. */
QANDOR_API inspectable *event_declaration_get_inspectable(event_declaration *declaration);

/**
 * Declares a key whose value each event fills in. FALSE with a critical for a type other than
 * the four of value_type. A key declared again replaces the old one.
 */
QANDOR_API gboolean event_declaration_add_key(event_declaration *declaration, const gchar *key,
                                              guint32 value_type);

/**
 * Declares a key with a value, given in its type: a pointer to a gint, gboolean or gdouble, or the
 * string itself.
 */
QANDOR_API gboolean event_declaration_add_key_value(event_declaration *declaration,
                                                    const gchar *key, gconstpointer value,
                                                    guint32 value_type);

/** Sets the user string of the key's value; FALSE when there is no such key. */
QANDOR_API gboolean event_declaration_set_value_user_string(event_declaration *declaration,
                                                            const gchar *key,
                                                            const gchar *value_user_string);

/** Sets the display names of key and value, each unless NULL; FALSE when there is no such key. */
QANDOR_API gboolean event_declaration_set_nice_names(event_declaration *declaration,
                                                     const gchar *key, const gchar *key_nice_name,
                                                     const gchar *value_nice_name);

/** Sets the name space of the key (NULL: none); FALSE when there is no such key. */
QANDOR_API gboolean event_declaration_set_name_space(event_declaration *declaration,
                                                     const gchar *key, const gchar *name_space);

/** Sets the complex type name of the key (NULL: none); FALSE when there is no such key. */
QANDOR_API gboolean event_declaration_set_complex_type_name(event_declaration *declaration,
                                                            const gchar *key,
                                                            const gchar *complex_type_name);

/** Adds a tag to the key; FALSE when there is no such key. */
QANDOR_API gboolean event_declaration_add_key_tag(event_declaration *declaration, const gchar *key,
                                                  const gchar *tag);

/** Appends a tag of the whole declaration. */
QANDOR_API gboolean event_declaration_add_tag(event_declaration *declaration, const gchar *tag);

/** Sets the id that the event switch gave the producer. */
QANDOR_API void event_declaration_set_producer_id(event_declaration *declaration,
                                                  guint32 producer_id);
/** Returns the id that the event switch gave the producer. */
QANDOR_API guint32 event_declaration_get_producer_id(const event_declaration *declaration);

/** Sets the declaration's id in the whole system. */
QANDOR_API void event_declaration_set_global_id(event_declaration *declaration, guint32 global_id);
/** Returns the declaration's id in the whole system. */
QANDOR_API guint32 event_declaration_get_global_id(const event_declaration *declaration);

/** Sets the declaration's id inside its producer. */
QANDOR_API void event_declaration_set_local_id(event_declaration *declaration, guint32 local_id);
/** Returns the declaration's id inside its producer. */
QANDOR_API guint32 event_declaration_get_local_id(const event_declaration *declaration);

/**
 * Makes the declaration a property. @callback (or NULL) is called on the main context's thread to
 * fill the current state into an event; @callback_data stays the caller's. When @key is given it
 * is tagged "property-state"; FALSE when there is no such key.
 */
QANDOR_API gboolean event_declaration_set_property(event_declaration *declaration, const gchar *key,
                                                   event_declaration_property_callback callback,
                                                   gpointer callback_data);

/** Whether the declaration is a property. */
QANDOR_API gboolean event_declaration_is_property(const event_declaration *declaration);

/** Whether the declaration is internal. */
QANDOR_API gboolean event_declaration_is_internal(const event_declaration *declaration);

/** Whether events of this declaration can satisfy the expression. */
QANDOR_API gboolean event_declaration_contains(const event_declaration *declaration,
                                               const subscribe_expression *subscribe_expression);

/** Returns a new event of this type with the declaration's ids, ready to be filled. */
QANDOR_API event *event_declaration_generate_event(const event_declaration *declaration);

/**
 * Returns the current state of a property as a new complete event, filled by the callback and
 * stamped; NULL for a plain declaration and when a value stays open.
 */
QANDOR_API event *event_declaration_get_property_event(const event_declaration *declaration);

/** Returns a new buffer with the record; the caller frees it with g_array_unref(). */
QANDOR_API GArray *event_declaration_serialize(const event_declaration *declaration);

/** Appends the record to @array. */
QANDOR_API void event_declaration_serialize_internal(const event_declaration *declaration,
                                                     GArray *array);

/**
 * Reads a record from the buffer's beginning; the caller frees it. Malformed bytes are fatal. The
 * callback in it means something to the process that wrote it at most and must not be called.
 */
QANDOR_API event_declaration *event_declaration_deserialize(GArray *array);

/** Reads a record from *@indx on, as event_declaration_deserialize() does. */
QANDOR_API event_declaration *event_declaration_deserialize_internal(GArray *array, guint *indx);

/** Returns a new XML element "declare"; ids, property flag and callback are not in it. */
QANDOR_API xmlnode *event_declaration_serialize_xmlnode(const event_declaration *declaration);

/** Returns the XML form as a new text, which the caller frees with g_free(). */
QANDOR_API gchar *event_declaration_serialize_xml(const event_declaration *declaration);

/**
 * Reads an XML element "declare"; NULL with a warning for another or a malformed one. A key tagged
 * "property-state" makes it a property.
 */
QANDOR_API event_declaration *event_declaration_deserialize_xmlnode(const xmlnode *node);

/** Reads the XML form from a text; NULL with a warning when it cannot be read. */
QANDOR_API event_declaration *event_declaration_deserialize_xml(const gchar *xml);

/** Reads the XML form from a file; NULL, silently, when it is missing or no XML. */
QANDOR_API event_declaration *event_declaration_deserialize_xml_file(const gchar *path);

/**
 * Reads the declaration of an installed type: NAME.xml in /usr/share/event/declarations.d, else in
 * /etc/event_switch/declarations.d. NULL, silently, when neither is there.
 */
QANDOR_API event_declaration *event_declaration_new_from_type(const gchar *type);

/** Logs the declaration at message level, one line a log message. */
QANDOR_API void event_declaration_print(const event_declaration *declaration);

G_END_DECLS
