// SPDX-License-Identifier: LGPL-2.1-or-later

// A program on a terminal of 80 columns and 24 lines, at which a test sits.
#pragma once

#include <string>
#include <sys/types.h>
#include <termios.h>
#include <utility>
#include <vector>

namespace qandor::test {

class OnTerminal {
public:
    explicit OnTerminal(std::vector<std::string> command);
    OnTerminal(const OnTerminal &) = delete;
    OnTerminal &operator=(const OnTerminal &) = delete;
    ~OnTerminal();

    // Waits until the text appears behind what was waited for before; whether it did.
    bool wait_for(const std::string &text);
    void press(const std::string &keys) const;
    // Waits for the end and returns the exit code, or minus the signal that ended it.
    int wait();

    // Everything that was written up to now.
    const std::string &output() const { return output_; }
    // Whether keys are shown and come in lines, as a shell has it.
    bool is_as_before() const;

private:
    bool read_more();

    int shell_side_ = -1; // keeps the terminal as the tool leaves it
    int user_side_ = -1;
    pid_t pid_ = -1;
    termios before_{};
    std::string output_;
    std::size_t seen_ = 0;
};

inline OnTerminal tool_on_terminal(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), QANDOR_TOOL);
    return OnTerminal(std::move(arguments));
}

} // namespace qandor::test
