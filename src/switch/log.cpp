// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/log.hpp"

#include <systemd/sd-journal.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace qandor {
namespace {

LogLevel highest = LogLevel::Info;
bool journal = false;

// Whether standard error goes to the journal, so that the lines may go there with their levels.
bool is_journal_behind_standard_error()
{
    const char *stream = std::getenv("JOURNAL_STREAM");
    struct stat status = {};
    unsigned long long device = 0, number = 0;
    return stream && std::sscanf(stream, "%llu:%llu", &device, &number) == 2 &&
           fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == number;
}

void write_line(LogLevel level, const char *line)
{
    if (level > highest)
        return;
    if (journal)
        sd_journal_print(static_cast<int>(level), "%s", line);
    else
        std::fprintf(stderr, "event-switch: %s\n", line);
}

LogLevel level_of(GLogLevelFlags flags)
{
    if (flags & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL))
        return LogLevel::Error;
    if (flags & G_LOG_LEVEL_WARNING)
        return LogLevel::Warning;
    return flags & G_LOG_LEVEL_DEBUG ? LogLevel::Debug : LogLevel::Info;
}

void write_library_line(const gchar *, GLogLevelFlags flags, const gchar *message, gpointer)
{
    write_line(level_of(flags), message);
}

} // namespace

std::optional<LogLevel> parse_log_level(std::string_view name)
{
    if (name == "error")
        return LogLevel::Error;
    if (name == "warning")
        return LogLevel::Warning;
    if (name == "info")
        return LogLevel::Info;
    if (name == "debug")
        return LogLevel::Debug;
    return std::nullopt;
}

void open_log(LogLevel level)
{
    highest = level;
    journal = is_journal_behind_standard_error();
    g_log_set_default_handler(write_library_line, nullptr);
}

void log_line(LogLevel level, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    write_line(level, line);
}

} // namespace qandor
