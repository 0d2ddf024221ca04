// SPDX-License-Identifier: LGPL-2.1-or-later

// The options of one command: what they are called, what they say about themselves in the help, and
// where their values go.
#pragma once

#include <glib.h>

#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qandor::cli {

class Options {
public:
    Options() = default;
    Options(const Options &) = delete;
    Options &operator=(const Options &) = delete;
    ~Options();

    // What an option is called and says about itself. The letter is 0 for none.
    struct Words {
        const char *name;
        char letter;
        const char *help;
        const char *argument = nullptr; // what the help calls its value; none for a flag
    };

    void flag(Words words, bool &value);
    void text(Words words, std::optional<std::string> &value);
    // A whole number from 1 on.
    void count(Words words, std::optional<guint64> &value);
    // A number of seconds, with or without a fraction.
    void seconds(Words words, std::optional<double> &value);

    // Reads the arguments of the command, fills the values in and returns what is left. A Failure
    // for what is no option, a value that is missing or wrong.
    std::vector<std::string> parse(const std::string &command,
                                   const std::vector<std::string> &arguments);

    std::vector<Words> all() const;

    // The lines of the help: the option, and what it does.
    std::vector<std::pair<std::string, std::string>> help() const;

private:
    struct Option {
        Words words;
        std::function<void(const std::string &)> take;
        gboolean given = FALSE;
        gchar *value = nullptr;
    };

    std::vector<GOptionEntry> entries(gchar ***rest);
    void take_values();
    [[noreturn]] void refuse(const std::string &command, const GError *error) const;

    std::list<Option> options_;
};

} // namespace qandor::cli
