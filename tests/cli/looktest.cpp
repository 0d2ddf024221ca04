// SPDX-License-Identifier: LGPL-2.1-or-later

// status, list, tree, types and state on a device.

#include "device.hpp"

#include "bus/switch/strangeruser.hpp"

#include <gmock/gmock.h>

#include <sysexits.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Looking : public Device {
protected:
    ChildProcess producer = keep_state("true");
};

TEST_F(Looking, StatusTellsWhoRunsTheSwitch)
{
    ToolRun run = tool({"status"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, HasSubstr("process " + std::to_string(event_switch.process().pid())));
    EXPECT_THAT(run.out, HasSubstr("declarations   1\n"));
    EXPECT_LE(run.width(), 80u) << run;

    nlohmann::json json = tool({"status", "--json"}).json();
    EXPECT_EQ(json["switch"]["pid"], event_switch.process().pid());
    EXPECT_EQ(json["switch"]["uid"], getuid());
    EXPECT_EQ(json["producers"], 1);
    EXPECT_EQ(json["consumers"], 0);
    EXPECT_EQ(json["subscriptions"], 0);
    EXPECT_FALSE(json["limits"].empty());
}

TEST_F(Looking, ListShowsWhatIsDeclaredAndByWhom)
{
    // In 80 columns a long process id stands in a line of its own.
    ToolRun wide = shell("COLUMNS=200 qandor list", "/");
    EXPECT_EQ(wide.code, EX_OK);
    EXPECT_THAT(wide.out, HasSubstr("Device/Power/Saving  property  'qandor send' (" +
                                    std::to_string(producer.pid()) + ")"));
    EXPECT_THAT(wide.out, HasSubstr("state:bool*"));
    ToolRun run = tool({"list"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_LE(run.width(), 80u) << run;
}

TEST_F(Looking, ListTakesExpressions)
{
    EXPECT_EQ(tool({"list", "--json", "topic0=Device & state"}).json().size(), 1u);
    EXPECT_EQ(tool({"list", "--json", "topic0=Else", "topic1=Power"}).json().size(), 1u);
    EXPECT_EQ(tool({"list", "--json", "topic0=Device & !state"}).json().size(), 0u);
    ToolRun run = tool({"list", "topic0=Else"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, IsEmpty());
    EXPECT_THAT(run.err, HasSubstr("Nothing is declared that matches."));
}

TEST_F(Looking, ListAsJsonHasEverything)
{
    nlohmann::json declaration = tool({"list", "--json"}).json()[0];
    EXPECT_EQ(declaration["topics"], (nlohmann::json{"Device", "Power", "Saving"}));
    EXPECT_EQ(declaration["property"], true);
    EXPECT_EQ(declaration["tags"], (nlohmann::json{"power"}));
    EXPECT_EQ(declaration["declared_by"]["pid"], producer.pid());
    nlohmann::json state = declaration["keys"].back();
    EXPECT_EQ(state["key"], "state");
    EXPECT_EQ(state["type"], "bool");
    EXPECT_EQ(state["nice_name"], "Power saving");
    EXPECT_EQ(state["open"], true);
    EXPECT_EQ(state["tags"], (nlohmann::json{"property-state"}));
}

TEST_F(Looking, TheTreeIsDrawn)
{
    ToolRun run = tool({"tree"});
    EXPECT_EQ(run.out, "Device\n"
                       "└── Power\n"
                       "    └── Saving\n"
                       "        └── property 1: reason:string state:bool* {power}\n");
    EXPECT_EQ(tool({"tree", "--types"}).out,
              "Device\n"
              "├── Power\n"
              "│   └── Saving\n"
              "│       └── property: reason:string state:bool* {power}\n"
              "└── Load\n"
              "    └── event: available:int load:double\n");
}

TEST_F(Looking, TheTreeIsDrawnInAsciiWhereTheTerminalHasNothingElse)
{
    EXPECT_THAT(shell("LC_ALL=C qandor tree", "/").out, HasSubstr("`-- Power\n"));
}

TEST_F(Looking, ColoursAreForTerminalsThatTakeThem)
{
    auto on_terminal = [](const std::string &environment) {
        return shell("script -qec \"" + environment + " '" QANDOR_TOOL "' tree\" /dev/null", "/")
            .out;
    };
    EXPECT_THAT(on_terminal("TERM=xterm"), HasSubstr("\033[1mDevice\033[0m"));
    EXPECT_THAT(on_terminal("TERM=xterm NO_COLOR=1"), Not(HasSubstr("\033")));
    EXPECT_THAT(on_terminal("TERM=dumb"), Not(HasSubstr("\033")));
    EXPECT_THAT(shell("TERM=xterm qandor tree", "/").out, Not(HasSubstr("\033")));
}

TEST_F(Looking, ATypeThatNobodyCouldDeclareIsNotAdded)
{
    TemporaryFolder folder;
    std::string file = folder.write("a.xml", "<declare><expression><keyvalue key='a' value='b'/>"
                                             "</expression></declare>");
    EXPECT_EQ(tool({"types", "add", "a", file}).code, EX_DATAERR);
    EXPECT_FALSE(std::filesystem::exists(event_switch.writable_types() / "a.xml"));
}

TEST_F(Looking, TheTreeShowsNamesSpacesAndTagsOfTopics)
{
    std::ofstream(event_switch.writable_types() / "nice.xml")
        << "<declare><expression><keyvalue key='topic0' value='T' name-space='n' "
           "key-nice-name='A topic'><tag tag='b'/><tag tag='a'/></keyvalue></expression></declare>";
    EXPECT_THAT(tool({"tree", "--types", "topic0=T"}).out, HasSubstr("n:T \"A topic\" {a} {b}\n"));
    nlohmann::json topic = tool({"tree", "--types", "--json", "topic0=T"}).json()[0];
    EXPECT_EQ(topic["topic"], "T");
    EXPECT_EQ(topic["name_space"], "n");
    EXPECT_EQ(topic["nice_name"], "A topic");
    EXPECT_EQ(topic["tags"], (nlohmann::json{"a", "b"}));
    EXPECT_EQ(topic["events"].size(), 1u);
    EXPECT_TRUE(topic["children"].empty());
}

TEST_F(Looking, TypesHaveTheNamesOfTheirFiles)
{
    ToolRun run = tool(with_types({"types"}));
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_THAT(run.out, HasSubstr("door-moved    added   -                    internal event"));
    EXPECT_THAT(run.out, HasSubstr("power-saving  system  Device/Power/Saving  property"));
    EXPECT_LE(run.width(), 80u) << run;
    nlohmann::json types = tool(with_types({"types", "--json"})).json();
    ASSERT_EQ(types.size(), 3u);
    EXPECT_EQ(types[2]["name"], "system-load");
    EXPECT_EQ(types[2]["from"], "system");
}

TEST_F(Looking, TypesThatAreHiddenOrCannotBeReadAreSaid)
{
    install("power-saving", event_switch.writable_types());
    std::ofstream(event_switch.writable_types() / "broken.xml") << "<declare>";
    ToolRun run = tool(with_types({"types"}));
    EXPECT_THAT(run.err, HasSubstr("broken.xml cannot be read"));
    EXPECT_THAT(run.err, HasSubstr("power-saving.xml is hidden by the type of the system"));
}

TEST_F(Looking, TypesAreAddedAndRemoved)
{
    ToolRun added = tool({"types", "add", "door-2", type_file("door-moved")});
    EXPECT_EQ(added.code, EX_OK) << added;
    EXPECT_TRUE(std::filesystem::exists(event_switch.writable_types() / "door-2.xml"));
    EXPECT_EQ(tool({"types", "remove", "door-2"}).code, EX_OK);
    EXPECT_FALSE(std::filesystem::exists(event_switch.writable_types() / "door-2.xml"));
}

TEST_F(Looking, TypesThatCannotBeChangedSayWhy)
{
    ToolRun unknown = tool({"types", "remove", "nothing"});
    EXPECT_EQ(unknown.code, EX_NOINPUT);
    EXPECT_THAT(unknown.err, HasSubstr("There is no such type"));
    EXPECT_EQ(tool({"types", "remove", "system-load"}).code, EX_NOPERM);
    EXPECT_EQ(tool({"types", "add", "system-load", type_file("door-moved")}).code, EX_CANTCREAT);
    EXPECT_EQ(tool({"types", "add", "../a", type_file("door-moved")}).code, EX_USAGE);
    EXPECT_EQ(tool({"types", "add", "a", "/nowhere/a.xml"}).code, EX_NOINPUT);
}

TEST_F(Looking, TypesAreNotForStrangers)
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    int seen = as_stranger(bus.address(), [] {
        ToolRun run = tool({"types", "remove", "door-moved"});
        return run.code == 127 ||
               (run.code == EX_NOPERM && run.err.find("Root may do it") != std::string::npos);
    });
    EXPECT_EQ(seen, 0);
}

TEST_F(Looking, StateTellsTheValues)
{
    EXPECT_EQ(tool({"state", "topic1=Power"}).out,
              "Device/Power/Saving  reason='low battery' state=1\n");
    EXPECT_EQ(tool({"state", "topic1=Power", "--value"}).out, "1\n");
    nlohmann::json state = tool({"state", "topic1=Power", "--json"}).json();
    EXPECT_EQ(state["state_key"], "state");
    EXPECT_EQ(state["values"]["reason"], "low battery");
}

TEST_F(Looking, AStateThatIsNotThereIsSaidWithTheExitCode)
{
    ToolRun run = tool({"state", "topic1=Else"});
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("No property matches the expression"));
    EXPECT_THAT(run.out, IsEmpty());
}

} // namespace
