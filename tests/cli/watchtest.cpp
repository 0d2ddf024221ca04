// SPDX-License-Identifier: LGPL-2.1-or-later

// watch and send, the one looking at the other.

#include "device.hpp"

#include <gmock/gmock.h>

#include <sysexits.h>

using namespace qandor::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

class Watching : public Device {
protected:
    ChildProcess watch(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "watch");
        return start_tool(arguments);
    }
    nlohmann::json next(ChildProcess &watcher)
    {
        std::optional<std::string> line = watcher.read_line();
        return line ? nlohmann::json::parse(*line) : nlohmann::json();
    }

    ChildProcess property = keep_state("true");
};

TEST_F(Watching, EventsAreOneLineEach)
{
    ChildProcess watcher = watch({});
    // The one comes from the switch, the other from the producer: either may be first.
    std::vector<std::string> lines{watcher.read_line().value_or(""),
                                   watcher.read_line().value_or("")};
    EXPECT_THAT(lines,
                UnorderedElementsAre(ContainsRegex("^..:..:......  added  Device/Power/Saving  "
                                                   "reason:string state:bool\\*$"),
                                     ContainsRegex("^..:..:......  state  Device/Power/Saving  "
                                                   "reason='low battery' state=1 \\{power\\}$")));
    ToolRun sent = send_load("0.5");
    EXPECT_EQ(sent.out, "sent to 1 subscriber, a clandestine one\n") << sent;
    EXPECT_TRUE(watcher.wait_for("  event  Device/Load  available=512 load=0.500000"));
    watcher.signal(SIGINT);
    EXPECT_EQ(watcher.wait(), EX_OK);
}

TEST_F(Watching, JsonHasOneObjectALine)
{
    ChildProcess watcher = watch({"--json", "--count=1", "--no-notifications"});
    nlohmann::json event = next(watcher);
    EXPECT_EQ(event["what"], "event");
    EXPECT_EQ(event["property"], true);
    EXPECT_EQ(event["values"]["state"], true);
    EXPECT_EQ(event["values"]["reason"], "low battery");
    EXPECT_EQ(event["tags"], (nlohmann::json{"power"}));
    EXPECT_EQ(watcher.wait(), EX_OK);
}

TEST_F(Watching, JsonTellsWhatIsDeclaredAndTakenBack)
{
    ChildProcess watcher = watch({"--json", "load"});
    ASSERT_TRUE(wait_for_subscriptions(1));
    ASSERT_EQ(send_load("1").code, EX_OK);
    // The event itself may come before, between or behind them.
    std::vector<std::string> told;
    for (int i = 0; i < 3; ++i)
        told.push_back(next(watcher).value("what", ""));
    EXPECT_THAT(told, UnorderedElementsAre("declared", "event", "gone"));
}

TEST_F(Watching, SecureTellsTheSender)
{
    ChildProcess watcher = watch({"--json", "--secure", "--no-notifications", "--count=1"});
    EXPECT_EQ(next(watcher)["uid"], getuid());
}

TEST_F(Watching, StatesFromBeforeTheStartCanBeLeftOut)
{
    ChildProcess watcher = watch({"--json", "--since-start", "--no-notifications"});
    ChildProcess known = watch({"topic1=Power"});
    EXPECT_TRUE(known.wait_for("state"));
    ASSERT_TRUE(wait_for_subscriptions(2));
    EXPECT_EQ(send_load("0.25").code, EX_OK);
    EXPECT_EQ(next(watcher)["values"]["load"], 0.25);
}

TEST_F(Watching, OnlyWhatIsAskedForIsShown)
{
    ChildProcess watcher = watch({"--json", "load", "door", "--count=2", "--no-notifications"});
    // What is sent counts as soon as the switch knows the subscription.
    ASSERT_TRUE(wait_for_subscriptions(1));
    EXPECT_EQ(send_load("1").code, EX_OK);
    EXPECT_EQ(tool({"send", "--declare", type_file("door-moved"), "door=left", "open=false"}).code,
              EX_OK);
    EXPECT_EQ(next(watcher)["values"]["load"], 1.0);
    EXPECT_EQ(next(watcher)["values"]["open"], false);
    EXPECT_EQ(watcher.wait(), EX_OK);
}

TEST_F(Watching, VisibleCountsAsASubscriber)
{
    ChildProcess watcher = watch({"--visible"});
    EXPECT_TRUE(watcher.wait_for("state"));
    ToolRun sent = tool(with_types({"send", "system-load", "available=1", "load=1", "--json"}));
    EXPECT_EQ(sent.json()["visible"], 1);
    EXPECT_EQ(sent.json()["clandestine"], 0);
    EXPECT_EQ(sent.json()["wanted"], true);
}

TEST_F(Watching, TooFewEventsInTimeAreAnExitCode)
{
    EXPECT_EQ(tool({"watch", "nothing", "--count=1", "--timeout=0.1"}).code, EX_TEMPFAIL);
    EXPECT_EQ(tool({"watch", "nothing", "--timeout=0.1"}).code, EX_OK);
}

TEST_F(Watching, ARestartOfTheSwitchIsSurvived)
{
    ChildProcess watcher = watch({"topic1=Power"});
    EXPECT_TRUE(watcher.wait_for("state"));
    event_switch.kill();
    event_switch.start();
    EXPECT_TRUE(watcher.wait_for("state"));
}

TEST_F(Watching, ABusThatGoesEndsIt)
{
    ChildProcess watcher = watch({});
    EXPECT_TRUE(watcher.wait_for("state"));
    bus.kill();
    EXPECT_EQ(watcher.wait(), EX_UNAVAILABLE);
}

class Sending : public Device {};

TEST_F(Sending, NobodyWhoSubscribesIsSaid)
{
    EXPECT_EQ(send_load("1").out, "sent to nobody: nobody subscribes to it\n");
}

TEST_F(Sending, ManyEventsArriveInOrderAndTheLastOneToo)
{
    ChildProcess watcher =
        start_tool({"watch", "--json", "--no-notifications", "--visible", "load", "--count=20"});
    ASSERT_TRUE(wait_for_subscriptions(1));
    ToolRun sent = tool(with_types(
        {"send", "system-load", "available=3", "load=2", "--repeat=20", "--interval=0"}));
    EXPECT_EQ(sent.code, EX_OK);
    EXPECT_EQ(watcher.wait(), EX_OK);
}

TEST_F(Sending, AnyKeyCanBeTheState)
{
    ChildProcess producer = start_tool({"send", "--declare", type_file("door-moved"), "--property",
                                        "open", "--stay", "door=left", "open=true"});
    EXPECT_TRUE(producer.wait_for("sent"));
    EXPECT_EQ(tool({"state", "door", "--value"}).out, "1\n");
    producer.signal(SIGTERM);
    EXPECT_EQ(producer.wait(), EX_OK);
}

TEST_F(Sending, ValuesAreChecked)
{
    auto send = [&](std::vector<std::string> values) {
        values.insert(values.begin(), {"send", "system-load"});
        return tool(with_types(values));
    };
    EXPECT_EQ(send({"load=x", "available=1"}).code, EX_DATAERR);
    EXPECT_EQ(send({"load=1", "available=2147483648"}).code, EX_DATAERR);
    EXPECT_EQ(send({"load=1", "available=1.5"}).code, EX_DATAERR);
    ToolRun open = send({"load=1"});
    EXPECT_EQ(open.code, EX_USAGE);
    EXPECT_THAT(open.err, HasSubstr("Open are: available (int)."));
    ToolRun mistyped = send({"laod=1"});
    EXPECT_EQ(mistyped.code, EX_USAGE);
    EXPECT_THAT(mistyped.err, HasSubstr("Did you mean 'load'?"));
    EXPECT_THAT(send({"topic0=Else", "load=1", "available=1"}).err,
                HasSubstr("has its value already: Device"));
    EXPECT_EQ(send({"load"}).code, EX_USAGE);
    EXPECT_EQ(tool(with_types({"send", "power-saving", "state=2", "reason=a"})).code, EX_DATAERR);
    EXPECT_EQ(tool(with_types({"send", "power-saving", "state=1", "reason=\xff"})).code,
              EX_DATAERR);
}

TEST_F(Sending, AnUnknownTypeIsAnsweredWithTheNearest)
{
    ToolRun run = tool(with_types({"send", "system-laod"}));
    EXPECT_EQ(run.code, EX_NOINPUT);
    EXPECT_THAT(run.err, HasSubstr("Did you mean 'system-load'?"));
}

TEST_F(Sending, AKeyThatIsNotThereCannotBeTheState)
{
    EXPECT_EQ(
        tool(with_types({"send", "system-load", "--property=x", "load=1", "available=1"})).code,
        EX_USAGE);
}

} // namespace
