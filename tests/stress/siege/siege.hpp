// SPDX-License-Identifier: LGPL-2.1-or-later

// What all sieges have in common: a bus, a switch, whose process must be the same in the end, and
// figures. QANDOR_SIEGE=full makes them as large as what they defend from; otherwise they are
// scaled so that all of them fit into a minute. scripts/bench --siege reads the figures and makes a
// table.
#pragma once

#include "stress/siege/census.hpp"
#include "stress/siege/dailylife.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace qandor::test {

// Whether everything is to be as large as it gets.
bool is_full_siege();
inline int scaled(int small, int full)
{
    return is_full_siege() ? full : small;
}

// Tells a figure of the test that runs, for the build's log and the table.
void tell_figure(const std::string &name, double value, const char *unit);

class Siege : public testing::Test {
protected:
    // How long another user's call may take. Not a measure: only what hangs takes so long.
    static constexpr double patience_ms = 5000;
    // The most that the switch may have in memory, in MiB.
    static constexpr double most_memory = 96;

    void SetUp() override;
    // The switch lives, and ends in good order when it is told to; where the build looks for leaks,
    // it looks now.
    void TearDown() override;

    // Ends a bystander's life and asserts that he was served.
    void expect_served(DailyLife &life) const;
    void expect_switch_alive();
    // The most that the switch has ever had.
    double switch_memory();
    void expect_memory_bounded();

    std::optional<PrivateBus> bus;
    std::optional<SwitchProcess> event_switch;
    pid_t switch_pid = 0;
};

} // namespace qandor::test
