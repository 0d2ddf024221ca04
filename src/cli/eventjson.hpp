// SPDX-License-Identifier: LGPL-2.1-or-later

// Events and declarations as JSON for programs.
#pragma once

#include "cli/json.hpp"
#include "cli/keyview.hpp"

#include <optional>

namespace qandor::cli {

// The payload as far as it is text; nothing when there is none.
std::optional<std::string> payload_of(const Event &event);
std::optional<std::string> payload_of(const Notification &notification);

// Values in their own types, as far as their texts are of them.
Json json_value(const KeyView &key);
Json json_of(const Event &event);
Json json_of(const Declaration &declaration);
Json json_of(const KeyView &key);
Json json_keys(const std::vector<KeyView> &keys);

} // namespace qandor::cli
