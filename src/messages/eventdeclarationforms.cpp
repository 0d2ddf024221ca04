// SPDX-License-Identifier: LGPL-2.1-or-later

// Event declarations to and from bytes, XML and the files of installed types.

#include "messages/eventdeclaration.hpp"

#include "messages/xmltext.hpp"
#include "model/inspectablewire.hpp"
#include "model/serialize.hpp"
#include "platform/check.hpp"
#include "platform/owners.hpp"

#include <memory>

using namespace qandor;

namespace {

// The callback travels as the low half of its address, which means something to its own process at
// most and is never called by another.
struct WrittenDeclaration {
    explicit WrittenDeclaration(const event_declaration &source)
        : source(source), producer_id(source.producer_id), local_id(source.local_id),
          global_id(source.global_id), property(source.property),
          callback(reinterpret_cast<gconstpointer>(source.callback)),
          callback_data(source.callback_data)
    {
    }
    WrittenInspectable inspectable() const { return WrittenInspectable(source.content); }

    const event_declaration &source;
    const guint32 producer_id;
    const guint32 local_id;
    const guint32 global_id;
    const gint property;
    const gconstpointer callback;
    const gconstpointer callback_data;
};

struct ReadDeclaration {
    explicit ReadDeclaration(event_declaration &made)
        : made(made), producer_id(made.producer_id), local_id(made.local_id),
          global_id(made.global_id), property(made.property), callback_data(made.callback_data)
    {
    }
    ReadInspectable inspectable() { return ReadInspectable(made.content); }

    event_declaration &made;
    guint32 &producer_id;
    guint32 &local_id;
    guint32 &global_id;
    gint &property;
    gpointer callback = nullptr;
    gpointer &callback_data;
};

} // namespace

void event_declaration_serialize_internal(const event_declaration *declaration, GArray *array)
{
    CHECK(declaration != NULL);
    CHECK(array != NULL);
    append_record(array, [&](auto &wire) {
        grammar::event_declaration(wire, WrittenDeclaration(*declaration));
    });
}

GArray *event_declaration_serialize(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    GArray *array = serialize_create_array();
    event_declaration_serialize_internal(declaration, array);
    return array;
}

event_declaration *event_declaration_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto made = std::make_unique<event_declaration>(FALSE);
    ReadDeclaration reading(*made);
    grammar::event_declaration(reader, reading);
    made->callback = reinterpret_cast<event_declaration_property_callback>(reading.callback);
    return made.release();
}

event_declaration *event_declaration_deserialize(GArray *array)
{
    RETURN_VALUE_IF_FAIL(array != NULL, nullptr);
    guint indx = 0;
    return event_declaration_deserialize_internal(array, &indx);
}

xmlnode *event_declaration_serialize_xmlnode(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    xmlnode *node = inspectable_to_element(declaration->content, XML_DECLARE);
    xml_set_boolean(node, "internal", declaration->content.internal);
    return node;
}

gchar *event_declaration_serialize_xml(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    return element_to_text(event_declaration_serialize_xmlnode(declaration));
}

event_declaration *event_declaration_deserialize_xmlnode(const xmlnode *node)
{
    RETURN_VALUE_IF_FAIL(node != NULL, nullptr);
    InspectablePtr content = inspectable_from_element(node, XML_DECLARE, IT_EVENT_DECLARATION);
    if (!content)
        return nullptr;
    content->internal = xml_get_boolean(node, "internal");
    auto made = std::make_unique<event_declaration>(content->internal);
    made->property = inspectable_has_keyvalue_with_tag(content.get(), PROPERTY_STATE_TAG);
    made->content = std::move(*content);
    return made.release();
}

event_declaration *event_declaration_deserialize_xml(const gchar *xml)
{
    RETURN_VALUE_IF_FAIL(xml != NULL, nullptr);
    return static_cast<event_declaration *>(event_utils_deserialize_xml(xml, IT_EVENT_DECLARATION));
}

event_declaration *event_declaration_deserialize_xml_file(const gchar *path)
{
    RETURN_VALUE_IF_FAIL(path != NULL, nullptr);
    XmlTreeOwner tree(xmlnode_load_file(path));
    return tree ? event_declaration_deserialize_xmlnode(tree.get()) : nullptr;
}

event_declaration *event_declaration_new_from_type(const gchar *type)
{
    RETURN_VALUE_IF_FAIL(type != NULL, nullptr);
    // Types that are part of the system come before those that were added to it.
    TextOwner shipped(
        g_strdup_printf("//usr/share/event/declarations.d%c%s.xml", G_DIR_SEPARATOR, type));
    if (event_declaration *made = event_declaration_deserialize_xml_file(shipped.get()))
        return made;
    TextOwner added(
        g_strdup_printf("//etc/event_switch/declarations.d%c%s.xml", G_DIR_SEPARATOR, type));
    return event_declaration_deserialize_xml_file(added.get());
}
