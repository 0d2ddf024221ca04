// SPDX-License-Identifier: LGPL-2.1-or-later

// Records as bytes, for peers that speak without the library's bus objects.
#pragma once

#include "support/records.hpp"

#include <string>

namespace qandor::test {

inline std::string take_bytes(GArray *array)
{
    Owned<GArray> owner(array);
    return {array->data, array->len};
}

inline Owned<GArray> array_from(const std::string &bytes)
{
    Owned<GArray> array(serialize_create_array());
    g_array_append_vals(array.get(), bytes.data(), static_cast<guint>(bytes.size()));
    return array;
}

// Sends an event to whom a Subscribe call, of which these are the bytes, wants it sent.
template <class Peer>
void send_to_subscriber(Peer &peer, const std::string &subscribe, const std::string &event)
{
    Owned<subscribe_expression> expression(
        subscribe_expression_deserialize(array_from(subscribe).get()));
    peer.send_event(subscribe_expression_get_dbus_service(expression.get()),
                    subscribe_expression_get_dbus_object(expression.get()), event,
                    subscribe_expression_get_consumer_token(expression.get()));
}

inline std::string declaration_bytes(const char *topic, guint32 local_id, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
    event_declaration_set_local_id(declaration.get(), local_id);
    return take_bytes(event_declaration_serialize(declaration.get()));
}

inline std::string expression_bytes(const char *topic)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return take_bytes(subscribe_expression_serialize(expression.get()));
}

// A property's event with its state filled in.
inline std::string event_bytes(const char *topic, const char *state)
{
    Owned<GArray> bytes = array_from(declaration_bytes(topic, 1, true));
    Owned<event_declaration> declaration(event_declaration_deserialize(bytes.get()));
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    event_set_value(event.get(), "state", state);
    set_event_time_now(event.get());
    return take_bytes(event_serialize(event.get()));
}

// The declarations of a serialized list.
inline std::vector<Owned<event_declaration>> read_list(const std::string &bytes)
{
    Owned<GArray> array = array_from(bytes);
    guint index = 0;
    std::vector<Owned<event_declaration>> list;
    for (guint32 left = deserialize_32bit(array.get(), &index); left > 0; --left)
        list.emplace_back(event_declaration_deserialize_internal(array.get(), &index));
    return list;
}

} // namespace qandor::test
