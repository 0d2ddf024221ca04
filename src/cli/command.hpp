// SPDX-License-Identifier: LGPL-2.1-or-later

// A command: what it is called, what the help says about it, its options, and what it does. Each
// stands in a file of its own; commands.cpp has the table of all.
#pragma once

#include "cli/options.hpp"

#include <memory>
#include <string>
#include <vector>

namespace qandor::cli {

class Command {
public:
    Command() = default;
    Command(const Command &) = delete;
    Command &operator=(const Command &) = delete;
    virtual ~Command() = default;

    virtual void add_options(Options &options) { (void)options; }
    // Does it with what is left besides the options; returns the exit code, or throws a Failure.
    virtual int run(const std::vector<std::string> &arguments) = 0;
};

// What an argument of a command is, so that shells can complete it.
enum class Argument { Command, Expression, File, Type, TypeChange, Value };

// How a command is known. In the help a line that begins with "    qandor" is an example, which
// works as it stands (the tests run them all).
struct CommandEntry {
    const char *name;
    const char *summary;
    const char *usage; // what follows the name
    const char *help;
    std::unique_ptr<Command> (*make)();
    std::vector<Argument> arguments{}; // the last again and again where the usage ends with "..."
    bool is_for_shells = false;        // and in no overview for people
};

// All commands, in the order in which the help has them.
const std::vector<CommandEntry> &commands();
// The command of the name; a Failure that names the nearest one when there is none.
const CommandEntry &find_command(const std::string &name);

// The pages of the help.
void print_overview();
void print_help(const CommandEntry &entry);

// A Failure unless there are so many arguments.
void expect_arguments(const char *command, const std::vector<std::string> &arguments,
                      std::size_t least, std::size_t most);

template <class C> std::unique_ptr<Command> make_command()
{
    return std::make_unique<C>();
}

extern const CommandEntry help_command, complete_command, status_command, list_command,
    tree_command, types_command, watch_command, top_command, record_command, replay_command,
    send_command, state_command, check_command, show_command, explain_command, graph_command,
    doctor_command;

} // namespace qandor::cli
