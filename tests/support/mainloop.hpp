// SPDX-License-Identifier: LGPL-2.1-or-later

// Waiting for things on the default main context.
#pragma once

#include <glib.h>

#include <functional>

namespace qandor::test {

// Iterates the default main context until the condition holds; false when it takes too long.
inline bool wait_until(const std::function<bool()> &condition, double seconds = 20)
{
    gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
    // Wakes the context now and then, for conditions that come true on another thread.
    guint ticks = g_timeout_add(
        20, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool holds;
    while (!(holds = condition()) && g_get_monotonic_time() < end)
        g_main_context_iteration(nullptr, TRUE);
    g_source_remove(ticks);
    return holds;
}

// Runs what is ready on the default main context, and nothing more.
inline void run_pending()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

} // namespace qandor::test
