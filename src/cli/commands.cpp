// SPDX-License-Identifier: LGPL-2.1-or-later

// The table of the commands.

#include "cli/command.hpp"
#include "cli/failure.hpp"
#include "cli/nearest.hpp"

namespace qandor::cli {

const std::vector<CommandEntry> &commands()
{
    static const std::vector<CommandEntry> all{
        help_command,   status_command,   list_command,   tree_command,    types_command,
        watch_command,  top_command,      record_command, replay_command,  send_command,
        state_command,  check_command,    show_command,   explain_command, graph_command,
        doctor_command, complete_command,
    };
    return all;
}

const CommandEntry &find_command(const std::string &name)
{
    std::vector<std::string> names;
    for (const CommandEntry &entry : commands()) {
        if (name == entry.name)
            return entry;
        if (!entry.is_for_shells)
            names.emplace_back(entry.name);
    }
    std::string suggestion = did_you_mean(name, names);
    throw Failure(EX_USAGE, "There is no command '" + name + "'",
                  (suggestion.empty() ? "" : suggestion + " ") + "See 'qandor help'.");
}

void expect_arguments(const char *command, const std::vector<std::string> &arguments,
                      std::size_t least, std::size_t most)
{
    std::string hint = std::string("See 'qandor help ") + command + "'.";
    if (arguments.size() < least)
        throw Failure(EX_USAGE, std::string("'qandor ") + command + "' wants more arguments", hint);
    if (arguments.size() > most)
        throw Failure(
            EX_USAGE,
            std::string("'qandor ") + command + "' has no use for '" + arguments[most] + "'", hint);
}

} // namespace qandor::cli
