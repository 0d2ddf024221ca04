// SPDX-License-Identifier: LGPL-2.1-or-later

// Inspectables to and from XML: an element "expression" for each and-list, one "tag" for each tag.

#include "model/inspectable.hpp"

#include "model/xmlelements.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

using namespace qandor;

namespace {

constexpr const gchar *XML_EXPRESSION = "expression";
constexpr const gchar *XML_TAG = "tag";

void add_key_values(xmlnode *node, Buckets buckets)
{
    for (Bucket bucket : buckets)
        for (const key_value &key_value : bucket)
            xmlnode_add_child(node, key_value_serialize_xml(&key_value));
}

bool inspectable_deserialize_expression(inspectable &inspect, const xmlnode *expression)
{
    for (GList *link = expression->children; link; link = link->next) {
        KeyValuePtr key_value(key_value_deserialize_xml(static_cast<const xmlnode *>(link->data)));
        if (!key_value) {
            log_warning("Could not deserialize expression");
            return false;
        }
        inspect.add_key_value_internal(std::move(*key_value));
    }
    return true;
}

// Reads one child of an element named parent.
bool read_child(inspectable &inspect, const xmlnode *parent, const xmlnode *child, bool &is_first)
{
    if (g_strcmp0(child->name, XML_TAG) == 0)
        return inspectable_add_tag(&inspect, xml_get_attribute(child, XML_TAG));

    if (g_strcmp0(child->name, XML_EXPRESSION) != 0) {
        log_warning("Expected xml tag '%s' or '%s' and got '%s'", XML_EXPRESSION, XML_TAG,
                    parent->name);
        return false;
    }
    if (!is_first && !inspectable_or(&inspect))
        return false;
    is_first = false;
    return inspectable_deserialize_expression(inspect, child);
}

} // namespace

xmlnode *inspectable_serialize_xml(const inspectable *insp)
{
    CHECK(insp != NULL);
    xmlnode *node = xmlnode_create_node();
    for (const AndList &list : insp->and_lists) {
        xmlnode *expression = new_element(XML_EXPRESSION);
        add_key_values(expression, list.keyed());
        add_key_values(expression, list.wildcards());
        xmlnode_add_child(node, expression);
    }
    add_tag_elements(node, insp->tags);
    return node;
}

inspectable *inspectable_deserialize_xml(const xmlnode *node, guint32 type)
{
    CHECK(node != NULL);
    if (!node->children) {
        log_warning("There are no expressions in the xml");
        return nullptr;
    }
    InspectablePtr inspect(inspectable_new(type));
    bool is_first = true;
    for (GList *link = node->children; link; link = link->next)
        if (!read_child(*inspect, node, static_cast<const xmlnode *>(link->data), is_first))
            return nullptr;
    return inspect.release();
}
