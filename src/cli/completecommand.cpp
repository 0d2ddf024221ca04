// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor complete: for shells, what a word can become.

#include "cli/command.hpp"
#include "cli/completion.hpp"
#include "cli/failure.hpp"
#include "cli/terminal.hpp"

#include <csignal>
#include <unistd.h>

namespace qandor::cli {
namespace {

constexpr int file_belongs_here = 1;

// Who waits for a key that was pressed is not kept waiting by a bus that does not answer.
void limit_time()
{
    std::signal(SIGALRM, [](int) { _exit(EX_OK); });
    alarm(1);
}

class CompleteCommand : public Command {
public:
    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("complete", arguments, 1, arguments.size());
        limit_time();
        try {
            Completion completion = complete(arguments);
            for (const Candidate &candidate : completion.candidates)
                if (printable(candidate.word) == candidate.word)
                    print_line(candidate.word + "\t" + printable(candidate.about));
            return completion.is_file ? file_belongs_here : EX_OK;
        } catch (const Failure &) {
            return EX_OK;
        }
    }
};

} // namespace

extern const CommandEntry complete_command = {
    "complete",
    "tells shells what a word can become",
    "-- WORD...",
    R"(For the completion of bash, zsh and fish: the words are those behind 'qandor', up
to the one that is completed, which may be empty. Each line is what this can
become and, behind a tab, what it is about. The exit code is 1 when a file
belongs there. What is wrong or takes more than a second is passed over in
silence, and no switch is started for it.

    qandor complete -- wa
    qandor complete -- watch 'topic0='
)",
    make_command<CompleteCommand>,
    {},
    true,
};

} // namespace qandor::cli
