// SPDX-License-Identifier: LGPL-2.1-or-later

// Key-values to and from XML elements "keyvalue".

#include "model/keyvalue.hpp"

#include "model/xmlelements.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/xmlnode.hpp"

using namespace qandor;

xmlnode *key_value_serialize_xml(const key_value *key_value)
{
    CHECK(key_value != NULL);
    auto attribute = [key_value](Attribute which) { return key_value->attribute(which).data(); };

    xmlnode *node = new_element("keyvalue");
    xml_set_attribute(node, "key", key_value->key->text);
    xml_set_attribute(node, "name-space", attribute(Attribute::NameSpace));
    xml_set_attribute(node, "complex-type-name", attribute(Attribute::ComplexTypeName));
    xml_set_attribute(node, "key-nice-name", attribute(Attribute::KeyNiceName));
    xml_set_boolean(node, "key-wildcard", key_value->key_wildcard);
    xml_set_attribute(node, "value", key_value->value.c_str());
    xml_set_attribute(node, "value-nice-name", attribute(Attribute::ValueNiceName));
    xml_set_attribute(node, "value-user-string", attribute(Attribute::ValueUserString));
    xml_set_boolean(node, "value-wildcard", key_value->value_wildcard);
    xml_set_boolean(node, "not", key_value->negated);
    xml_set_value_type(node, "value-type", key_value->value_type);
    add_tag_elements(node, tags_of(key_value->tags));
    return node;
}

key_value *key_value_deserialize_xml(const xmlnode *node)
{
    CHECK(node != NULL);
    if (g_strcmp0(node->name, "keyvalue") != 0) {
        log_warning("Expected xml tag '%s' but got '%s'", "keyvalue", node->name);
        return nullptr;
    }
    auto text = [node](const gchar *name) { return xml_get_attribute(node, name); };

    key_value *made =
        key_value_new(text("key"), xml_get_boolean(node, "key-wildcard"), text("name-space"),
                      text("key-nice-name"), text("value"), xml_get_boolean(node, "value-wildcard"),
                      text("value-nice-name"), text("value-user-string"), text("complex-type-name"),
                      xml_get_boolean(node, "not"));
    if (!made)
        return nullptr;
    made->value_type = static_cast<guint8>(xml_get_value_type(node, "value-type"));
    for (GList *link = node->children; link; link = link->next) {
        auto *child = static_cast<const xmlnode *>(link->data);
        if (g_strcmp0(child->name, "tag") == 0)
            key_value_add_tag(made, xml_get_attribute(child, "tag"));
    }
    return made;
}
