// SPDX-License-Identifier: LGPL-2.1-or-later

// The real switch, of whose start one step fails: it says which, and exits with a failure.

#include "support/privatebus.hpp"

#include <gtest/gtest.h>

using namespace qandor::test;

namespace {

struct Step {
    const char *fault;
    const char *text;
};

ChildProcess run_switch(const char *fault)
{
    return ChildProcess({"sh", "-c",
                         std::string("LD_PRELOAD=") + QANDOR_START_MODULE +
                             " QANDOR_FAULT=" + fault + " exec " + QANDOR_SWITCH + " 2>&1"});
}

class Start : public testing::TestWithParam<Step> {};

TEST_P(Start, AStepThatFailsIsNamedAndEndsTheSwitch)
{
    PrivateBus bus;
    ChildProcess process = run_switch(GetParam().fault);
    std::string text;
    while (auto line = process.read_line())
        text += *line + "\n";
    EXPECT_EQ(text, std::string("event-switch: cannot ") + GetParam().text + "\n");
    EXPECT_EQ(process.wait(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    OfEach, Start,
    testing::Values(
        Step{"sd_event_default:EMFILE:1", "make an event loop: Too many open files"},
        Step{"sd_bus_new:ENOMEM:1", "connect to the system bus: Cannot allocate memory"},
        Step{"sd_bus_set_address:ENOMEM:1", "connect to the system bus: Cannot allocate memory"},
        Step{"sd_bus_start:ECONNREFUSED:1", "connect to the system bus: Connection refused"},
        Step{"sd_bus_attach_event:ENOMEM:1", "attach the bus: Cannot allocate memory"},
        Step{"sd_event_add_signal:EMFILE:1", "wait for SIGTERM: Too many open files"},
        Step{"sd_event_add_signal:EMFILE:2", "wait for SIGINT: Too many open files"},
        Step{"sd_event_add_signal:EMFILE:3", "wait for SIGHUP: Too many open files"},
        Step{"sd_bus_match_signal:ENOMEM:1", "watch the bus: Cannot allocate memory"},
        Step{"eventfd:EMFILE:1", "serve: Too many open files"},
        Step{"sd_event_add_io:ENOMEM:1", "serve: Cannot allocate memory"},
        Step{"sd_event_add_post:ENOMEM:1", "serve: Cannot allocate memory"},
        Step{"sd_event_add_post:ENOMEM:2", "serve: Cannot allocate memory"},
        Step{"sd_event_add_defer:ENOMEM:1", "serve: Cannot allocate memory"},
        Step{"sd_bus_add_filter:ENOMEM:1", "serve: Cannot allocate memory"},
        Step{"sd_bus_add_match:ENOMEM:1", "serve: Cannot allocate memory"},
        Step{"sd_bus_request_name:EACCES:1",
             "take the name com.vemo.Event.Switch: Permission denied"}));

// Its manager starts it again.
TEST(Run, ALoopThatFailsIsToldAndIsAFailure)
{
    PrivateBus bus;
    ChildProcess process = run_switch("sd_event_loop:ENOMEM:1");
    EXPECT_TRUE(process.wait_for("cannot run the event loop: Cannot allocate memory"));
    EXPECT_EQ(process.wait(), 1);
}

} // namespace
