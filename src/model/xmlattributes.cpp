// SPDX-License-Identifier: LGPL-2.1-or-later

// Attributes of XML elements as texts, booleans and value types. What would read back as the
// default is never written.

#include "platform/xmlnode.hpp"

#include <qandor/eventutils.h>

namespace {

bool is_one_of(const gchar *text, const gchar *spelling1, const gchar *spelling2)
{
    return g_ascii_strcasecmp(text, spelling1) == 0 || g_ascii_strcasecmp(text, spelling2) == 0;
}

} // namespace

const gchar *xml_get_attribute(const xmlnode *node, const gchar *name)
{
    const gchar *value = xmlnode_get_attribute_value(node, name);
    return value ? value : "";
}

void xml_set_attribute(xmlnode *node, const gchar *name, const gchar *value)
{
    if (value && *value)
        xmlnode_add_attribute(node, name, value);
}

gboolean xml_get_boolean(const xmlnode *node, const gchar *name)
{
    return g_ascii_strcasecmp(xml_get_attribute(node, name), "true") == 0;
}

void xml_set_boolean(xmlnode *node, const gchar *name, gboolean value)
{
    if (value == TRUE)
        xml_set_attribute(node, name, "true");
}

guint32 xml_get_value_type(const xmlnode *node, const gchar *name)
{
    const gchar *text = xml_get_attribute(node, name);
    if (is_one_of(text, "int", "integer"))
        return VALUE_TYPE_INT;
    if (is_one_of(text, "bool", "boolean"))
        return VALUE_TYPE_BOOL;
    if (is_one_of(text, "double", "float"))
        return VALUE_TYPE_DOUBLE;
    return VALUE_TYPE_STRING;
}

void xml_set_value_type(xmlnode *node, const gchar *name, guint32 value_type)
{
    switch (value_type) {
    case VALUE_TYPE_INT:
        xml_set_attribute(node, name, "int");
        break;
    case VALUE_TYPE_BOOL:
        xml_set_attribute(node, name, "bool");
        break;
    case VALUE_TYPE_DOUBLE:
        xml_set_attribute(node, name, "double");
        break;
    }
}
