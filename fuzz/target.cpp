// SPDX-License-Identifier: LGPL-2.1-or-later

#include "fuzz/target.hpp"

namespace {

// Printing and complaining are work that is to be done; what they say is of no interest. A critical
// is a caller's mistake, and the targets make none.
void swallow(const gchar *, GLogLevelFlags level, const gchar *text, gpointer)
{
    if (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR))
        qandor::fuzz::must(false, text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    g_log_set_default_handler(swallow, nullptr);
    return 0;
}
