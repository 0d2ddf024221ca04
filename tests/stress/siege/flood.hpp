// SPDX-License-Identifier: LGPL-2.1-or-later

// Another user who calls the switch as fast as it answers, from several connections, until told to
// stop. For root alone, which can be somebody else.
#pragma once

#include "bus/switch/rawpeer.hpp"

#include <atomic>

namespace qandor::test {

class Flood {
public:
    // Makes one call; calls are numbered from 0 up.
    using Call = std::function<void(RawPeer &peer, std::optional<Answer> &answer, guint32 number)>;
    // Looks after a connection before it floods. Without calls that is all: nothing more is read
    // then, and one answer is counted when it is done.
    using Prepare = std::function<void(RawPeer &peer, guint32 connection)>;

    Flood(const std::string &address, guint32 connections, const Call &call,
          const Prepare &prepare = {});
    Flood(const Flood &) = delete;
    Flood &operator=(const Flood &) = delete;
    ~Flood() { stop(); }

    // How many of its calls the switch has answered.
    guint64 answered() const { return *answered_; }
    // Ends it; whether everything it called was answered.
    bool stop();

private:
    bool run(guint32 connections, const Call &call, const Prepare &prepare) const;
    bool is_stopped(int wait_milliseconds = 0) const;

    std::atomic<guint64> *answered_; // shared with its process
    int stop_[2];                    // a pipe that hangs up
    pid_t pid_;
};

} // namespace qandor::test
