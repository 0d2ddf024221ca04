// SPDX-License-Identifier: LGPL-2.1-or-later

// record and replay: what was recorded comes again as it came, and files that are damaged are read
// as far as they are whole.

#include "device.hpp"
#include "recordings.hpp"
#include "samplerecords.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <sysexits.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class Recording : public Device {
protected:
    // Records until so many events have come.
    ChildProcess record(const std::string &count, std::vector<std::string> more = {}) const
    {
        std::vector<std::string> command{"record", file, "--count=" + count};
        command.insert(command.end(), more.begin(), more.end());
        ChildProcess recorder = start_tool(command);
        EXPECT_TRUE(wait_for_subscriptions(1));
        return recorder;
    }
    void record_loads(const std::vector<std::string> &loads) const
    {
        ChildProcess recorder = record(std::to_string(loads.size()));
        for (const std::string &load : loads)
            EXPECT_EQ(send_load(load).code, EX_OK);
        EXPECT_EQ(recorder.wait(), EX_OK);
    }
    ChildProcess watch(const std::string &count, std::vector<std::string> more = {}) const
    {
        std::vector<std::string> command{"watch", "--json", "--no-notifications",
                                         "--count=" + count};
        command.insert(command.end(), more.begin(), more.end());
        ChildProcess watcher = start_tool(command);
        EXPECT_TRUE(wait_for_subscriptions(1));
        return watcher;
    }
    static nlohmann::json next(ChildProcess &watcher)
    {
        std::optional<std::string> line = watcher.read_line();
        return line ? nlohmann::json::parse(*line) : nlohmann::json();
    }

    TemporaryFolder folder;
    std::string file = folder.path() / "events.rec";
};

TEST_F(Recording, EventsComeAgainInTheirOrderWithAllTheyHave)
{
    record_loads({"0.5", "0.25", "1"});
    ChildProcess watcher = watch("3");
    ToolRun replayed = tool({"replay", file, "--speed=max"});
    EXPECT_EQ(replayed.code, EX_OK) << replayed;
    EXPECT_THAT(replayed.out, HasSubstr("3 events of 1 declaration"));
    EXPECT_THAT(replayed.out, HasSubstr("sent 3 events\n"));
    nlohmann::json first = next(watcher);
    EXPECT_EQ(first["topics"], (nlohmann::json{"Device", "Load"}));
    EXPECT_EQ(first["values"]["load"], 0.5);
    EXPECT_EQ(first["values"]["available"], 512);
    EXPECT_EQ(next(watcher)["values"]["load"], 0.25);
    EXPECT_EQ(next(watcher)["values"]["load"], 1.0);
}

TEST_F(Recording, StatesAreRecordedAndAreStatesAgain)
{
    {
        ChildProcess property = keep_state("true");
        ToolRun recorded = tool({"record", file, "--count=1"});
        EXPECT_EQ(recorded.code, EX_OK) << recorded;
        EXPECT_EQ(recorded.out, "recorded 1 event\n");
    }
    ChildProcess watcher = watch("1");
    EXPECT_EQ(tool({"replay", file}).code, EX_OK);
    nlohmann::json state = next(watcher);
    EXPECT_EQ(state["property"], true);
    EXPECT_EQ(state["values"]["reason"], "low battery");
    EXPECT_EQ(state["tags"], (nlohmann::json{"power"}));
}

TEST_F(Recording, OnlyWhatIsAskedForIsRecorded)
{
    ChildProcess property = keep_state("true");
    ChildProcess recorder = record("1", {"load"});
    EXPECT_EQ(send_load("1").code, EX_OK);
    EXPECT_EQ(recorder.wait(), EX_OK);
    std::vector<qandor::Event> events = events_of(content_of(file));
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(events[0].has("load"));
}

TEST_F(Recording, RecordingIsClandestineUnlessItShallCount)
{
    ChildProcess recorder = record("2");
    EXPECT_EQ(send_load("1").out, "sent to 1 subscriber, a clandestine one\n");
    recorder.signal(SIGTERM);
    EXPECT_EQ(recorder.wait(), EX_OK);
    ChildProcess visible = record("1", {"--visible", "--force"});
    EXPECT_EQ(send_load("1").out, "sent to 1 subscriber\n");
    EXPECT_EQ(visible.wait(), EX_OK);
}

TEST_F(Recording, ASecureOneKnowsTheSenders)
{
    record_loads({"1"});
    EXPECT_THAT(users_of(content_of(file)), ElementsAre(G_MAXUINT32));
    ChildProcess property = keep_state("true");
    EXPECT_EQ(tool({"record", file, "--secure", "--force", "--count=1"}).code, EX_OK);
    EXPECT_THAT(users_of(content_of(file)), ElementsAre(getuid()));
}

TEST_F(Recording, AnInterruptedOneIsWhole)
{
    ChildProcess recorder = record("9");
    EXPECT_EQ(send_load("1").code, EX_OK);
    ASSERT_TRUE(wait_for_events(file, 1));
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait(), EX_OK);
    EXPECT_EQ(tool({"replay", file}).code, EX_OK);
}

TEST_F(Recording, AKilledOneIsWholeToo)
{
    ChildProcess recorder = record("9");
    EXPECT_EQ(send_load("1").code, EX_OK);
    ASSERT_TRUE(wait_for_events(file, 1));
    recorder.signal(SIGKILL);
    recorder.wait();
    ToolRun replayed = tool({"replay", file});
    EXPECT_EQ(replayed.code, EX_OK) << replayed;
    EXPECT_THAT(replayed.out, HasSubstr("sent 1 event\n"));
}

TEST_F(Recording, TooFewEventsInTimeAreAnExitCode)
{
    EXPECT_EQ(tool({"record", file, "--count=1", "--timeout=0.1"}).code, EX_TEMPFAIL);
    EXPECT_EQ(tool({"record", file, "--timeout=0.1"}).code, EX_CANTCREAT);
    EXPECT_EQ(tool({"record", file, "--timeout=0.1", "--force"}).code, EX_OK);
}

TEST_F(Recording, AFileThatIsThereStaysUnlessForced)
{
    folder.write("events.rec", "precious");
    ToolRun run = tool({"record", file, "--timeout=0.1"});
    EXPECT_EQ(run.code, EX_CANTCREAT);
    EXPECT_THAT(run.err, HasSubstr("is there already\n--force writes over it."));
    EXPECT_EQ(content_of(file), "precious");
    EXPECT_EQ(tool({"record", "/nowhere/events.rec", "--timeout=0.1"}).code, EX_CANTCREAT);
}

TEST_F(Recording, ADiskThatIsFullEndsIt)
{
    ToolRun run = tool({"record", "/dev/full", "--force"});
    EXPECT_EQ(run.code, EX_IOERR);
    EXPECT_THAT(run.err, HasSubstr("/dev/full cannot be written: No space left on device"));
}

// The disk is full in the middle of an entry: a limit on the size of files stands in for it.
TEST_F(Recording, ADiskThatBecomesFullEndsItAndWhatIsWholeIsReplayed)
{
    ChildProcess property = keep_state("true");
    ToolRun run = shell(
        "trap '' XFSZ; ulimit -f 1; '" QANDOR_TOOL "' record --timeout=20 '" + file + "'", "/");
    EXPECT_EQ(run.code, EX_IOERR) << run;
    EXPECT_THAT(run.err, HasSubstr("cannot be written: File too large"));
    EXPECT_EQ(tool({"replay", file}).code, EX_DATAERR);
}

TEST_F(Recording, TheStandardOutputCanBeWritten)
{
    ChildProcess property = keep_state("true");
    ToolRun run = tool({"record", "-", "--count=1"});
    EXPECT_EQ(run.code, EX_OK);
    EXPECT_EQ(events_of(run.out).size(), 1u);
}

TEST_F(Recording, ARestartOfTheSwitchIsSurvived)
{
    ChildProcess recorder = record("2");
    EXPECT_EQ(send_load("1").code, EX_OK);
    ASSERT_TRUE(wait_for_events(file, 1));
    event_switch.kill();
    event_switch.start();
    ASSERT_TRUE(wait_for_subscriptions(1));
    EXPECT_EQ(tool({"send", "--declare", type_file("door-moved"), "door=left", "open=false"}).code,
              EX_OK);
    EXPECT_EQ(recorder.wait(), EX_OK);

    // Both declarations had the id 1.
    ChildProcess watcher = watch("2");
    ToolRun replayed = tool({"replay", file, "--speed=0"});
    EXPECT_EQ(replayed.code, EX_OK) << replayed;
    EXPECT_THAT(replayed.out, HasSubstr("2 events of 2 declarations"));
    EXPECT_EQ(next(watcher)["values"]["load"], 1.0);
    EXPECT_EQ(next(watcher)["values"]["door"], "left");
}

class Replaying : public Recording {
protected:
    ToolRun replay(const std::string &bytes, std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {"replay", folder.write("made.rec", bytes)});
        return tool(more);
    }
};

// On a slow machine events are late, but on none they are early.
TEST_F(Replaying, ThePaceIsThatOfTheRecordingDividedByTheSpeed)
{
    std::string recording =
        recording_head() + declared_entry(7) + event_entry(7, 1000000) + event_entry(7, 3000000);
    gint64 began = g_get_monotonic_time();
    EXPECT_EQ(replay(recording, {"--speed=10"}).code, EX_OK);
    EXPECT_GE(g_get_monotonic_time() - began, 199000);
    std::string days = recording + event_entry(7, 1000000000000);
    EXPECT_EQ(replay(days, {"--speed=1000000"}).code, EX_OK);
    EXPECT_EQ(replay(days, {"--speed=max"}).code, EX_OK);
}

// Nobody reads what the watcher says before the replay is over, so that most of it waits somewhere.
TEST_F(Replaying, ManyEventsAllArriveInTheirOrder)
{
    constexpr int count = 5000;
    std::string recording = recording_head() + declared_entry(7);
    for (int i = 0; i < count; ++i)
        recording += event_entry(7, 0, i);
    ChildProcess watcher = watch(std::to_string(count));
    ToolRun run = replay(recording, {"--speed=max"});
    EXPECT_EQ(run.code, EX_OK) << run;
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(next(watcher)["values"]["load"], static_cast<double>(i));
    EXPECT_EQ(watcher.wait(), EX_OK);
}

TEST_F(Replaying, AnEventMayStandBeforeItsDeclaration)
{
    ToolRun run = replay(recording_head() + event_entry(7, 0) + declared_entry(7));
    EXPECT_EQ(run.code, EX_OK) << run;
    EXPECT_THAT(run.out, HasSubstr("sent 1 event\n"));
}

TEST_F(Replaying, EventsWithoutTheirDeclarationAreSaid)
{
    ToolRun run = replay(recording_head() + declared_entry(7) + event_entry(8, 0) +
                         event_entry(7, 0) + event_entry(8, 0));
    EXPECT_EQ(run.code, EX_DATAERR);
    EXPECT_THAT(run.err, HasSubstr("2 events of the declaration 8 cannot be replayed"));
    EXPECT_THAT(run.out, HasSubstr("sent 1 event\n"));
}

TEST_F(Replaying, ADeclarationIsDeclaredOnceHoweverOftenItWas)
{
    ToolRun run = replay(recording_head() + declared_entry(7) + declared_entry(8) +
                         declared_entry(7) + event_entry(7, 0) + event_entry(8, 0));
    EXPECT_EQ(run.code, EX_OK) << run;
    EXPECT_THAT(run.out, HasSubstr("2 events of 1 declaration,"));
}

TEST_F(Replaying, AddressesInARecordAreNotCalled)
{
    std::string declaration = property_bytes();
    declaration.replace(14, 8, 8, '\x41');
    std::string entries = entry(1, 0, with_global_id(declaration, 7));
    EXPECT_EQ(replay(recording_head() + entries + event_entry(7, 0)).code, EX_DATAERR);
    EXPECT_EQ(
        tool({"send", "--declare", folder.write("property.bin", declaration), "state=1"}).code,
        EX_OK);
}

TEST_F(Replaying, KindsOfLaterVersionsArePassedOver)
{
    ToolRun run =
        replay(recording_head() + declared_entry(7) + entry(99, 0, "news") + event_entry(7, 0));
    EXPECT_EQ(run.code, EX_OK) << run;
    EXPECT_THAT(run.out, HasSubstr("sent 1 event\n"));
}

TEST_F(Replaying, WhatIsCutOffIsReplayedAsFarAsItIsWhole)
{
    std::string whole = recording_head() + declared_entry(7) + event_entry(7, 0);
    std::string last = event_entry(7, 0);
    for (std::size_t size : {std::size_t{1}, std::size_t{20}, last.size() - 1}) {
        ToolRun run = replay(whole + last.substr(0, size));
        EXPECT_EQ(run.code, EX_DATAERR);
        EXPECT_THAT(run.err, HasSubstr("byte " + std::to_string(whole.size()) +
                                       ": the entry that begins here is cut off; it is whole up "
                                       "to there: 2 entries"));
        EXPECT_THAT(run.out, HasSubstr("sent 1 event\n"));
    }
}

TEST_F(Replaying, WhatIsDamagedIsSaidWithItsPlace)
{
    std::string whole = recording_head() + declared_entry(7);
    auto said = [&](const std::string &rest) {
        ToolRun run = replay(whole + rest + event_entry(7, 0));
        EXPECT_EQ(run.code, EX_DATAERR) << run;
        EXPECT_THAT(run.out, HasSubstr("sent 0 events\n"));
        return run.err;
    };
    auto at = [&](std::size_t place) { return "byte " + std::to_string(whole.size() + place); };
    std::string turned = event_entry(7, 0);
    turned[30] = static_cast<char>(turned[30] ^ 1);
    EXPECT_THAT(said(turned), HasSubstr(at(0) + ": the entry that begins here is damaged"));
    EXPECT_THAT(said(std::string(4096, '\0')), HasSubstr(at(0)));
    EXPECT_THAT(said(std::string("\3") + std::string(12, '\0') + "\xff\xff\xff\xff"),
                HasSubstr(at(13) + ": an entry is said to have 4294967295 bytes"));
    // Right by its checksum, and yet no record.
    EXPECT_THAT(said(entry(3, 0, event_bytes() + "x")),
                HasSubstr(at(17 + event_bytes().size()) + ": the record of an entry is malformed"));
    EXPECT_THAT(said(entry(3, 0, declaration_bytes())), HasSubstr(at(17)));
    EXPECT_THAT(said(entry(1, 0, event_bytes())), HasSubstr(at(17)));
}

TEST_F(Replaying, WhatIsNoRecordingIsRefused)
{
    EXPECT_THAT(replay("").err, HasSubstr("byte 0: this is no recording"));
    EXPECT_THAT(replay(event_bytes()).err, HasSubstr("this is no recording"));
    EXPECT_THAT(replay(recording_head().substr(0, 12)).err, HasSubstr("is cut off"));
    std::string later = recording_head();
    later[8] = 2;
    ToolRun run = replay(later);
    EXPECT_EQ(run.code, EX_DATAERR);
    EXPECT_THAT(run.err, HasSubstr("byte 8: this is a recording of version 2"));
    EXPECT_EQ(tool({"replay", "/nowhere"}).code, EX_NOINPUT);
    EXPECT_THAT(shell("cat '" + folder.write("a", recording_head()) +
                          "' | '" QANDOR_TOOL "' replay /dev/stdin",
                      "/")
                    .err,
                HasSubstr("cannot be read twice\nPut it into a file first."));
}

TEST_F(Replaying, SpeedsAreChecked)
{
    for (const char *speed : {"-1", "x", "nan", "", "1e9"})
        EXPECT_EQ(replay(recording_head(), {std::string("--speed=") + speed}).code, EX_USAGE);
}

TEST_F(Replaying, AnInterruptionEndsIt)
{
    std::string path = folder.write("slow.rec", recording_head() + declared_entry(7) +
                                                    event_entry(7, 0) + event_entry(7, 1u << 30));
    ChildProcess watcher = watch("1");
    ChildProcess replayer = start_tool({"replay", path});
    EXPECT_TRUE(watcher.wait_for("Device"));
    replayer.signal(SIGINT);
    EXPECT_TRUE(replayer.wait_for("sent 1 event"));
    EXPECT_EQ(replayer.wait(), EX_OK);
}

TEST_F(Replaying, TheExampleOfThePageIsARecording)
{
    std::string example = example_of_page();
    ToolRun run = replay(example);
    EXPECT_EQ(run.code, EX_DATAERR);
    EXPECT_THAT(run.out, HasSubstr("2001-09-09T01:46:40.000000Z  1 event of 0 declarations"));
    EXPECT_THAT(run.err, HasSubstr("1 event of the declaration 0 cannot be replayed"));
    EXPECT_THAT(run.err, Not(HasSubstr("byte")));
    EXPECT_THAT(users_of(example), ElementsAre(1000u));
}

} // namespace
