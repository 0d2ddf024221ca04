// SPDX-License-Identifier: LGPL-2.1-or-later

// What --json writes. Texts of strangers that are no UTF-8 have their bad bytes replaced.
#pragma once

#include "cli/terminal.hpp"

#include <nlohmann/json.hpp>

namespace qandor::cli {

// Keeps the order in which members were set.
using Json = nlohmann::ordered_json;

// One value over several lines, for people as well.
inline void print_json(const Json &value)
{
    print_line(value.dump(2, ' ', false, Json::error_handler_t::replace));
}

// One value in one line, for what goes on.
inline void print_json_line(const Json &value)
{
    print_line(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

} // namespace qandor::cli
