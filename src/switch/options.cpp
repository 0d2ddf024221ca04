// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/options.hpp"

#include "platform/owners.hpp"

#include <cstdio>
#include <cstdlib>

namespace qandor {
namespace {

struct Raw {
    gboolean version = FALSE;
    gchar *configuration = nullptr;
    gchar *types_read_only = nullptr;
    gchar *types_writable = nullptr;
    gchar *log_level = nullptr;
};

bool parse_raw(int &count, char **&arguments, Raw &raw)
{
    const GOptionEntry entries[] = {
        {"config", 0, 0, G_OPTION_ARG_FILENAME, &raw.configuration,
         "Configuration file (/etc/event_switch/event-switch.conf, if it is there)", "FILE"},
        {"types-read-only", 0, 0, G_OPTION_ARG_FILENAME, &raw.types_read_only,
         "Folder of the types that are part of the system", "DIR"},
        {"types-writable", 0, 0, G_OPTION_ARG_FILENAME, &raw.types_writable,
         "Folder of the types that are added to it", "DIR"},
        {"log-level", 0, 0, G_OPTION_ARG_STRING, &raw.log_level,
         "error, warning, info or debug (info)", "LEVEL"},
        {"version", 0, 0, G_OPTION_ARG_NONE, &raw.version, "Show the version and exit", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    Owner<GOptionContext, g_option_context_free> context(g_option_context_new(nullptr));
    g_option_context_set_summary(context.get(),
                                 "Keeps the books of the device's events on the system bus: who "
                                 "declares what, and who subscribes to it.");
    g_option_context_add_main_entries(context.get(), entries, nullptr);
    GError *error = nullptr;
    if (g_option_context_parse(context.get(), &count, &arguments, &error))
        return true;
    ErrorOwner owner(error);
    std::fprintf(stderr, "event-switch: %s (see --help)\n", error->message);
    return false;
}

} // namespace

bool parse_options(int count, char **arguments, Options &options)
{
    Raw raw;
    bool parsed = parse_raw(count, arguments, raw);
    TextOwner configuration(raw.configuration);
    TextOwner types_read_only(raw.types_read_only);
    TextOwner types_writable(raw.types_writable);
    TextOwner log_level(raw.log_level);
    if (!parsed)
        return false;
    if (raw.version) {
        std::puts("event-switch " QANDOR_VERSION);
        std::exit(EXIT_SUCCESS);
    }
    if (count > 1) {
        std::fprintf(stderr, "event-switch: unexpected argument '%s' (see --help)\n", arguments[1]);
        return false;
    }
    if (configuration)
        options.configuration = configuration.get();
    if (types_read_only)
        options.types_read_only = types_read_only.get();
    if (types_writable)
        options.types_writable = types_writable.get();
    if (!log_level)
        return true;
    if (auto level = parse_log_level(log_level.get())) {
        options.log_level = *level;
        return true;
    }
    std::fprintf(stderr, "event-switch: '%s' is no log level (see --help)\n", log_level.get());
    return false;
}

} // namespace qandor
