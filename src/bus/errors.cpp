// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/errors.hpp"

#include <cstdarg>

void qandor::set_bus_error(GError **error, int code, const gchar *message)
{
    g_set_error_literal(error, g_quark_from_static_string("libqandor"), code, message);
}

GError *qandor::new_bus_error(int code, const gchar *message)
{
    return g_error_new_literal(g_quark_from_static_string("libqandor"), code, message);
}

void qandor::set_event_error(GError **error, EventError code, const gchar *format, ...)
{
    if (!error)
        return;
    g_clear_error(error);
    va_list arguments;
    va_start(arguments, format);
    *error = g_error_new_valist(g_quark_from_static_string("event-error-quark"),
                                static_cast<gint>(code), format, arguments);
    va_end(arguments);
}

bool qandor::refuse_error_already_set(GError **error)
{
    if (!error || !*error)
        return false;
    g_clear_error(error);
    set_event_error(error, EventError::ErrorAlreadySet, "Error object already set");
    return true;
}
