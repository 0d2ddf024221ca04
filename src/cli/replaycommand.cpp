// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor replay: sends recorded events again.

#include "cli/command.hpp"
#include "cli/declaring.hpp"
#include "cli/describe.hpp"
#include "cli/replayer.hpp"
#include "cli/switchbus.hpp"
#include "cli/switchwatch.hpp"
#include "cli/terminal.hpp"

#include <cerrno>
#include <cstring>

namespace qandor::cli {
namespace {

std::string events_text(guint64 number)
{
    return counted(number, "event", "events");
}

double parse_speed(const std::string &text)
{
    if (text == "max")
        return 0;
    char *end = nullptr;
    double speed = g_ascii_strtod(text.c_str(), &end);
    if (text.empty() || *end || !(speed >= 0 && speed <= 1e6))
        throw Failure(EX_USAGE, "--speed: expected is a number from 0 to 1000000 or 'max', not '" +
                                    printable(text) + "'");
    return speed;
}

// What a look through the whole recording finds, before anything is sent.
struct Survey {
    RecordedDeclarations declarations;
    guint64 entries = 0;
    guint64 events = 0;
    guint64 usec = 0; // from the first event to the last
    std::optional<RecordingFault> fault;
};

Survey look_through(RecordingReader &reader)
{
    Survey survey;
    std::optional<guint64> first;
    while (auto entry = reader.next()) {
        if (entry->kind == EntryKind::Event) {
            ++survey.events;
            first = first.value_or(entry->time);
            survey.usec = entry->time - std::min(entry->time, *first);
        } else if (entry->kind == EntryKind::Declared) {
            Declaration declaration = declaration_of(*entry);
            if (can_be_declared(declaration))
                survey.declarations.add(declaration, reader.count());
        }
    }
    survey.entries = reader.count();
    survey.fault = reader.fault();
    return survey;
}

class ReplayCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.text({"speed", 's', "so many times as fast (1); 0 or max: as fast as it goes", "X"},
                     speed_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("replay", arguments, 1, 1);
        double speed = parse_speed(speed_.value_or("1"));
        name_ = printable(arguments[0]);
        RecordingReader reader = open(arguments[0]);
        Survey survey = look_through(reader);
        tell(survey, reader);
        if (!reader.rewind())
            throw Failure(EX_NOINPUT, name_ + " cannot be read twice", "Put it into a file first.");
        bool is_whole = replay(reader, survey, speed) && !survey.fault;
        return is_whole ? EX_OK : EX_DATAERR;
    }

private:
    RecordingReader open(const std::string &path) const
    {
        File file(std::fopen(path.c_str(), "re"));
        if (!file)
            throw Failure(EX_NOINPUT, name_ + " cannot be read: " + std::strerror(errno));
        RecordingReader reader(std::move(file));
        if (const auto &fault = reader.fault())
            throw Failure(EX_DATAERR, described(*fault), "'qandor record' makes recordings.");
        return reader;
    }

    std::string described(const RecordingFault &fault) const
    {
        return name_ + ": byte " + std::to_string(fault.offset) + ": " + fault.what;
    }

    void tell(const Survey &survey, const RecordingReader &reader) const
    {
        std::chrono::system_clock::time_point began{std::chrono::microseconds(reader.started())};
        print_line(iso_time(began) + "  " + events_text(survey.events) + " of " +
                   counted(survey.declarations.all().size(), "declaration", "declarations") + ", " +
                   std::to_string(survey.usec / G_USEC_PER_SEC) + " s long");
        std::fflush(stdout);
        if (survey.fault)
            note(described(*survey.fault) +
                 "; it is whole up to there: " + counted(survey.entries, "entry", "entries"));
    }

    // Whether nothing had to be left out.
    bool replay(RecordingReader &reader, const Survey &survey, double speed) const
    {
        SwitchBus().require_switch();
        MainLoop loop;
        SwitchWatch watch(loop);
        auto producer = std::make_unique<EventProducer>("qandor replay");
        Replayer replayer(loop, *producer, survey.declarations, speed);
        replayer.run(reader, survey.entries);
        loop.finish(producer);
        for (const auto &[id, events] : replayer.left_out())
            note(events_text(events) + " of the declaration " + std::to_string(id) +
                 " cannot be replayed: the recording has no such declaration");
        print_line("sent " + events_text(replayer.sent()));
        return replayer.left_out().empty();
    }

    std::optional<std::string> speed_;
    std::string name_;
};

} // namespace

extern const CommandEntry replay_command = {
    "replay",
    "sends recorded events again",
    "[--speed X] FILE",
    R"(Declares what the recording has declared, each declaration once, waits until the
switch has made all of it known, and sends the events in their order and at
their pace: as they came, or so many times as fast. They are sent by a producer
of the command's own, and carry the time at which they are sent; states of
properties are there as long as it runs.

Sending as fast as it goes is for tests: what a receiver cannot keep up with
waits, up to 64 MiB; beyond that events are dropped, which is said.

A recording that is damaged or cut off is replayed as far as it is whole, and
the exit code is 65, as it is when events had to be left out because the
recording has no declaration of them.

    qandor replay evening.rec
    qandor replay evening.rec --speed 10
    qandor replay evening.rec --speed max
)",
    make_command<ReplayCommand>,
    {Argument::File},
};

} // namespace qandor::cli
