// SPDX-License-Identifier: LGPL-2.1-or-later

// The help: every command has a page that fits, and every example on it works as it stands.

#include "device.hpp"
#include "samplerecords.hpp"

#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <sysexits.h>

using namespace qandor::test;
using testing::AnyOf;
using testing::HasSubstr;

namespace {

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// The first words of the lines under "Commands".
std::vector<std::string> command_names()
{
    std::vector<std::string> names;
    bool is_inside = false;
    for (const std::string &line : lines_of(tool({"help"}).out)) {
        if (is_inside && line.empty())
            break;
        if (is_inside && line.size() > 2 && line[2] != ' ')
            names.push_back(line.substr(2, line.find(' ', 2) - 2));
        is_inside = is_inside || line == "Commands";
    }
    return names;
}

TEST(Help, ListsEveryCommandThatIsThere)
{
    std::vector<std::string> names = command_names();
    EXPECT_EQ(std::set(names.begin(), names.end()),
              (std::set<std::string>{"help", "status", "list", "tree", "types", "watch", "send",
                                     "state", "check", "show", "explain", "graph", "doctor",
                                     "record", "replay", "top"}));
}

TEST(Help, EveryPageFitsAndHasUsageAndExamples)
{
    EXPECT_LE(tool({"help"}).width(), 80u);
    EXPECT_LE(tool({"help", "expressions"}).width(), 80u);
    EXPECT_LE(tool({"help", "exit-codes"}).width(), 80u);
    for (const std::string &name : command_names()) {
        ToolRun page = tool({"help", name});
        EXPECT_EQ(page.code, EX_OK) << name;
        EXPECT_LE(page.width(), 80u) << page;
        EXPECT_THAT(page.out, HasSubstr("\nUsage\n  qandor " + name)) << name;
        EXPECT_THAT(page.out, HasSubstr("\n    qandor " + name)) << name;
        EXPECT_EQ(tool({name, "--help"}).out, page.out) << name;
    }
}

TEST(Help, TellsTheExitCodes)
{
    EXPECT_THAT(tool({"help", "exit-codes"}).out, HasSubstr("69  EX_UNAVAILABLE"));
}

TEST(Help, AnUnknownPageIsAnsweredWithTheNearest)
{
    ToolRun run = tool({"help", "wacth"});
    EXPECT_EQ(run.code, EX_USAGE);
    EXPECT_THAT(run.err, HasSubstr("Did you mean 'watch'?"));
}

TEST(Help, VersionIsTold)
{
    EXPECT_THAT(tool({"--version"}).out, testing::MatchesRegex("qandor [0-9.]+\n"));
}

class Examples : public Device {
protected:
    Examples()
    {
        for (const char *type : {"power-saving", "system-load", "door-moved"})
            install(type, folder.path());
        write_sample_files(folder);
    }

    // An example goes on for ever, or looks into the folders of the system, only for people.
    std::string finite(std::string line) const
    {
        auto begins = [&](const char *command) { return line.starts_with(command); };
        if (std::size_t stay = line.find(" --stay"); stay != std::string::npos)
            line.erase(stay, std::string(" --stay").size());
        for (std::string command : {"qandor watch", "qandor record"})
            if (line.starts_with(command) && line.find("--timeout") == std::string::npos)
                line.insert(command.size(), " --timeout 0.1");
        if (begins("qandor top") && line.find("--count") == std::string::npos)
            line += " --count 1";
        if (begins("qandor types") || begins("qandor send") || begins("qandor check") ||
            begins("qandor doctor"))
            line += " '--types-read-only=" + event_switch.read_only_types().string() +
                    "' '--types-writable=" + event_switch.writable_types().string() + "'";
        return line;
    }

    // What programs read is not broken into lines, nor is what is one thing a line.
    static bool may_be_wide(const std::string &line)
    {
        for (const char *part : {"--json", "--xml", "graph", "check", "watch"})
            if (line.find(part) != std::string::npos)
                return true;
        return false;
    }

    TemporaryFolder folder;
};

TEST_F(Examples, WorkAsTheyStand)
{
    ChildProcess property = keep_state("true");
    std::size_t count = 0;
    std::vector<std::string> pages = command_names();
    pages.emplace_back("expressions");
    for (const std::string &name : pages) {
        for (const std::string &line : lines_of(tool({"help", name}).out)) {
            if (!line.starts_with("    qandor "))
                continue;
            ++count;
            ToolRun run = shell(finite(line.substr(4)), folder.path());
            // Nothing happens while the examples watch, and not every question is answered by yes.
            EXPECT_THAT(run.code, AnyOf(EX_OK, 1, EX_TEMPFAIL)) << line << "\n" << run;
            EXPECT_TRUE(run.width() <= 80 || may_be_wide(line)) << line << "\n" << run;
        }
    }
    EXPECT_GT(count, 30u);
}

} // namespace
