// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's log: the journal when systemd has started it, standard error else.
#pragma once

#include <glib.h>

#include <optional>
#include <string_view>

namespace qandor {

// As syslog numbers them.
enum class LogLevel { Error = 3, Warning = 4, Info = 6, Debug = 7 };

std::optional<LogLevel> parse_log_level(std::string_view name);

// Lines above the level are not written. What the library logs goes the same way.
void open_log(LogLevel level);

G_GNUC_PRINTF(2, 3) void log_line(LogLevel level, const char *format, ...);

} // namespace qandor
