// SPDX-License-Identifier: LGPL-2.1-or-later

// Log messages of the library, in the default log domain.
#pragma once

#include <glib.h>

#include <cstdarg>

namespace qandor {

G_GNUC_PRINTF(1, 2) inline void log_message(const gchar *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    g_logv(nullptr, G_LOG_LEVEL_MESSAGE, format, arguments);
    va_end(arguments);
}

G_GNUC_PRINTF(1, 2) inline void log_warning(const gchar *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    g_logv(nullptr, G_LOG_LEVEL_WARNING, format, arguments);
    va_end(arguments);
}

G_GNUC_PRINTF(1, 2) inline void log_critical(const gchar *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    g_logv(nullptr, G_LOG_LEVEL_CRITICAL, format, arguments);
    va_end(arguments);
}

} // namespace qandor
