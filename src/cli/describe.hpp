// SPDX-License-Identifier: LGPL-2.1-or-later

// Events and declarations in words for people.
#pragma once

#include "cli/keyview.hpp"

#include <chrono>

namespace qandor::cli {

// "Device/Load"; "-" without topics.
std::string topic_path(const std::vector<KeyView> &keys);

// "load:double available:int state:bool* unit=1": the keys that are no topics. A star is the state.
std::string keys_text(const std::vector<KeyView> &keys);
// "load=0.5 available=512": values of an event, without its topics.
std::string values_text(const std::vector<KeyView> &keys);

// "event", "property", and "internal" in front of either.
std::string kind_of(const Declaration &declaration);

// "{one} {two}".
std::string tags_text(const std::vector<std::string> &tags);

// "1 event", "2 events".
std::string counted(guint64 number, const char *one, const char *many);

std::chrono::system_clock::time_point time_of(const Notification &notification);
// Seconds since the epoch with their fraction as local time of the day, and as ISO 8601 in UTC.
std::string clock_time(std::chrono::system_clock::time_point time);
std::string iso_time(std::chrono::system_clock::time_point time);

} // namespace qandor::cli
