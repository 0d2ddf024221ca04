// SPDX-License-Identifier: LGPL-2.1-or-later

// XML texts to objects and back.

#include "messages/xmltext.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <qandor/eventdeclaration.h>
#include <qandor/propertystate.h>
#include <qandor/subscribeexpression.h>

using namespace qandor;

xmlnode *qandor::inspectable_to_element(const inspectable &inspect, const gchar *name)
{
    xmlnode *node = inspectable_serialize_xml(&inspect);
    node->name = g_strdup(name);
    return node;
}

InspectablePtr qandor::inspectable_from_element(const xmlnode *node, const gchar *name,
                                                guint32 type)
{
    if (g_strcmp0(node->name, name) != 0) {
        log_warning("Expected tag '%s' and got '%s'", name, node->name);
        return nullptr;
    }
    return InspectablePtr(inspectable_deserialize_xml(node, type));
}

gchar *qandor::element_to_text(xmlnode *node)
{
    CHECK(node != NULL);
    XmlTreeOwner tree(node);
    return xmlnode_get_xml(node);
}

namespace {

gpointer deserialize_xmlnode(const xmlnode *node, guint32 type)
{
    switch (type) {
    case IT_EVENT_DECLARATION:
        return event_declaration_deserialize_xmlnode(node);
    case IT_SUBSCRIBE_EXPRESSION:
        return subscribe_expression_deserialize_xmlnode(node);
    case IT_PROPERTY_STATE:
        return property_state_deserialize_xmlnode(node);
    default:
        log_critical("Unknown type to deserialize: %d", static_cast<gint>(type));
        CHECK_TEXT(false, "FALSE");
        return nullptr;
    }
}

} // namespace

gpointer event_utils_deserialize_xml(const gchar *xml, guint32 type)
{
    RETURN_VALUE_IF_FAIL(xml != NULL, nullptr);
    XmlTreeOwner tree(xmlnode_parse_string(xml));
    if (!tree) {
        log_warning("Could not parse XML '%s'", xml);
        return nullptr;
    }
    gpointer made = deserialize_xmlnode(tree.get(), type);
    if (!made) {
        TextOwner document(xmlnode_get_xml(tree.get()));
        log_warning("Failed when deserializing '%s'", document.get());
    }
    return made;
}
