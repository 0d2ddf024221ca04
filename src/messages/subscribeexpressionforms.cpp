// SPDX-License-Identifier: LGPL-2.1-or-later

// Subscribe expressions to and from bytes and XML.

#include "messages/subscribeexpression.hpp"

#include "messages/xmltext.hpp"
#include "model/inspectablewire.hpp"
#include "model/serialize.hpp"
#include "platform/check.hpp"

#include <memory>

using namespace qandor;

namespace {

struct WrittenExpression {
    explicit WrittenExpression(const subscribe_expression &source)
        : source(source), id(source.id), dbus_service(source.dbus_service),
          dbus_object(source.dbus_object), consumer_token(source.consumer_token),
          clandestine(source.clandestine)
    {
    }
    WrittenInspectable inspectable() const { return WrittenInspectable(source.content); }

    const subscribe_expression &source;
    const guint32 id;
    const std::string_view dbus_service;
    const std::string_view dbus_object;
    const guint32 consumer_token;
    const gint clandestine;
};

struct ReadExpression {
    explicit ReadExpression(subscribe_expression &made)
        : made(made), id(made.id), consumer_token(made.consumer_token),
          clandestine(made.clandestine)
    {
    }
    ReadInspectable inspectable() { return ReadInspectable(made.content); }

    subscribe_expression &made;
    guint32 &id;
    std::string_view dbus_service;
    std::string_view dbus_object;
    guint32 &consumer_token;
    gint &clandestine;
};

} // namespace

void subscribe_expression_serialize_internal(const subscribe_expression *se, GArray *array)
{
    CHECK(se != NULL);
    CHECK(array != NULL);
    append_record(array,
                  [&](auto &wire) { grammar::subscribe_expression(wire, WrittenExpression(*se)); });
}

GArray *subscribe_expression_serialize(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    GArray *array = serialize_create_array();
    subscribe_expression_serialize_internal(se, array);
    return array;
}

subscribe_expression *subscribe_expression_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto made = std::make_unique<subscribe_expression>(FALSE);
    ReadExpression reading(*made);
    grammar::subscribe_expression(reader, reading);
    made->dbus_service = reading.dbus_service;
    made->dbus_object = reading.dbus_object;
    return made.release();
}

subscribe_expression *subscribe_expression_deserialize(GArray *array)
{
    RETURN_VALUE_IF_FAIL(array != NULL, nullptr);
    guint indx = 0;
    return subscribe_expression_deserialize_internal(array, &indx);
}

xmlnode *subscribe_expression_serialize_xmlnode(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return inspectable_to_element(se->content, XML_SUBSCRIBE);
}

gchar *subscribe_expression_serialize_xml(const subscribe_expression *se)
{
    RETURN_VALUE_IF_FAIL(se != NULL, nullptr);
    return element_to_text(subscribe_expression_serialize_xmlnode(se));
}

subscribe_expression *subscribe_expression_deserialize_xmlnode(const xmlnode *node)
{
    RETURN_VALUE_IF_FAIL(node != NULL, nullptr);
    InspectablePtr content = inspectable_from_element(node, XML_SUBSCRIBE, IT_SUBSCRIBE_EXPRESSION);
    if (!content)
        return nullptr;
    auto made = std::make_unique<subscribe_expression>(FALSE);
    made->content = std::move(*content);
    return made.release();
}

subscribe_expression *subscribe_expression_deserialize_xml(const gchar *xml)
{
    RETURN_VALUE_IF_FAIL(xml != NULL, nullptr);
    return static_cast<subscribe_expression *>(
        event_utils_deserialize_xml(xml, IT_SUBSCRIBE_EXPRESSION));
}
