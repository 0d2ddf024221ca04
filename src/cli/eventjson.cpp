// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/eventjson.hpp"

#include "cli/describe.hpp"
#include "cli/owners.hpp"

#include <cmath>
#include <cstring>

namespace qandor::cli {
namespace {

Json json_topics(const std::vector<KeyView> &keys)
{
    Json topics = Json::array();
    for (const KeyView &topic : topics_of(keys))
        topics.push_back(topic.value);
    return topics;
}

void add_text(Json &to, const char *name, const std::string &text)
{
    if (!text.empty())
        to[name] = text;
}

// The library tells neither the payload's size nor that it ends with a NUL.
std::optional<std::string> text_of_payload(gpointer copy, std::size_t size)
{
    detail::Text owner(static_cast<gchar *>(copy));
    if (!owner)
        return std::nullopt;
    return std::string(owner.get(), strnlen(owner.get(), size));
}

} // namespace

Json json_value(const KeyView &key)
{
    if (!key.has_value)
        return nullptr;
    if (key.type == VALUE_TYPE_INT)
        if (auto number = detail::value_of<gint64>(key.value))
            return *number;
    if (key.type == VALUE_TYPE_BOOL)
        if (auto truth = detail::value_of<bool>(key.value))
            return *truth;
    if (key.type == VALUE_TYPE_DOUBLE)
        if (auto number = detail::value_of<double>(key.value); number && std::isfinite(*number))
            return *number;
    return key.value;
}

Json json_of(const KeyView &key)
{
    Json json{{"key", key.key}, {"type", type_name(key.type)}, {"open", !key.has_value}};
    if (key.has_value)
        json["value"] = json_value(key);
    add_text(json, "name_space", key.name_space);
    add_text(json, "nice_name", key.nice_name);
    add_text(json, "value_nice_name", key.value_nice_name);
    add_text(json, "value_user_string", key.user_string);
    add_text(json, "complex_type", key.complex_type);
    if (!key.tags.empty())
        json["tags"] = key.tags;
    return json;
}

Json json_keys(const std::vector<KeyView> &keys)
{
    Json json = Json::array();
    for (const KeyView &key : keys)
        json.push_back(json_of(key));
    return json;
}

// What is no payload in an event's record: its tag, its keys, the payload's size, two times, three
// ids and a flag.
std::optional<std::string> payload_of(const Event &event)
{
    Bytes record(event_serialize(event.c()));
    Bytes keys(serialize_create_array());
    inspectable_serialize_internal(event_get_inspectable(event.c()), keys.get());
    std::size_t others = 1 + keys->len + 2 + 2 * 4 + 3 * 4 + 1;
    return text_of_payload(event_get_user_data(event.c()), record->len - others);
}

// The size stands behind the record's tag.
std::optional<std::string> payload_of(const Notification &notification)
{
    Bytes record(notification_serialize(notification.c()));
    guint place = 1;
    return text_of_payload(notification_get_user_data(notification.c()),
                           deserialize_16bit(record.get(), &place));
}

Json json_of(const Event &event)
{
    std::vector<KeyView> keys = keys_of(event);
    Json values = Json::object();
    for (const KeyView &key : keys)
        values[key.key] = json_value(key);
    Json json{{"time", iso_time(event.time())},
              {"topics", json_topics(keys)},
              {"property", event.is_property()},
              {"internal", event_is_internal(event.c()) != FALSE},
              {"declaration", event_get_global_id(event.c())},
              {"producer", event_get_producer_id(event.c())},
              {"values", values},
              {"keys", json_keys(keys)},
              {"tags", event.tags()}};
    if (std::optional<std::string> payload = payload_of(event))
        json["payload"] = *payload;
    return json;
}

Json json_of(const Declaration &declaration)
{
    Event sample = declaration.sample();
    std::vector<KeyView> keys = keys_of(sample);
    return {{"declaration", declaration.global_id()},
            {"producer", event_declaration_get_producer_id(declaration.c())},
            {"topics", json_topics(keys)},
            {"property", declaration.is_property()},
            {"internal", declaration.is_internal()},
            {"keys", json_keys(keys)},
            {"tags", sample.tags()}};
}

} // namespace qandor::cli
