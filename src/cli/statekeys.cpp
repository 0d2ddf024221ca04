// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/statekeys.hpp"

#include <algorithm>

namespace qandor::cli {

std::vector<KeyView> keys_of(const PropertyState &state)
{
    inspectable *content = property_state_get_inspectable(state.c());
    std::vector<KeyView> keys;
    for (guint i = 0; i < inspectable_get_key_count(content); ++i) {
        KeyView &key = keys.emplace_back();
        key.key = detail::string_of(inspectable_get_key_at(content, i));
        key.value = detail::string_of(inspectable_get_value_at(content, i));
        key.name_space = detail::string_of(inspectable_get_name_space_at(content, i));
        key.complex_type = detail::string_of(inspectable_get_complex_type_name_at(content, i));
        key.tags = detail::take_reversed_strings(inspectable_get_tags_at(content, i));
        key.has_value = true;
    }
    std::sort(keys.begin(), keys.end(), comes_before);
    return keys;
}

Json json_of_state(const std::vector<KeyView> &keys)
{
    Json json{{"topics", Json::array()}, {"state_key", nullptr}, {"values", Json::object()}};
    for (const KeyView &topic : topics_of(keys))
        json["topics"].push_back(topic.value);
    for (const KeyView &key : keys) {
        json["values"][key.key] = key.value;
        if (key.is_state())
            json["state_key"] = key.key;
    }
    return json;
}

} // namespace qandor::cli
