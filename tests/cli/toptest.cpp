// SPDX-License-Identifier: LGPL-2.1-or-later

// top: rates of what is declared, on a terminal and elsewhere.

#include "device.hpp"
#include "terminal.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <sysexits.h>

using namespace qandor::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char *take_page = "\033[?1049h";
constexpr const char *give_page_back = "\033[?1049l";

class Top : public Device {
protected:
    // The first look at which the condition holds.
    template <class Condition> static nlohmann::json look(ChildProcess &top, Condition holds)
    {
        for (int tries = 0; tries < 200; ++tries) {
            std::optional<std::string> line = top.read_line();
            nlohmann::json json = line ? nlohmann::json::parse(*line) : nlohmann::json();
            if (!line || holds(json))
                return json;
        }
        return {};
    }
    static auto has_declarations(std::size_t count)
    {
        return [count](const nlohmann::json &json) { return json["declarations"].size() == count; };
    }
    static auto has_events(int count)
    {
        return [count](const nlohmann::json &json) {
            return json["declarations"].size() == 1 && json["declarations"][0]["events"] == count;
        };
    }

    ChildProcess property = keep_state("true");
};

TEST_F(Top, PlainLooksFollowOneAnotherAwayFromATerminal)
{
    ToolRun run = tool({"top", "--count=2", "--interval=0.1"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, ContainsRegex("^..:..:......  [0-9.]+ events/s of 1 declaration\n"
                                       "ID  TOPIC                KIND      EVENTS/S  BYTES/S  "
                                       "EVENTS  SUBSCRIBERS\n"
                                       "1   Device/Power/Saving  property  "));
    EXPECT_THAT(run.out, Not(HasSubstr("\033")));
    EXPECT_LE(run.width(), 80u) << run;
}

TEST_F(Top, EventsAndBytesASecondAreCounted)
{
    ChildProcess top = start_tool({"top", "--json", "--interval=0.1", "topic1=Power"});
    nlohmann::json seen = look(top, has_events(1))["declarations"][0];
    EXPECT_EQ(seen["topics"], (nlohmann::json{"Device", "Power", "Saving"}));
    EXPECT_GT(seen["events_per_second"], 0.0);
    EXPECT_GT(seen["bytes_per_second"], seen["events_per_second"]);
    nlohmann::json later = look(top, [](const nlohmann::json &json) {
        return json["declarations"][0]["events_per_second"] == 0.0;
    });
    EXPECT_EQ(later["declarations"][0]["events"], 1);
}

TEST_F(Top, TheBusiestComesFirst)
{
    ChildProcess top = start_tool({"top", "--json", "--interval=0.1"});
    ASSERT_TRUE(wait_for_subscriptions(1));
    ChildProcess sender = start_tool(with_types(
        {"send", "system-load", "available=1", "load=2", "--repeat=1000000", "--interval=0.001"}));
    nlohmann::json seen = look(top, [](const nlohmann::json &json) {
        return json["declarations"].size() == 2 &&
               json["declarations"][0]["events_per_second"] > 0.0 &&
               json["declarations"][1]["events_per_second"] == 0.0;
    });
    EXPECT_EQ(seen["declarations"][0]["topics"][1], "Load");
}

TEST_F(Top, SubscribersAreThoseOfOthers)
{
    ChildProcess watcher = start_tool({"watch", "--visible"});
    ChildProcess looker = start_tool({"watch"});
    ASSERT_TRUE(wait_for_subscriptions(2));
    nlohmann::json seen =
        tool({"top", "--json", "--count=1", "--interval=0.1"}).json()["declarations"][0];
    EXPECT_EQ(seen["visible"], 1);
    EXPECT_EQ(seen["clandestine"], 1);
    EXPECT_THAT(tool({"top", "--count=1", "--interval=0.1"}).out, HasSubstr("1, 1 clandestine\n"));
}

TEST_F(Top, ASwitchThatIsAwayIsSaidAndComesBack)
{
    ChildProcess top = start_tool({"top", "--json", "--interval=0.1"});
    look(top, has_declarations(1));
    event_switch.kill();
    nlohmann::json away = look(top, [](const nlohmann::json &json) { return !json["switch"]; });
    EXPECT_EQ(away["declarations"].size(), 1u);
    event_switch.start();
    nlohmann::json back = look(top, [](const nlohmann::json &json) {
        return json["switch"] == true && json["declarations"].size() == 1;
    });
    EXPECT_EQ(back["declarations"][0]["declaration"], 1);
}

TEST_F(Top, IntervalsAreChecked)
{
    EXPECT_EQ(tool({"top", "--interval=0.01"}).code, EX_USAGE);
}

TEST_F(Top, OnATerminalTheTableStaysInItsPlaceUntilQIsPressed)
{
    OnTerminal top = tool_on_terminal({"top", "--interval=0.1"});
    ASSERT_TRUE(top.wait_for(take_page)) << top.output();
    for (int looks = 0; looks < 3; ++looks) {
        ASSERT_TRUE(top.wait_for("\033[H")) << top.output();
        ASSERT_TRUE(top.wait_for("Device/Power/Saving")) << top.output();
    }
    EXPECT_FALSE(top.is_as_before());
    top.press("xq");
    EXPECT_TRUE(top.wait_for(give_page_back)) << top.output();
    EXPECT_EQ(top.wait(), EX_OK);
    EXPECT_TRUE(top.is_as_before());
}

TEST_F(Top, AnInterruptionGivesTheTerminalBack)
{
    OnTerminal top = tool_on_terminal({"top"});
    ASSERT_TRUE(top.wait_for("Device/Power/Saving")) << top.output();
    top.press("\003");
    EXPECT_TRUE(top.wait_for(give_page_back)) << top.output();
    EXPECT_EQ(top.wait(), EX_OK);
    EXPECT_TRUE(top.is_as_before());
}

TEST_F(Top, ABusThatGoesGivesTheTerminalBack)
{
    OnTerminal top = tool_on_terminal({"top", "--interval=0.1"});
    ASSERT_TRUE(top.wait_for("Device/Power/Saving")) << top.output();
    bus.kill();
    EXPECT_TRUE(top.wait_for(give_page_back)) << top.output();
    EXPECT_TRUE(top.wait_for("The bus has gone")) << top.output();
    EXPECT_EQ(top.wait(), EX_UNAVAILABLE);
    EXPECT_TRUE(top.is_as_before());
}

TEST_F(Top, NoMoreLinesAreDrawnThanTheTerminalHas)
{
    std::vector<ChildProcess> properties;
    properties.reserve(30);
    for (int i = 0; i < 30; ++i)
        properties.push_back(keep_state("true"));
    OnTerminal top = tool_on_terminal({"top", "--interval=0.1"});
    ASSERT_TRUE(top.wait_for("31 declarations")) << top.output();
    ASSERT_TRUE(top.wait_for("\033[J"));
    std::string page = top.output().substr(0, top.output().find("\033[J"));
    EXPECT_EQ(std::count(page.begin(), page.end(), '\n'), 23);
}

} // namespace
