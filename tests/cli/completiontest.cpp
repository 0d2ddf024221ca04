// SPDX-License-Identifier: LGPL-2.1-or-later

// What words can become, as the tool tells it and as bash makes of it.

#include "device.hpp"
#include "terminal.hpp"

#include <gmock/gmock.h>

#include <sstream>
#include <sysexits.h>

using namespace qandor::test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int file_belongs_here = 1;
using Words = std::vector<std::string>;

Words lines_of(const std::string &text)
{
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

ToolRun ask(Words words)
{
    words.insert(words.begin(), {"complete", "--"});
    return tool(words);
}

Words candidates(const Words &words)
{
    Words found;
    for (const std::string &line : lines_of(ask(words).out))
        found.push_back(line.substr(0, line.find('\t')));
    return found;
}

TEST(Completion, CommandsAreCompletedWithWhatTheyDo)
{
    EXPECT_THAT(ask({"wa"}).out, testing::StartsWith("watch\tshows events as they come\n"));
    EXPECT_THAT(candidates({"re"}), ElementsAre("record", "replay"));
    EXPECT_THAT(candidates({""}), AllOf(Contains("status"), Contains("--version")));
    EXPECT_THAT(candidates({""}), Not(Contains("complete")));
    EXPECT_THAT(candidates({"help", "gr"}), ElementsAre("graph"));
}

TEST(Completion, OptionsAreCompletedWithWhatTheyDo)
{
    EXPECT_THAT(candidates({"watch", "--s"}), ElementsAre("--secure", "--since-start"));
    EXPECT_THAT(candidates({"status", "-"}), ElementsAre("--json", "--help"));
    EXPECT_THAT(ask({"tree", "--ty"}).out, HasSubstr("\t"));
    EXPECT_THAT(candidates({"list", "--", "-"}), IsEmpty());
}

TEST(Completion, FilesAreLeftToTheShell)
{
    for (const Words &words : std::vector<Words>{{"replay", ""},
                                                 {"record", "x"},
                                                 {"check", "a.xml", ""},
                                                 {"show", "--json", ""},
                                                 {"send", "--declare", ""},
                                                 {"send", "--declare=a"},
                                                 {"send", "-d", ""},
                                                 {"explain", "a=1", ""},
                                                 {"types", "add", "name", ""}}) {
        ToolRun run = ask(words);
        EXPECT_EQ(run.code, file_belongs_here) << words[0];
        EXPECT_THAT(run.out, IsEmpty()) << words[0];
    }
}

TEST(Completion, WhereNothingBelongsThereIsNothing)
{
    for (const Words &words : std::vector<Words>{{"status", ""},
                                                 {"replay", "a", ""},
                                                 {"watch", "--count", ""},
                                                 {"watch", "--count=1"},
                                                 {"nothing", ""},
                                                 {"watch", "--nothing", "-x=1"}}) {
        ToolRun run = ask(words);
        EXPECT_EQ(run.code, EX_OK) << words[0];
        EXPECT_THAT(run.out + run.err, IsEmpty()) << words[0];
    }
}

TEST(Completion, WithoutABusOrASwitchThereIsSilence)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    ToolRun without_bus = ask({"watch", "to"});
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    PrivateBus bus;
    ToolRun without_switch = ask({"watch", "to"});
    for (const ToolRun &run : {without_bus, without_switch}) {
        EXPECT_EQ(run.code, EX_OK);
        EXPECT_THAT(run.out + run.err, IsEmpty());
    }
}

// A bus that takes connections and says nothing.
TEST(Completion, ABusThatDoesNotAnswerIsNotWaitedForLong)
{
    TemporaryFolder folder;
    std::string socket = folder.path() / "socket";
    ChildProcess mute({"python3", "-c",
                       "import socket, sys, time\n"
                       "s = socket.socket(socket.AF_UNIX)\n"
                       "s.bind(sys.argv[1])\n"
                       "s.listen()\n"
                       "print('ready', flush=True)\n"
                       "time.sleep(1000)\n",
                       socket});
    ASSERT_TRUE(mute.wait_for("ready"));
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket).c_str(), 1);
    ToolRun run = ask({"watch", "to"});
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_EQ(run.code, EX_OK) << run;
    EXPECT_THAT(run.out + run.err, IsEmpty());
}

class LiveCompletion : public Device {
protected:
    // What bash makes of a line with the cursor at its end, split into words as bash splits it.
    static Words bash(const std::string &line, const std::string &words)
    {
        std::string script = "qandor() { '" QANDOR_TOOL "' \"$@\"; }\n"
                             "source '" QANDOR_COMPLETION "/qandor.bash'\n"
                             "COMP_LINE=" +
                             line + "; COMP_WORDS=(" + words +
                             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                             "COMP_POINT=${#COMP_LINE}; _qandor; "
                             "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"";
        TemporaryFolder folder;
        ToolRun run = shell("bash '" + folder.write("script", script) + "'", "/");
        EXPECT_EQ(run.err, "") << line;
        return lines_of(run.out);
    }

    ChildProcess property = keep_state("true");
    ChildProcess event = start_tool(with_types(
        {"send", "system-load", "available=1", "load=2", "--repeat=2", "--interval=1000"}));
    bool is_sent = event.wait_for("sent");
};

TEST_F(LiveCompletion, KeysAreThoseOfWhatIsDeclared)
{
    EXPECT_THAT(candidates({"watch", ""}), ElementsAre("available=", "load=", "reason=", "state=",
                                                       "topic0=", "topic1=", "topic2="));
    EXPECT_THAT(ask({"watch", "sta"}).out, "state=\tPower saving\n");
    EXPECT_THAT(candidates({"list", "--json", "!lo"}), ElementsAre("!load"));
    EXPECT_THAT(candidates({"top", "a=1", "lo"}), ElementsAre("load="));
    EXPECT_THAT(candidates({"record", "file", "lo"}), ElementsAre("load="));
    EXPECT_THAT(candidates({"state", "a", "lo"}), IsEmpty());
}

TEST_F(LiveCompletion, TopicsAndTruthsAreCompleted)
{
    EXPECT_THAT(candidates({"watch", "topic1="}), ElementsAre("topic1=Load", "topic1=Power"));
    EXPECT_THAT(candidates({"watch", "topic1!=L"}), ElementsAre("topic1!=Load"));
    EXPECT_THAT(candidates({"watch", "state="}), ElementsAre("state=0", "state=1"));
    EXPECT_THAT(candidates({"watch", "*=P"}), ElementsAre("*=Power"));
}

TEST_F(LiveCompletion, ConditionsBeforeSayOfWhichDeclarations)
{
    EXPECT_THAT(candidates({"watch", "topic1=Load & "}),
                ElementsAre("topic1=Load & available=", "topic1=Load & load=",
                            "topic1=Load & topic0=", "topic1=Load & topic1="));
    EXPECT_THAT(candidates({"watch", "topic1=Load | st"}), ElementsAre("topic1=Load | state="));
}

TEST_F(LiveCompletion, OddValuesAreQuoted)
{
    TemporaryFolder folder;
    std::string file = folder.write(
        "odd.xml", "<declare internal='true'><expression><keyvalue key='odd' value='a &amp; b'/>"
                   "</expression></declare>");
    ChildProcess odd = start_tool({"send", "--declare", file, "--repeat=2", "--interval=1000"});
    ASSERT_TRUE(odd.wait_for("sent"));
    EXPECT_THAT(candidates({"watch", "odd="}), ElementsAre("odd=\"a & b\""));
    EXPECT_THAT(candidates({"watch", "odd=\"a & b\" & topic"}), IsEmpty());
}

TEST_F(LiveCompletion, TypesAndTheirKeysAreCompleted)
{
    auto with_folders = [&](Words words, const std::string &last) {
        words = with_types(words);
        words.push_back(last);
        return candidates(words);
    };
    EXPECT_THAT(with_folders({"send"}, ""),
                ElementsAre("door-moved", "power-saving", "system-load"));
    EXPECT_THAT(with_folders({"types", "remove"}, "do"), ElementsAre("door-moved"));
    EXPECT_THAT(candidates({"types", ""}), ElementsAre("add", "remove"));
    EXPECT_THAT(with_folders({"send", "power-saving", "reason=a"}, ""),
                ElementsAre("state=true", "state=false"));
    EXPECT_THAT(with_folders({"send", "system-load"}, "l"), ElementsAre("load="));
    EXPECT_THAT(candidates({"send", "--declare", type_file("door-moved"), "op"}),
                ElementsAre("open=true", "open=false"));
    EXPECT_THAT(candidates({"send", "--declare=" + type_file("door-moved"), "--property", "o"}),
                ElementsAre("open"));
    EXPECT_THAT(candidates({"send", "--declare", type_file("door-moved"), "--property=o"}),
                ElementsAre("--property=open"));
}

TEST_F(LiveCompletion, BashGetsWhatStandsBehindItsBreaks)
{
    EXPECT_THAT(bash("'qandor wat'", "qandor wat"), ElementsAre("watch"));
    EXPECT_THAT(bash("'qandor watch --se'", "qandor watch --se"), ElementsAre("--secure"));
    EXPECT_THAT(bash("'qandor watch lo'", "qandor watch lo"), ElementsAre("load="));
    EXPECT_THAT(bash("'qandor watch topic1=P'", "qandor watch topic1 = P"), ElementsAre("Power"));
    EXPECT_THAT(bash("'qandor watch topic1='", "qandor watch topic1 ="),
                ElementsAre("Load", "Power"));
    EXPECT_THAT(bash("'qandor  watch topic1!=P'", "qandor watch topic1! = P"),
                ElementsAre("Power"));
    EXPECT_THAT(bash("\"qandor watch 'topic1=Load & lo\"", "qandor watch \"'topic1=Load & lo\""),
                ElementsAre("topic1=Load & load="));
    EXPECT_THAT(bash("\"qandor watch 'topic1=Load' lo\"", "qandor watch \"'topic1=Load'\" lo"),
                ElementsAre("load="));
    EXPECT_THAT(bash("'qandor status '", "qandor status ''"), IsEmpty());
    EXPECT_THAT(bash("'qandor replay '", "qandor replay ''"), IsEmpty());
}

TEST_F(LiveCompletion, BashCompletesOnATerminal)
{
    TemporaryFolder folder;
    folder.write("evening.rec", "");
    folder.write("rc", "PS1='$ '\nqandor() { '" QANDOR_TOOL "' \"$@\"; }\n"
                       "source '" QANDOR_COMPLETION "/qandor.bash'\n"
                       "bind 'set enable-bracketed-paste off'\ncd '" +
                           folder.path().string() + "'\n");
    OnTerminal bash({"bash", "--rcfile", folder.path() / "rc", "-i"});
    ASSERT_TRUE(bash.wait_for("$ ")) << bash.output();
    bash.press("qandor list --j\t");
    EXPECT_TRUE(bash.wait_for("list --json ")) << bash.output();
    bash.press("topic1=P\t");
    EXPECT_TRUE(bash.wait_for("topic1=Power ")) << bash.output();
    bash.press("topic1!=P\t");
    EXPECT_TRUE(bash.wait_for("topic1!=Power ")) << bash.output();
    bash.press("'topic1=Load & topic0=\t");
    EXPECT_TRUE(bash.wait_for("'topic1=Load & topic0=Device")) << bash.output();
    bash.press("\025qandor replay ev\t");
    EXPECT_TRUE(bash.wait_for("replay evening.rec ")) << bash.output();
    bash.press("\025exit\n");
    bash.wait();
}

TEST(CompletionFiles, AreWhatTheirShellsCanRead)
{
    const std::pair<std::string, std::string> files[] = {
        {"bash", "qandor.bash"}, {"zsh", "_qandor"}, {"fish", "qandor.fish"}};
    for (const auto &[program, file] : files) {
        std::string line = "command -v ";
        line.append(program).append(" >/dev/null || exit 0; ").append(program);
        line.append(" -n '" QANDOR_COMPLETION "/").append(file).append("'");
        ToolRun run = shell(line, "/");
        EXPECT_EQ(run.code, 0) << file << run;
    }
}

} // namespace
