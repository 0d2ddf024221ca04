// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/options.hpp"

#include "cli/failure.hpp"
#include "cli/nearest.hpp"
#include "cli/owners.hpp"

#include <cmath>

namespace qandor::cli {

// Values that were not taken, because one before them is wrong.
Options::~Options()
{
    for (Option &option : options_)
        g_free(option.value);
}

void Options::flag(Words words, bool &value)
{
    options_.push_back({words, [&value](const std::string &) { value = true; }});
}

void Options::text(Words words, std::optional<std::string> &value)
{
    options_.push_back({words, [&value](const std::string &text) { value = text; }});
}

void Options::count(Words words, std::optional<guint64> &value)
{
    auto take = [&value, words](const std::string &text) {
        guint64 number = 0;
        if (!g_ascii_string_to_unsigned(text.c_str(), 10, 1, G_MAXUINT32, &number, nullptr))
            throw Failure(EX_USAGE, std::string("--") + words.name +
                                        ": expected is a whole number from 1 on, not '" + text +
                                        "'");
        value = number;
    };
    options_.push_back({words, take});
}

void Options::seconds(Words words, std::optional<double> &value)
{
    auto take = [&value, words](const std::string &text) {
        char *end = nullptr;
        double number = g_ascii_strtod(text.c_str(), &end);
        constexpr double month = 31 * 24 * 3600;
        if (text.empty() || *end || !(number >= 0 && number <= month))
            throw Failure(EX_USAGE, std::string("--") + words.name +
                                        ": expected is a number of seconds, not '" + text + "'");
        value = number;
    };
    options_.push_back({words, take});
}

std::vector<GOptionEntry> Options::entries(gchar ***rest)
{
    std::vector<GOptionEntry> entries;
    for (Option &option : options_) {
        bool has_value = option.words.argument != nullptr;
        entries.push_back({option.words.name, option.words.letter, 0,
                           has_value ? G_OPTION_ARG_FILENAME : G_OPTION_ARG_NONE,
                           has_value ? static_cast<gpointer>(&option.value) : &option.given,
                           nullptr, nullptr});
    }
    entries.push_back(
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, rest, nullptr, nullptr});
    entries.push_back({nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr});
    return entries;
}

void Options::refuse(const std::string &command, const GError *error) const
{
    std::string hint = "See 'qandor help " + command + "'.";
    if (error->code != G_OPTION_ERROR_UNKNOWN_OPTION)
        throw Failure(EX_USAGE, error->message, hint);
    std::vector<std::string> names;
    for (const Option &option : options_)
        names.push_back(std::string("--") + option.words.name);
    // GLib names the option last, behind a blank.
    std::string mistyped = error->message;
    mistyped = mistyped.substr(mistyped.rfind(' ') + 1);
    std::string suggestion = did_you_mean(mistyped, names);
    throw Failure(EX_USAGE, "'qandor " + command + "' has no option '" + mistyped + "'",
                  suggestion.empty() ? hint : suggestion + " " + hint);
}

void Options::take_values()
{
    for (Option &option : options_) {
        Text value(option.value);
        option.value = nullptr;
        if (option.given || value)
            option.take(value ? value.get() : "");
    }
}

namespace {

// GLib takes a list of its own, from which it removes what it has read.
gchar **list_of(const std::vector<std::string> &arguments)
{
    gchar **list = g_new0(gchar *, arguments.size() + 2);
    list[0] = g_strdup("qandor");
    for (std::size_t i = 0; i < arguments.size(); ++i)
        list[i + 1] = g_strdup(arguments[i].c_str());
    return list;
}

} // namespace

std::vector<std::string> Options::parse(const std::string &command,
                                        const std::vector<std::string> &arguments)
{
    Owned<GOptionContext, g_option_context_free> context(g_option_context_new(nullptr));
    g_option_context_set_help_enabled(context.get(), FALSE);
    gchar **rest = nullptr;
    std::vector<GOptionEntry> all = entries(&rest);
    g_option_context_add_main_entries(context.get(), all.data(), nullptr);

    GError *error = nullptr;
    gchar **left = list_of(arguments);
    bool parsed = g_option_context_parse_strv(context.get(), &left, &error);
    Owned<gchar *, g_strfreev> left_owner(left);
    Owned<gchar *, g_strfreev> rest_owner(rest);
    Owned<GError, g_error_free> error_owner(error);
    if (!parsed)
        refuse(command, error);
    take_values();
    std::vector<std::string> remaining;
    for (gchar **argument = rest; argument && *argument; ++argument)
        remaining.emplace_back(*argument);
    return remaining;
}

std::vector<Options::Words> Options::all() const
{
    std::vector<Words> all;
    for (const Option &option : options_)
        all.push_back(option.words);
    return all;
}

std::vector<std::pair<std::string, std::string>> Options::help() const
{
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Option &option : options_) {
        std::string names =
            option.words.letter ? std::string("-") + option.words.letter + ", " : "";
        names += std::string("--") + option.words.name;
        if (option.words.argument)
            names += std::string(" ") + option.words.argument;
        lines.emplace_back(names, option.words.help);
    }
    return lines;
}

} // namespace qandor::cli
