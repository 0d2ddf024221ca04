// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/describe.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

namespace qandor::cli {
namespace {

using qandor::detail::string_of;
using qandor::detail::take_reversed_strings;

constexpr const char *state_tag = "property-state";

KeyView key_at(const Event &event, guint place)
{
    const ::event *of = event.c();
    KeyView view;
    view.key = string_of(event_get_key_at(of, place));
    const char *key = view.key.c_str();
    view.value = string_of(event_get_value_at(of, place));
    view.name_space = string_of(event_get_name_space_at(of, place));
    view.complex_type = string_of(event_get_complex_type_name_at(of, place));
    view.nice_name = string_of(event_get_key_nice_name(of, key));
    view.value_nice_name = string_of(event_get_value_nice_name(of, key));
    view.user_string = string_of(event_get_value_user_string(of, key));
    view.type = event_get_type_at(of, place);
    view.has_value = event_has_value_at(of, place);
    view.tags = take_reversed_strings(event_get_tags_at(of, place));
    return view;
}

std::string shown_key(const KeyView &key)
{
    std::string name = printable_word(key.key);
    return key.name_space.empty() ? name : printable_word(key.name_space) + ":" + name;
}

template <class Show> std::string joined(const std::vector<KeyView> &keys, Show show)
{
    std::size_t topics = topics_of(keys).size();
    std::string text;
    for (const KeyView &key : keys)
        if (key.topic_depth() < 0 || static_cast<std::size_t>(key.topic_depth()) >= topics)
            text += (text.empty() ? "" : " ") + show(key);
    return text;
}

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

std::string formatted(std::chrono::system_clock::time_point time, bool utc, const char *format)
{
    auto usec =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    gint64 seconds = usec / G_USEC_PER_SEC - (usec % G_USEC_PER_SEC < 0 ? 1 : 0);
    GDateTime *made =
        utc ? g_date_time_new_from_unix_utc(seconds) : g_date_time_new_from_unix_local(seconds);
    if (!made)
        return "?";
    detail::Text text(g_date_time_format(made, format));
    g_date_time_unref(made);
    return text.get();
}

std::string fraction(std::chrono::system_clock::time_point time, int digits)
{
    auto usec =
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    auto part = std::to_string(1000000 + (usec % 1000000 + 1000000) % 1000000);
    return part.substr(1, static_cast<std::size_t>(digits));
}

} // namespace

bool KeyView::is_state() const
{
    return std::find(tags.begin(), tags.end(), state_tag) != tags.end();
}

int KeyView::topic_depth() const
{
    guint64 depth = 0;
    bool is_topic =
        key.starts_with("topic") &&
        g_ascii_string_to_unsigned(key.c_str() + std::strlen("topic"), 10, 0, 999, &depth, nullptr);
    return is_topic ? static_cast<int>(depth) : -1;
}

bool comes_before(const KeyView &one, const KeyView &other)
{
    int depth = one.topic_depth(), other_depth = other.topic_depth();
    if (depth >= 0 && other_depth >= 0)
        return depth < other_depth;
    if (depth >= 0 || other_depth >= 0)
        return depth >= 0;
    return one.key < other.key;
}

std::vector<KeyView> keys_of(const Event &event)
{
    std::vector<KeyView> keys;
    for (guint i = 0; i < event_get_key_count(event.c()); ++i)
        keys.push_back(key_at(event, i));
    std::sort(keys.begin(), keys.end(), comes_before);
    return keys;
}

const char *type_name(guint32 type)
{
    switch (type) {
    case VALUE_TYPE_INT:
        return "int";
    case VALUE_TYPE_BOOL:
        return "bool";
    case VALUE_TYPE_DOUBLE:
        return "double";
    default:
        return "string";
    }
}

std::vector<KeyView> topics_of(const std::vector<KeyView> &keys)
{
    std::vector<KeyView> topics;
    for (const KeyView &key : keys) {
        bool is_next = key.topic_depth() == static_cast<int>(topics.size());
        if (is_next && key.has_value && !key.value.empty())
            topics.push_back(key);
    }
    return topics;
}

std::string topic_path(const std::vector<KeyView> &keys)
{
    std::string path;
    for (const KeyView &topic : topics_of(keys)) {
        std::string space = topic.name_space.empty() ? "" : printable(topic.name_space) + ":";
        path += (path.empty() ? "" : "/") + space + printable(topic.value);
    }
    return path.empty() ? "-" : path;
}

std::string keys_text(const std::vector<KeyView> &keys)
{
    return joined(keys, [](const KeyView &key) {
        std::string state = key.is_state() ? "*" : "";
        return shown_key(key) + (key.has_value ? "=" + printable_word(key.value) + state
                                               : std::string(":") + type_name(key.type) + state);
    });
}

std::string values_text(const std::vector<KeyView> &keys)
{
    return joined(keys, [](const KeyView &key) {
        return shown_key(key) + "=" + (key.has_value ? printable_word(key.value) : "?");
    });
}

std::string kind_of(const Declaration &declaration)
{
    return std::string(declaration.is_internal() ? "internal " : "") +
           (declaration.is_property() ? "property" : "event");
}

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

namespace {

using Array = std::unique_ptr<GArray, decltype(&g_array_unref)>;

// The library tells neither the payload's size nor that it ends with a NUL.
std::optional<std::string> text_of_payload(gpointer copy, std::size_t size)
{
    detail::Text owner(static_cast<gchar *>(copy));
    if (!owner)
        return std::nullopt;
    return std::string(owner.get(), strnlen(owner.get(), size));
}

} // namespace

// What is no payload in an event's record: its tag, its keys, the payload's size, two times, three
// ids and a flag.
std::optional<std::string> payload_of(const Event &event)
{
    Array record(event_serialize(event.c()), g_array_unref);
    Array keys(serialize_create_array(), g_array_unref);
    inspectable_serialize_internal(event_get_inspectable(event.c()), keys.get());
    std::size_t others = 1 + keys->len + 2 + 2 * 4 + 3 * 4 + 1;
    return text_of_payload(event_get_user_data(event.c()), record->len - others);
}

// The size stands behind the record's tag.
std::optional<std::string> payload_of(const Notification &notification)
{
    Array record(notification_serialize(notification.c()), g_array_unref);
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

std::string clock_time(std::chrono::system_clock::time_point time)
{
    return formatted(time, false, "%H:%M:%S.") + fraction(time, 3);
}

std::string iso_time(std::chrono::system_clock::time_point time)
{
    return formatted(time, true, "%Y-%m-%dT%H:%M:%S.") + fraction(time, 6) + "Z";
}

} // namespace qandor::cli
