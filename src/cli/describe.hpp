// SPDX-License-Identifier: LGPL-2.1-or-later

// Events and declarations in words for people and as JSON for programs.
#pragma once

#include "cli/json.hpp"

#include <qandor/qandor.hpp>

#include <optional>
#include <string>
#include <vector>

namespace qandor::cli {

// One key of an event or of a declaration, with all there is about it.
struct KeyView {
    std::string key, value, name_space, nice_name, value_nice_name, complex_type, user_string;
    guint32 type = VALUE_TYPE_STRING;
    bool has_value = false;
    std::vector<std::string> tags;

    bool is_state() const;
    // The number of the topic that the key says, or -1.
    int topic_depth() const;
};

// Topics by their number, then the rest by name.
bool comes_before(const KeyView &one, const KeyView &other);

// The keys in the order in which people want them: topics first, the others by name.
std::vector<KeyView> keys_of(const Event &event);

// "int", "bool", "double" or "string".
const char *type_name(guint32 type);

// The topics of the keys, the first ones first, up to one that is missing, open or empty.
std::vector<KeyView> topics_of(const std::vector<KeyView> &keys);
// "Device/Load"; "-" without topics.
std::string topic_path(const std::vector<KeyView> &keys);

// "load:double available:int state:bool* unit=1": the keys that are no topics. A star is the state.
std::string keys_text(const std::vector<KeyView> &keys);
// "load=0.5 available=512": values of an event, without its topics.
std::string values_text(const std::vector<KeyView> &keys);

// "event", "property", and "internal" in front of either.
std::string kind_of(const Declaration &declaration);

// The payload as far as it is text; nothing when there is none.
std::optional<std::string> payload_of(const Event &event);
std::optional<std::string> payload_of(const Notification &notification);

// Values in their own types, as far as their texts are of them.
Json json_value(const KeyView &key);
Json json_of(const Event &event);
Json json_of(const Declaration &declaration);
Json json_of(const KeyView &key);
Json json_keys(const std::vector<KeyView> &keys);

// Seconds since the epoch with their fraction as local time of the day, and as ISO 8601 in UTC.
std::string clock_time(std::chrono::system_clock::time_point time);
std::string iso_time(std::chrono::system_clock::time_point time);

} // namespace qandor::cli
