// SPDX-License-Identifier: LGPL-2.1-or-later

// A process that a test starts and that does not outlive it.
#pragma once

#include <csignal>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qandor::test {

class ChildProcess {
public:
    // Starts a program; what it writes to standard output can be read as lines.
    explicit ChildProcess(const std::vector<std::string> &command);
    ChildProcess(ChildProcess &&other) noexcept;
    ChildProcess &operator=(ChildProcess &&other) noexcept;
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    bool is_running();
    void signal(int number) const;

    // The next line without its end; nothing at the end of the output or when it takes too long.
    std::optional<std::string> read_line(double seconds = 20);
    // Reads lines until one contains the text; whether it came.
    bool wait_for(const std::string &text, double seconds = 20);
    // Waits for the end and returns the exit code, or minus the signal that ended it.
    int wait();

private:
    void end();

    pid_t pid_ = -1;
    int output_ = -1;
    std::string unread_;
    std::optional<int> status_;
};

} // namespace qandor::test
