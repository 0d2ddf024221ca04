// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor help: what there is, and how each command is used.

#include "cli/command.hpp"
#include "cli/failure.hpp"
#include "cli/table.hpp"
#include "cli/terminal.hpp"

namespace qandor::cli {
namespace {

constexpr const char *introduction =
    "Looks at the events of this device, sends some, and helps those who write programs for them.";

constexpr const char *expression_help =
    R"(Expressions say which events are meant:

    key=value  key!=value   the key has the value; lacks it or has another one
    key  !key               the key is there; is not there
    *=value  *!=value       any key has the value; none has it
    space:key...            a key in a name space
    &  |                    and; or, which binds less
    *                       alone: everything
    "a \"text\""            what has odd characters in it, or none

Quote them for the shell:

    qandor list 'topic0=Device & topic1!=Load'

Several '=' on one key, joined by '&', are alternatives to one another:
'topic1=Load & topic1=Power' is satisfied by either. 'qandor explain' shows
condition by condition why an event satisfies an expression or does not.
)";

void print_title(const std::string &title)
{
    print("\n" + styled(Style::Bold, title) + "\n");
}

void print_text(const char *text)
{
    print(text);
}

void print_exit_codes()
{
    print_title("Exit codes (those of sysexits.h)");
    Table table;
    for (const ExitCode &code : exit_codes)
        table.add({{"  " + std::to_string(code.code)}, code.name, code.meaning});
    table.print();
}

class HelpCommand : public Command {
public:
    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("help", arguments, 0, 1);
        if (arguments.empty())
            print_overview();
        else if (arguments[0] == "expressions")
            print_text(expression_help);
        else if (arguments[0] == "exit-codes")
            print_exit_codes();
        else
            print_help(find_command(arguments[0]));
        return EX_OK;
    }
};

} // namespace

void print_overview()
{
    for (const std::string &line : wrapped(introduction, output_width() ? output_width() : 80))
        print_line(line);
    print_title("Usage");
    print_line("  qandor COMMAND [OPTION]... [ARGUMENT]...");
    print_title("Commands");
    Table table;
    for (const CommandEntry &entry : commands())
        if (!entry.is_for_shells)
            table.add({{std::string("  ") + entry.name, Style::Cyan}, entry.summary});
    table.print();
    print_title("More");
    Table more;
    more.add({{"  qandor help COMMAND", Style::Cyan}, "a command, with examples"});
    more.add({{"  qandor help expressions", Style::Cyan}, "how to say which events are meant"});
    more.add({{"  qandor help exit-codes", Style::Cyan}, "what is told to scripts"});
    more.add({{"  qandor --version", Style::Cyan}, "the version"});
    more.print();
}

void print_help(const CommandEntry &entry)
{
    print_line(std::string("qandor ") + entry.name + ": " + entry.summary);
    print_title("Usage");
    print_line(std::string("  qandor ") + entry.name + (*entry.usage ? " " : "") + entry.usage);
    Options options;
    auto command = entry.make();
    command->add_options(options);
    if (auto lines = options.help(); !lines.empty()) {
        print_title("Options");
        Table table;
        for (const auto &[option, help] : lines)
            table.add({{"  " + option, Style::Cyan}, help});
        table.print();
    }
    print("\n");
    print_text(entry.help);
}

extern const CommandEntry help_command = {
    "help",
    "explains the commands",
    "[COMMAND | expressions | exit-codes]",
    R"(Without an argument: what commands there are. With one: how it is used.

    qandor help
    qandor help watch
    qandor help expressions
    qandor help exit-codes
)",
    make_command<HelpCommand>,
    {Argument::Command},
};

} // namespace qandor::cli
