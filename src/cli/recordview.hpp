// SPDX-License-Identifier: LGPL-2.1-or-later

// Whole records for people, over several lines, and as JSON.
#pragma once

#include "cli/json.hpp"
#include "cli/recordfile.hpp"

namespace qandor::cli {

void print_record(const Record &record);
Json json_of(const Record &record);

// The XML form; a Failure for an event or a notification, which have none.
std::string xml_of(const Record &record);

} // namespace qandor::cli
