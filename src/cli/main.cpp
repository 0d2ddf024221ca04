// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor: the events of the device for people. Finds the command, runs it, and says what went
// wrong.

#include "cli/command.hpp"
#include "cli/failure.hpp"
#include "cli/terminal.hpp"

#include <glib.h>

#include <algorithm>

using namespace qandor::cli;

namespace {

// What the library has to say, in one line like everything else.
void tell(const gchar *, GLogLevelFlags level, const gchar *message, gpointer)
{
    if (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING))
        note(printable(message));
}

void complain(const Failure &failure)
{
    std::fflush(stdout);
    std::string message = styled(Style::Red, failure.message(), stderr);
    std::fprintf(stderr, "qandor: %s\n%s", message.c_str(), failure.hint().c_str());
    if (!failure.hint().empty() && failure.hint().back() != '\n')
        std::fputc('\n', stderr);
}

int run_command(const CommandEntry &entry, const std::vector<std::string> &arguments)
{
    auto end = std::find(arguments.begin(), arguments.end(), "--");
    if (std::find(arguments.begin(), end, "--help") != end) {
        print_help(entry);
        return EX_OK;
    }
    auto command = entry.make();
    Options options;
    command->add_options(options);
    return command->run(options.parse(entry.name, arguments));
}

int run(const std::vector<std::string> &arguments)
{
    if (arguments.empty())
        throw Failure(EX_USAGE, "Which command?", "See 'qandor help'.");
    if (arguments[0] == "--version") {
        print_line("qandor " QANDOR_VERSION);
        return EX_OK;
    }
    if (arguments[0] == "--help" || arguments[0] == "-h") {
        print_overview();
        return EX_OK;
    }
    if (arguments[0].starts_with('-'))
        throw Failure(EX_USAGE, "The command comes first, not '" + arguments[0] + "'",
                      "See 'qandor help'.");
    return run_command(find_command(arguments[0]), {arguments.begin() + 1, arguments.end()});
}

} // namespace

int main(int count, char **arguments)
{
    look_at_terminal();
    g_log_set_default_handler(tell, nullptr);
    try {
        int code = run({arguments + 1, arguments + count});
        finish_output();
        return code;
    } catch (const Failure &failure) {
        complain(failure);
        return failure.code();
    } catch (const std::exception &mistake) {
        complain({EX_SOFTWARE, std::string("This should not have happened: ") + mistake.what()});
        return EX_SOFTWARE;
    }
}
