// SPDX-License-Identifier: LGPL-2.1-or-later

#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"

#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

namespace qandor::test {
namespace {

// Limits the switch, so that a test without bound does not exhaust the machine.
constexpr rlim_t most_address_space = rlim_t{2} << 30;

double memory_of(pid_t pid, const char *format)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    long kib = -1;
    for (std::string line; kib < 0 && std::getline(status, line);)
        std::sscanf(line.c_str(), format, &kib);
    return static_cast<double>(kib) / 1024;
}

} // namespace

bool is_full_siege()
{
    const char *said = std::getenv("QANDOR_SIEGE");
    return said && std::string(said) == "full";
}

void tell_figure(const std::string &name, double value, const char *unit)
{
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    std::printf("[  FIGURE  ] %s.%s: %s: %.6g %s\n", test->test_suite_name(), test->name(),
                name.c_str(), value, unit);
    std::fflush(stdout);
}

void Siege::SetUp()
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be two other users";
    try {
        bus.emplace();
    } catch (const std::runtime_error &) {
        ASSERT_EQ(chosen_bus(), BusKind::Broker) << "dbus-daemon does not start";
        GTEST_SKIP() << "dbus-broker wants a journal, or the right to make a mount namespace";
    }
    event_switch.emplace();
    switch_pid = event_switch->process().pid();
    rlimit limit{most_address_space, most_address_space};
    if (memory_tells())
        prlimit(switch_pid, RLIMIT_AS, &limit, nullptr);
}

void Siege::TearDown()
{
    if (!event_switch)
        return;
    expect_switch_alive();
    event_switch->process().signal(SIGTERM);
    for (int i = 0; i < 2000 && event_switch->process().is_running(); ++i)
        usleep(10000);
    ASSERT_FALSE(event_switch->process().is_running()) << "the switch does not end";
    EXPECT_EQ(event_switch->process().wait(), 0);
}

void Siege::expect_switch_alive()
{
    RawPeer onlooker;
    std::string error = onlooker.call("Query.GetAllDeclarations").error;
    bool alive =
        event_switch->process().is_running() && event_switch->process().pid() == switch_pid;
    tell_figure("switch alive", alive, "");
    ASSERT_TRUE(alive) << "the switch has ended with " << event_switch->process().wait();
    EXPECT_EQ(error, "");
}

void Siege::await_subscriptions(std::size_t count) const
{
    RawPeer onlooker;
    ASSERT_TRUE(run_until(
        [&] { return list_rows(onlooker.bus(), "ListSubscriptions").size() >= count; }, 60));
}

double Siege::switch_memory()
{
    return memory_of(event_switch->process().pid(), "VmHWM: %ld kB");
}

void Siege::expect_memory_bounded()
{
    double peak = switch_memory();
    tell_figure("memory of the switch, most", peak, "MiB");
    if (!memory_tells())
        return;
    ASSERT_GT(peak, 0) << "there is no switch any more";
    EXPECT_LT(peak, most_memory);
}

Waits Siege::tell_waits(DailyLife &life)
{
    Waits waits = life.end();
    tell_figure("another user's calls", waits.calls, "");
    tell_figure("another user's calls refused", waits.refused, "");
    tell_figure("another user's calls, p50", waits.p50_ms, "ms");
    tell_figure("another user's calls, p99", waits.p99_ms, "ms");
    tell_figure("another user's calls, longest", waits.longest_ms, "ms");
    tell_figure("calls to the bus itself, p99", waits.bus_p99_ms, "ms");
    return waits;
}

void Siege::expect_served(DailyLife &life) const
{
    Waits waits = tell_waits(life);
    EXPECT_EQ(waits.refused, 0u);
    EXPECT_LT(waits.longest_ms, patience_ms);
}

} // namespace qandor::test
