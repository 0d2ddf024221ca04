// SPDX-License-Identifier: LGPL-2.1-or-later

// A process with another user id: an attacker, or a bystander. It is forked from the test and runs
// a function. Its standard output is a pipe of lines to the test; its standard input is a pipe that
// hangs up when the test asks it to end. Needs root.
#pragma once

#include "support/childprocess.hpp"
#include "support/privatebus.hpp"

#include <functional>
#include <optional>
#include <string>

namespace qandor::test {

constexpr uid_t attacker = 65534; // nobody
constexpr uid_t bystander = 33;   // www-data

class OtherUser {
public:
    // The process's end of the two pipes.
    class Line {
    public:
        void say(const std::string &text) const;
        // Returns whether the test has asked to end; waits up to that time for it.
        bool is_over(int wait_milliseconds = 0) const;
        void wait_for_end() const { is_over(-1); }
        // Calls @end on the main context of the process when the test asks to end.
        void on_end(std::function<void()> end);

    private:
        std::function<void()> end_;
    };
    // Runs in the process. An exception is reported as a line, and the process fails.
    using Part = std::function<void(Line &)>;

    OtherUser(const PrivateBus &bus, uid_t uid, const Part &part);
    OtherUser(const OtherUser &) = delete;
    OtherUser &operator=(const OtherUser &) = delete;
    ~OtherUser();

    pid_t pid() const { return pid_; }
    bool is_running();
    // Returns the next line; nullopt at the end of the process and after a timeout.
    std::optional<std::string> read_line(double seconds = 60);
    // Returns the rest of the first line with this beginning; nullopt as above.
    std::optional<std::string> read_after(const std::string &beginning, double seconds = 60);
    bool says(const std::string &text, double seconds = 60)
    {
        return read_after(text, seconds).has_value();
    }
    void stop() const;   // SIGSTOP
    void resume() const; // SIGCONT
    // Asks it to end. Lines that it writes then can still be read.
    void ask_to_end();
    // Asks it to end, waits, and returns whether its function returned. Kills it after a timeout.
    bool end(double seconds = 60);
    // Kills it without warning.
    void kill();

private:
    bool wait(double seconds);

    pid_t pid_;
    int lines_, end_;
    std::string unread_;
    std::optional<int> status_;
};

} // namespace qandor::test
