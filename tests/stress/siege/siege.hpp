// SPDX-License-Identifier: LGPL-2.1-or-later

// The fixture of all tests that attack the switch or the deliveries: a bus, a switch whose process
// must be the same one at the end, and figures. QANDOR_SIEGE=full runs the attacks at full size;
// the default is scaled down, so that all of them together take about a minute. scripts/bench
// --siege reads the figures and prints a table.
#pragma once

#include "stress/siege/census.hpp"
#include "stress/siege/dailylife.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace qandor::test {

// Whether the attacks run at full size.
bool is_full_siege();
inline int scaled(int small, int full)
{
    return is_full_siege() ? full : small;
}

// Prints a figure of the running test, for the log and for the table.
void tell_figure(const std::string &name, double value, const char *unit);

class Siege : public testing::Test {
protected:
    // A bound against hanging for another user's call; sanitizers take their time. The measured
    // time is a figure.
    static constexpr double patience_ms = memory_tells() ? 5000 : 25000;
    // The upper bound of the switch's memory, in MiB.
    static constexpr double most_memory = 96;

    void SetUp() override;
    // Checks that the switch is alive and that SIGTERM ends it with code 0. Its leak check runs
    // then, in builds that have one.
    void TearDown() override;

    // Ends a bystander and tells how long it waited.
    static Waits tell_waits(DailyLife &life);
    // Ends a bystander and asserts that all its calls were answered.
    void expect_served(DailyLife &life) const;
    void expect_switch_alive();
    // Waits until the switch has so many subscriptions.
    void await_subscriptions(std::size_t count) const;
    // The largest resident memory of the switch so far, in MiB.
    double switch_memory();
    void expect_memory_bounded();

    std::optional<PrivateBus> bus;
    std::optional<SwitchProcess> event_switch;
    pid_t switch_pid = 0;
};

} // namespace qandor::test
