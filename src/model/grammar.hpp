// SPDX-License-Identifier: LGPL-2.1-or-later

// The binary form of every record, described once. A Wire of wire.hpp says what happens to a field
// (measured, written, read, checked); a subject says where the fields are. docs/wire-format.md is
// this page in prose.
//
// The parts of a subject that repeat are visited by each(count, visit): a subject that is written
// visits what it holds, one that is read makes as many new parts as the count says.
#pragma once

#include "model/wire.hpp"

#include <string_view>

namespace qandor::grammar {

struct KeyValueFields {
    std::string_view key;
    gint key_wildcard = 0;
    std::string_view name_space;
    std::string_view key_nice_name;
    std::string_view value;
    gint value_wildcard = 0;
    std::string_view value_nice_name;
    std::string_view value_user_string;
    std::string_view complex_type_name;
    gint negated = 0;
    guint8 value_type = 0;
};

template <class Wire, class Tags> void tags(Wire &wire, Tags &&tags)
{
    guint32 count = wire.count16(static_cast<guint32>(tags.count()));
    tags.each(count, [&](auto &&tag) { wire.text(tag); });
}

template <class Wire, class KeyValue> void key_value(Wire &wire, KeyValue &&key_value)
{
    auto &fields = key_value.fields;
    wire.tag(SERIALIZE_ID_KEYVALUE, "type == SERIALIZE_ID_KEYVALUE");
    wire.text(fields.key);
    wire.bits8(fields.key_wildcard);
    wire.text(fields.name_space);
    wire.text(fields.key_nice_name);
    wire.text(fields.value);
    wire.bits8(fields.value_wildcard);
    wire.text(fields.value_nice_name);
    wire.text(fields.value_user_string);
    wire.text(fields.complex_type_name);
    wire.bits8(fields.negated);
    wire.bits8(fields.value_type);
    tags(wire, key_value.tags);
}

template <class Wire, class Bucket> void bucket(Wire &wire, Bucket &&bucket)
{
    guint32 count = wire.tagged_count(SERIALIZE_ID_BUCKET, "type == SERIALIZE_ID_BUCKET",
                                      static_cast<guint32>(bucket.count()));
    bucket.each(count, [&](auto &&part) { key_value(wire, part); });
}

template <class Wire, class AndList> void and_list(Wire &wire, AndList &&list)
{
    auto &&keyed = list.keyed();
    guint32 count = wire.tagged_count(SERIALIZE_ID_ANDLIST, "type == SERIALIZE_ID_ANDLIST",
                                      static_cast<guint32>(keyed.count()));
    keyed.each(count, [&](auto &&part) { bucket(wire, part); });

    auto &&wildcards = list.wildcards();
    count = wire.count16(static_cast<guint32>(wildcards.count()));
    wildcards.each(count, [&](auto &&part) { bucket(wire, part); });
}

template <class Wire, class Inspectable> void inspectable(Wire &wire, Inspectable &&inspect)
{
    guint32 count = wire.tagged_count(SERIALIZE_ID_INSPECTABLE, "type == SERIALIZE_ID_INSPECTABLE",
                                      static_cast<guint32>(inspect.count()));
    wire.bits8(inspect.type);
    inspect.begin();
    wire.bits8(inspect.internal);
    inspect.each(count, [&](auto &&part) { and_list(wire, part); });
    tags(wire, inspect.tags());
}

// The payload of an event or a notification: the bytes follow their size, if there are any.
template <class Wire> void user_data(Wire &wire, wire::Blob &blob)
{
    wire.bits16(blob.size);
    if (blob.size > 0)
        wire.blob(blob);
}

template <class Wire, class Event> void event(Wire &wire, Event &&event)
{
    wire.tag(SERIALIZE_ID_EVENT, "type == SERIALIZE_ID_EVENT");
    inspectable(wire, event.inspectable());
    user_data(wire, event.user_data);
    wire.signed32(event.seconds);
    wire.signed32(event.microseconds);
    wire.bits32(event.global_id);
    wire.bits32(event.local_id);
    wire.bits32(event.producer_id);
    wire.bits8(event.property);
}

template <class Wire, class Declaration>
void event_declaration(Wire &wire, Declaration &&declaration)
{
    wire.tag(SERIALIZE_ID_EVENT_DECLARATION, "type == SERIALIZE_ID_EVENT_DECLARATION");
    wire.bits32(declaration.producer_id);
    wire.bits32(declaration.local_id);
    wire.bits32(declaration.global_id);
    wire.bits8(declaration.property);
    wire.pointer(declaration.callback);
    wire.pointer(declaration.callback_data);
    inspectable(wire, declaration.inspectable());
}

template <class Wire, class Expression>
void subscribe_expression(Wire &wire, Expression &&expression)
{
    wire.tag(SERIALIZE_ID_SUBSCRIBE_EXPRESSION, "type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION");
    wire.bits32(expression.id);
    wire.text(expression.dbus_service);
    wire.text(expression.dbus_object);
    wire.bits32(expression.consumer_token);
    wire.bits8(expression.clandestine);
    inspectable(wire, expression.inspectable());
}

template <class Wire, class State> void property_state(Wire &wire, State &&state)
{
    wire.tag(SERIALIZE_ID_PROPERTY_STATE, "type == SERIALIZE_ID_PROPERTY_STATE");
    inspectable(wire, state.inspectable());
}

// The two nested records travel as blobs behind their sizes, each whole in itself.
template <class Wire, class Notification> void notification(Wire &wire, Notification &&notification)
{
    wire.tag(SERIALIZE_ID_NOTIFICATION, "type == SERIALIZE_ID_NOTIFICATION");
    user_data(wire, notification.user_data);
    wire.signed32(notification.seconds);
    wire.signed32(notification.microseconds);
    wire.bits32(notification.subscription_id);
    wire.bits32(notification.declaration_id);
    wire.bits8(notification.removed);
    wire.bits32(notification.expression.size);
    wire.blob(notification.expression);
    wire.bits32(notification.declaration.size);
    wire.blob(notification.declaration);
}

} // namespace qandor::grammar
