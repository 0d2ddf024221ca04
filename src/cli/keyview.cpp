// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/keyview.hpp"

#include <algorithm>
#include <cstring>

namespace qandor::cli {
namespace {

using qandor::detail::string_of;
using qandor::detail::take_reversed_strings;

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

} // namespace qandor::cli
