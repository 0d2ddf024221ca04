// SPDX-License-Identifier: LGPL-2.1-or-later

// A process of another user that plays its part in a siege: an attacker, or somebody who suffers.
// It talks with its test in lines, and is asked to end by a pipe that hangs up. For root alone,
// which can be somebody else.
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
    // What the process has of its test.
    class Line {
    public:
        void say(const std::string &text) const;
        // Whether the test has asked to end; waits for that so long.
        bool is_over(int wait_milliseconds = 0) const;
        void wait_for_end() const { is_over(-1); }
        // Calls @end on the main context of the process when the test asks to end.
        void on_end(std::function<void()> end);

    private:
        std::function<void()> end_;
    };
    // Plays the part; what it throws is said, and the process fails.
    using Part = std::function<void(Line &)>;

    OtherUser(const PrivateBus &bus, uid_t uid, const Part &part);
    OtherUser(const OtherUser &) = delete;
    OtherUser &operator=(const OtherUser &) = delete;
    ~OtherUser();

    pid_t pid() const { return pid_; }
    bool is_running();
    // The next line; nothing at the end of the process, or when it takes too long.
    std::optional<std::string> read_line(double seconds = 60);
    // The rest of the first line that begins so; nothing as above.
    std::optional<std::string> read_after(const std::string &beginning, double seconds = 60);
    bool says(const std::string &text, double seconds = 60)
    {
        return read_after(text, seconds).has_value();
    }
    void stop() const;   // it stands still
    void resume() const; // it goes on
    // Asks it to end. What it says then can still be read.
    void ask_to_end();
    // Asks it to end, waits, and returns whether it played its part to the end. One that does not
    // end is killed.
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
