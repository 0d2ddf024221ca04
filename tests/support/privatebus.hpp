// SPDX-License-Identifier: LGPL-2.1-or-later

// A bus of a test's own that stands in for the system bus: a real daemon with the limits and the
// policy of a stock system bus and the project's own policy file. The variable QANDOR_TEST_BUS of
// the environment says which of the two daemons that devices have: "daemon" (dbus-daemon, also when
// nothing is said) or "broker" (dbus-broker).
#pragma once

#include "support/childprocess.hpp"
#include "support/temporaryfolder.hpp"

#include <csignal>
#include <optional>

namespace qandor::test {

enum class BusKind { Daemon, Broker };

// What QANDOR_TEST_BUS says.
BusKind chosen_bus();

class PrivateBus {
public:
    // Starts it and makes it this process's system bus, and that of the processes it starts.
    // @more are elements of its configuration beside those of a stock system bus.
    explicit PrivateBus(BusKind kind = chosen_bus(), const std::string &more = "");
    ~PrivateBus();

    // Kills it without warning; it can be started again, at the same address.
    void kill();
    void start();
    // Stands still: it reads nothing and answers nothing.
    void stop() { daemon_->signal(SIGSTOP); }
    void go_on() { daemon_->signal(SIGCONT); }

    BusKind kind() const { return kind_; }
    const std::string &address() const { return address_; }
    const ChildProcess &process() const { return *daemon_; }

private:
    std::vector<std::string> command() const;

    BusKind kind_;
    TemporaryFolder folder_;
    std::string config_;
    std::optional<ChildProcess> daemon_;
    std::string address_;
};

} // namespace qandor::test
