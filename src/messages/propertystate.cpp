// SPDX-License-Identifier: LGPL-2.1-or-later

// Property states and the two expressions that come from them.

#include "messages/propertystate.hpp"

#include "messages/xmltext.hpp"
#include "model/inspectablewire.hpp"
#include "model/serialize.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

#include <string>

using namespace qandor;

property_state *property_state_new(void)
{
    return new property_state();
}

void property_state_free(property_state *prop)
{
    delete prop;
}

namespace {

bool is_state_key_at(const property_state &prop, guint position)
{
    return inspectable_has_tag_at(&prop.content, position, PROPERTY_STATE_TAG);
}

// Whether the state has no key of the name yet, nor a state key where one more is to come.
bool has_room_for(const property_state &prop, const gchar *key, bool is_state_key)
{
    if (prop.content.find(key))
        return false;
    return !is_state_key || !inspectable_has_keyvalue_with_tag(&prop.content, PROPERTY_STATE_TAG);
}

void add_condition(subscribe_expression *se, const gchar *key, const gchar *value, bool is_inverted)
{
    if (!is_inverted) {
        subscribe_expression_add_key_value(se, key, value);
        return;
    }
    subscribe_expression_add_key(se, key);
    subscribe_expression_add_key_not_value(se, key, value);
}

std::unique_ptr<subscribe_expression>
property_state_to_subscribe_expression(const property_state *prop, bool inverted)
{
    RETURN_VALUE_IF_FAIL(prop != NULL, nullptr);
    auto se = std::make_unique<subscribe_expression>(FALSE);
    const inspectable *inspect = &prop->content;
    for (guint i = 0; i < inspectable_get_key_count(inspect); ++i) {
        const gchar *key = inspectable_get_key_at(inspect, i);
        add_condition(se.get(), key, inspectable_get_value_at(inspect, i),
                      inverted && is_state_key_at(*prop, i));
        subscribe_expression_set_name_space(se.get(), key,
                                            inspectable_get_name_space_at(inspect, i));
    }
    return se;
}

void property_state_generate_subscribe_expressions(property_state *prop)
{
    CHECK(!prop->locked);
    prop->expression = property_state_to_subscribe_expression(prop, false);
    prop->inverted_expression = property_state_to_subscribe_expression(prop, true);
    prop->locked = true;
}

struct WrittenState {
    const property_state &source;
    WrittenInspectable inspectable() const { return WrittenInspectable(source.content); }
};

struct ReadState {
    property_state &made;
    ReadInspectable inspectable() { return ReadInspectable(made.content); }
};

} // namespace

gboolean property_state_add_key_value(property_state *self, const gchar *key, const gchar *value,
                                      gboolean is_state_key)
{
    RETURN_VALUE_IF_FAIL(!self->locked, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(value != NULL, FALSE);
    if (!has_room_for(*self, key, is_state_key))
        return FALSE;
    if (!inspectable_add_key_value(&self->content, key, FALSE, value, FALSE, FALSE))
        return FALSE;
    return is_state_key ? inspectable_add_key_tag(&self->content, key, PROPERTY_STATE_TAG) : TRUE;
}

gboolean property_state_set_name_space(property_state *self, const gchar *key,
                                       const gchar *name_space)
{
    RETURN_VALUE_IF_FAIL(self != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(key != NULL, FALSE);
    return inspectable_set_name_space(&self->content, key, name_space);
}

subscribe_expression *property_state_get_subscribe_expression(property_state *self)
{
    RETURN_VALUE_IF_FAIL(self != NULL, nullptr);
    if (!self->locked)
        property_state_generate_subscribe_expressions(self);
    CHECK(self->locked);
    return self->expression.get();
}

subscribe_expression *property_state_get_inverted_subscribe_expression(property_state *self)
{
    RETURN_VALUE_IF_FAIL(self != NULL, nullptr);
    if (!self->locked)
        property_state_generate_subscribe_expressions(self);
    CHECK(self->locked);
    return self->inverted_expression.get();
}

inspectable *property_state_get_inspectable(property_state *prop)
{
    RETURN_VALUE_IF_FAIL(prop != NULL, nullptr);
    return &prop->content;
}

void property_state_serialize_internal(const property_state *ps, GArray *array)
{
    CHECK(ps != NULL);
    CHECK(array != NULL);
    append_record(array, [&](auto &wire) { grammar::property_state(wire, WrittenState{*ps}); });
}

GArray *property_state_serialize(const property_state *ps)
{
    RETURN_VALUE_IF_FAIL(ps != NULL, nullptr);
    GArray *array = serialize_create_array();
    property_state_serialize_internal(ps, array);
    return array;
}

property_state *property_state_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto property_state = std::make_unique<struct property_state>();
    ReadState reading{*property_state};
    grammar::property_state(reader, reading);
    property_state_generate_subscribe_expressions(property_state.get());
    CHECK(property_state->locked);
    return property_state.release();
}

property_state *property_state_deserialize(GArray *array)
{
    RETURN_VALUE_IF_FAIL(array != NULL, nullptr);
    guint indx = 0;
    return property_state_deserialize_internal(array, &indx);
}

xmlnode *property_state_serialize_xmlnode(const property_state *ps)
{
    RETURN_VALUE_IF_FAIL(ps != NULL, nullptr);
    return inspectable_to_element(ps->content, XML_PROPERTY);
}

gchar *property_state_serialize_xml(const property_state *ps)
{
    RETURN_VALUE_IF_FAIL(ps != NULL, nullptr);
    return element_to_text(property_state_serialize_xmlnode(ps));
}

property_state *property_state_deserialize_xmlnode(const xmlnode *node)
{
    RETURN_VALUE_IF_FAIL(node != NULL, nullptr);
    InspectablePtr content = inspectable_from_element(node, XML_PROPERTY, IT_PROPERTY_STATE);
    if (!content)
        return nullptr;

    auto made = std::make_unique<property_state>();
    made->content = std::move(*content);
    gint state_keys = 0;
    for (guint i = 0; i < inspectable_get_key_count(&made->content); ++i)
        state_keys += is_state_key_at(*made, i);
    if (state_keys != 1) {
        log_warning("Expected to find 1 keyvalue tagged with '%s' but found %d", PROPERTY_STATE_TAG,
                    state_keys);
        return nullptr;
    }
    property_state_generate_subscribe_expressions(made.get());
    return made.release();
}

property_state *property_state_deserialize_xml(const gchar *xml)
{
    RETURN_VALUE_IF_FAIL(xml != NULL, nullptr);
    return static_cast<property_state *>(event_utils_deserialize_xml(xml, IT_PROPERTY_STATE));
}

void property_state_print(const property_state *self)
{
    RETURN_IF_FAIL(self != NULL);
    log_message("----------- Property State ------------");
    inspectable_print(&self->content);
    log_message("---------------------------------------");
}
