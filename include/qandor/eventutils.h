/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * What the records share: value types and their texts, attributes of XML elements, and the pair
 * that fills a property's state key.
 *
 * Nothing here fails: what is absent reads as empty, FALSE or VALUE_TYPE_STRING. Any thread may use
 * these functions, one at a time for each XML tree.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>

G_BEGIN_DECLS

/** How the text of a value is to be interpreted. */
typedef enum {
    VALUE_TYPE_INT = 1,
    VALUE_TYPE_BOOL = 2,
    VALUE_TYPE_DOUBLE = 3,
    VALUE_TYPE_STRING = 4
} value_type;

/** What an inspectable holds; see inspectable.h. */
typedef enum {
    IT_EVENT_DECLARATION = 0,
    IT_EVENT = 1,
    IT_SUBSCRIBE_EXPRESSION = 2,
    IT_PROPERTY_STATE = 3
} inspectable_type;

/** The tag of the key whose value is the state of a property. */
#define PROPERTY_STATE_TAG "property-state"

/** An element of an XML tree, as the *_xmlnode functions make and read it. */
typedef struct xmlnode xmlnode;

/** A key and a value as text, with which a property's state key is filled. */
typedef struct callback_params callback_params;

/** Returns the attribute's value, borrowed from the node; "" when there is none, never NULL. */
QANDOR_API const gchar *xml_get_attribute(const xmlnode *node, const gchar *name);

/** Adds the attribute; a NULL or empty value leaves the node as it is. */
QANDOR_API void xml_set_attribute(xmlnode *node, const gchar *name, const gchar *value);

/** TRUE when the attribute is "true" in any ASCII case, else FALSE. */
QANDOR_API gboolean xml_get_boolean(const xmlnode *node, const gchar *name);

/** Adds the attribute as "true" when @value is exactly TRUE; else leaves the node as it is. */
QANDOR_API void xml_set_boolean(xmlnode *node, const gchar *name, gboolean value);

/**
 * Reads a value type, in any ASCII case: "int" or "integer", "bool" or "boolean", "double" or
 * "float"; anything else and nothing at all is VALUE_TYPE_STRING.
 */
QANDOR_API guint32 xml_get_value_type(const xmlnode *node, const gchar *name);

/** Writes "int", "bool" or "double"; any other type leaves the node as it is. */
QANDOR_API void xml_set_value_type(xmlnode *node, const gchar *name, guint32 value_type);

/**
 * Returns the text of a typed value, which the caller frees with g_free(); NULL for an unknown
 * type. @value points to a gint ("%d"), a gboolean ("1" or "0"), a gdouble ("%f" with a point in
 * every locale), or is the string itself.
 */
QANDOR_API gchar *event_utils_value_type_to_string(gconstpointer value, guint32 value_type);

/** Whether two lists hold the same strings, in any order, duplicates counted. */
QANDOR_API gboolean event_utils_tag_list_is_equal(GList *list1, GList *list2);

/**
 * Reads an event declaration, a subscribe expression or a property state (as @type, one of
 * inspectable_type, says) from an XML text. The caller owns the object and frees it with the free
 * function of its type.
 *
 * Returns NULL with a warning for a text that is no XML or is another element. A NULL text is a
 * critical and NULL. Events have no XML form: IT_EVENT, like any other number, is fatal.
 */
QANDOR_API gpointer event_utils_deserialize_xml(const gchar *xml, guint32 type);

/** Returns a new pair with copies of both texts, either of which may be NULL. */
QANDOR_API callback_params *callback_params_new(const gchar *key, const gchar *value);

/** Frees the pair and its texts; NULL is ignored. */
QANDOR_API void callback_params_free(callback_params *params);

G_END_DECLS
