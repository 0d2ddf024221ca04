// SPDX-License-Identifier: LGPL-2.1-or-later

// What the tool says to command lines that are wrong, and where there is no bus or no switch.

#include "recordings.hpp"
#include "tool.hpp"

#include "support/privatebus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sysexits.h>

using namespace qandor::test;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST(Arguments, WithoutACommandTheHelpIsPointedAt)
{
    ToolRun run = tool({});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, HasSubstr("See 'qandor help'."));
    EXPECT_THAT(run.out, IsEmpty());
}

TEST(Arguments, AMistypedCommandIsAnsweredWithTheNearest)
{
    ToolRun run = tool({"statsu"});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, HasSubstr("There is no command 'statsu'\nDid you mean 'status'?"));
}

TEST(Arguments, ACommandThatIsNearToNothingSuggestsNothing)
{
    ToolRun run = tool({"zzzzzzzz"});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, testing::Not(HasSubstr("Did you mean")));
}

TEST(Arguments, AMistypedOptionIsAnsweredWithTheNearest)
{
    ToolRun run = tool({"list", "--jsno"});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, HasSubstr("'qandor list' has no option '--jsno'\nDid you mean '--json'?"));
}

TEST(Arguments, AnOptionWithoutItsValueIsRefused)
{
    EXPECT_EQ(tool({"watch", "--count"}).code, EX_USAGE);
}

TEST(Arguments, NumbersAreChecked)
{
    for (const char *count : {"0", "-1", "x", "1x", ""})
        EXPECT_EQ(tool({"watch", std::string("--count=") + count}).code, EX_USAGE) << count;
    for (const char *seconds : {"-1", "x", "nan", "inf", "", "1e99"})
        EXPECT_EQ(tool({"watch", std::string("--timeout=") + seconds}).code, EX_USAGE) << seconds;
}

TEST(Arguments, TooManyOrTooFewAreRefused)
{
    EXPECT_THAT(tool({"status", "more"}).err, HasSubstr("has no use for 'more'"));
    EXPECT_EQ(tool({"state"}).code, EX_USAGE);
    EXPECT_EQ(tool({"state", "a", "b"}).code, EX_USAGE);
    EXPECT_EQ(tool({"types", "ad", "x", "y"}).code, EX_USAGE);
    EXPECT_EQ(tool({"send"}).code, EX_USAGE);
}

TEST(Arguments, AWrongExpressionIsShownWithItsPlace)
{
    for (const char *command : {"list", "tree", "watch", "top", "state"}) {
        ToolRun run = tool({command, "a=1 & b!x"});
        EXPECT_EQ(run.code, EX_USAGE) << command;
        EXPECT_THAT(run.err, HasSubstr("a=1 & b!x\n       ^ expected is '!='\n")) << command;
    }
}

TEST(Arguments, ControlCharactersOfAnExpressionDoNotReachTheTerminal)
{
    ToolRun run = tool({"list", "a\033[31m=1 &"});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, testing::Not(HasSubstr("\033")));
}

TEST(Arguments, AnExpressionThatCannotBeBuiltIsRefused)
{
    EXPECT_EQ(tool({"list", "n:a=1 & m:a=2"}).code, EX_USAGE);
}

// With a recording to write and one to read.
std::vector<std::vector<std::string>> commands_that_need_a_switch(TemporaryFolder &folder,
                                                                  const std::string &recording)
{
    return {
        {"status"},
        {"list"},
        {"tree"},
        {"types"},
        {"watch"},
        {"top"},
        {"record", recording},
        {"replay", folder.write("old.rec", recording_head())},
        {"state", "a"},
        {"send", "--declare", std::string(QANDOR_TYPES) + "/door-moved.xml", "door=a", "open=1"},
        {"types", "remove", "a"},
    };
}

TEST(NoBus, EveryCommandSaysSo)
{
    TemporaryFolder folder;
    std::string recording = folder.path() / "new.rec";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    for (const auto &command : commands_that_need_a_switch(folder, recording)) {
        ToolRun run = tool(command);
        EXPECT_EQ(run.code, EX_UNAVAILABLE) << command[0] << run;
        EXPECT_THAT(run.err, HasSubstr("There is no system bus")) << command[0];
        EXPECT_LE(run.width(), 80u) << run;
    }
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

TEST(NoSwitch, EveryCommandSaysSoAndWhatToDo)
{
    PrivateBus bus;
    TemporaryFolder folder;
    std::string recording = folder.path() / "new.rec";
    for (const auto &command : commands_that_need_a_switch(folder, recording)) {
        ToolRun run = tool(command);
        EXPECT_EQ(run.code, EX_UNAVAILABLE) << command[0] << run;
        EXPECT_THAT(run.err, HasSubstr("systemctl start event-switch")) << command[0];
        EXPECT_LE(run.width(), 80u) << run;
    }
    EXPECT_FALSE(std::filesystem::exists(recording));
    ToolRun run = tool({"status", "--json"});
    EXPECT_EQ(run.code, EX_UNAVAILABLE);
    EXPECT_TRUE(run.json()["switch"].is_null());
}

TEST(Output, ThatCannotBeWrittenIsAnError)
{
    EXPECT_EQ(shell("qandor help >/dev/full", "/").code, EX_IOERR);
}

} // namespace
