// SPDX-License-Identifier: LGPL-2.1-or-later

// The keys of events and declarations with all there is about them.
#pragma once

#include <qandor/qandor.hpp>

#include <string>
#include <vector>

namespace qandor::cli {

// The tag of the key whose value is the state.
inline constexpr const char *state_tag = "property-state";

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

} // namespace qandor::cli
