// SPDX-License-Identifier: LGPL-2.1-or-later

// How the switch comes and goes: its name, its signals, its exit codes.

#include "manager.hpp"
#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <algorithm>

using namespace qandor::test;

namespace {

constexpr const char *switch_name = "com.vemo.Event.Switch";

// Runs the switch with standard error in the place of standard output.
ChildProcess run_switch(const std::string &options = "")
{
    return ChildProcess(
        {"sh", "-c", std::string("exec ") + QANDOR_SWITCH_PROGRAM + " " + options + " 2>&1"});
}

std::string all_lines(ChildProcess &process)
{
    std::string text;
    while (auto line = process.read_line())
        text += *line + "\n";
    return text;
}

bool has_owner(RawPeer &peer)
{
    sd_bus_creds *made = nullptr;
    int r = sd_bus_get_name_creds(peer.bus(), switch_name, 0, &made);
    qandor::BusCredentialsOwner owner(made);
    return r >= 0;
}

TEST(Lifecycle, ASecondSwitchSaysThatTheNameIsTakenAndLeavesTheFirstAlone)
{
    PrivateBus bus;
    SwitchProcess first;
    RawPeer peer;
    ChildProcess second = run_switch();
    EXPECT_EQ(all_lines(second),
              "event-switch: another event switch has the name com.vemo.Event.Switch\n");
    EXPECT_EQ(second.wait(), 1);
    EXPECT_TRUE(first.process().is_running());
    EXPECT_EQ(peer.call("Query.GetAllDeclarations").error, "");
}

TEST(Lifecycle, TheNameCannotBeTakenAwayNorWaitedFor)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
    EXPECT_EQ(sd_bus_request_name(peer.bus(), switch_name, SD_BUS_NAME_REPLACE_EXISTING), -EEXIST);
    EXPECT_EQ(peer.call("Query.GetAllDeclarations").error, "");
}

TEST(Lifecycle, ASignalMakesItReleaseTheNameAndExitWithSuccess)
{
    for (int signal : {SIGTERM, SIGINT}) {
        PrivateBus bus;
        SwitchProcess event_switch;
        RawPeer peer;
        EXPECT_TRUE(has_owner(peer));
        event_switch.process().signal(signal);
        EXPECT_EQ(event_switch.process().wait(), 0);
        EXPECT_FALSE(has_owner(peer));
    }
}

TEST(Lifecycle, APeerIsToldNothingInFarewell)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
    std::vector<std::string> heard;
    peer.on_call = [&heard](const Received &received) {
        heard.push_back(received.member);
        return true;
    };
    event_switch.process().signal(SIGTERM);
    event_switch.process().wait();
    EXPECT_TRUE(run_until([&] { return !has_owner(peer); }));
    EXPECT_TRUE(heard.empty());
}

TEST(Lifecycle, WithoutABusItSaysSoAndFails)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    ChildProcess process = run_switch();
    EXPECT_EQ(all_lines(process),
              "event-switch: cannot connect to the system bus: No such file or directory\n");
    EXPECT_EQ(process.wait(), 1);
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

TEST(Lifecycle, WhenTheBusGoesItSaysSoAndFails)
{
    PrivateBus bus;
    RawPeer peer;
    ChildProcess process = run_switch();
    ASSERT_TRUE(process.wait_for("serving"));
    bus.kill();
    EXPECT_TRUE(process.wait_for("the system bus has gone"));
    EXPECT_EQ(process.wait(), 1);
}

// A bus that stands still reads nothing, and tells nothing either.
TEST(Lifecycle, ASignalEndsItAlsoWhenTheBusReadsNothing)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    bus.stop();
    event_switch.process().signal(SIGTERM);
    EXPECT_EQ(event_switch.process().wait(), 0);
    bus.go_on();
}

TEST(Lifecycle, WhenTheBusGoesWhileMuchWaitsItFailsAtOnce)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
    std::string large(60000, 'a');
    for (guint32 i = 0; i < 100; ++i)
        peer.call("Producer.Declare", "/p", "name", Octets{declaration_bytes(large.c_str(), i)});
    bus.stop();
    bus.kill();
    EXPECT_EQ(event_switch.process().wait(), 1);
}

// More calls than are held at once; the bus itself refuses the 129th.
TEST(Lifecycle, CallsOfANameAreHeldUntilTheBusHasToldWhoItIs)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer peer;
    std::vector<std::optional<Answer>> answers(300);
    for (std::size_t i = 0; i < answers.size(); ++i)
        if (i % 2)
            peer.call_later(answers[i], "Consumer.Disconnect", "/c");
        else
            peer.call_later(answers[i], "Query.GetAllDeclarations");
    ASSERT_TRUE(run_until([&] {
        return std::ranges::all_of(answers, [](const auto &answer) { return answer.has_value(); });
    }));
    for (std::size_t i = 0; i < 100; i += 2)
        EXPECT_EQ(answers[i]->error, "") << "a list is never refused";
}

TEST(Lifecycle, UnknownOptionsAreRefusedAndKnownOnesExplained)
{
    ChildProcess unknown = run_switch("--colour");
    EXPECT_NE(all_lines(unknown).find("--colour"), std::string::npos);
    EXPECT_EQ(unknown.wait(), 1);
    ChildProcess help = run_switch("--help");
    EXPECT_NE(all_lines(help).find("--types-writable=DIR"), std::string::npos);
    EXPECT_EQ(help.wait(), 0);
    ChildProcess version = run_switch("--version");
    EXPECT_EQ(all_lines(version).rfind("event-switch ", 0), 0u);
    EXPECT_EQ(version.wait(), 0);
}

TEST(Lifecycle, ItTellsItsServiceManagerWhenTheNameIsThere)
{
    PrivateBus bus;
    RawPeer peer;
    Manager manager;
    ChildProcess process = run_switch();
    EXPECT_EQ(manager.message(20000).value_or("").substr(0, 8), "READY=1\n");
    EXPECT_TRUE(has_owner(peer));
}

TEST(Lifecycle, AReloadIsToldToItsServiceManagerFromItsBeginningToItsEnd)
{
    PrivateBus bus;
    Manager manager;
    ChildProcess process = run_switch();
    ASSERT_EQ(manager.message(20000).value_or("").substr(0, 8), "READY=1\n");
    const gint64 before = g_get_monotonic_time();
    process.signal(SIGHUP);
    const std::string begin = "RELOADING=1\nMONOTONIC_USEC=";
    const std::string message = manager.message(20000).value_or("");
    ASSERT_EQ(message.substr(0, begin.size()), begin);
    EXPECT_GE(std::stoll(message.substr(begin.size())), before);
    EXPECT_EQ(manager.message(20000).value_or("").substr(0, 8), "READY=1\n");
    EXPECT_TRUE(process.wait_for("the configuration has been read again"));
}

// The policy of a bus that denies by default.
TEST(Policy, NobodyElseOwnsTheNameOrSpeaksAsTheSwitch)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    PrivateBus bus;
    RawPeer peer;
    peer.on_call = [](const Received &) { return true; };
    const std::string name = peer.name();
    auto as_somebody = [&](const std::function<bool(sd_bus *)> &check) {
        return as_stranger(bus.address(), [&check] {
            RawPeer stranger;
            return check(stranger.bus());
        });
    };
    EXPECT_EQ(as_somebody([](sd_bus *stranger) {
                  return sd_bus_request_name(stranger, switch_name, 0) == -EACCES;
              }),
              0);
    for (const auto &[interface, member] : std::vector<std::pair<const char *, const char *>>{
             {"com.vemo.Event.Producer", "Subscribe"},
             {"com.vemo.Event.Producer", "GlobalDeclareId"},
             {"com.vemo.Event.Consumer", "Notification"}})
        EXPECT_EQ(as_somebody([&, interface = interface, member = member](sd_bus *stranger) {
                      return sd_bus_call_method(stranger, name.c_str(), "/c", interface, member,
                                                nullptr, nullptr, "") == -EACCES;
                  }),
                  0)
            << member;
    EXPECT_EQ(as_somebody([&name](sd_bus *stranger) {
                  sd_bus_message *made = nullptr;
                  sd_bus_message_new_method_call(stranger, &made, name.c_str(), "/c",
                                                 "com.vemo.Event.Consumer", "Event");
                  qandor::BusMessageOwner event(made);
                  sd_bus_message_set_expect_reply(made, 0);
                  return sd_bus_send(stranger, made, nullptr) >= 0 && sd_bus_flush(stranger) >= 0;
              }),
              0);
    bool received = false;
    peer.on_call = [&received](const Received &call) {
        received = call.member == "Event";
        return true;
    };
    EXPECT_TRUE(run_until([&] { return received; }));
}

} // namespace
