// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor record: writes events into a file as they come.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/eventwatch.hpp"
#include "cli/expressions.hpp"
#include "cli/owners.hpp"
#include "cli/recordingwriter.hpp"
#include "cli/switchbus.hpp"
#include "cli/terminal.hpp"

#include <set>

namespace qandor::cli {
namespace {

class RecordCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"force", 'f', "write over a file that is there already"}, force_);
        options_.add_to(options);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("record", arguments, 1, arguments.size() + 1);
        Expression expression = any_of({arguments.begin() + 1, arguments.end()});
        MainLoop loop;
        EventWatch watch(loop, "qandor record", options_);
        RecordingWriter writer(arguments[0], force_);
        loop_ = &loop;
        writer_ = &writer;
        watch.subscribe(
            expression,
            [this](const Event &event, std::optional<guint32> uid) { record(event, uid); },
            [this](const Notification &notification) { record(notification); });
        int code = watch.run();
        record_untold();
        writer.finish();
        if (arguments[0] != "-")
            print_line("recorded " + counted(events_, "event", "events"));
        return code;
    }

private:
    void record(const Event &event, std::optional<guint32> uid)
    {
        write(EntryKind::Event, event_serialize(event.c()), uid);
        ++events_;
        guint32 id = event_get_global_id(event.c());
        if (!told_.contains(id))
            untold_.insert(id);
    }

    // The declaration says by itself of which events it is.
    void record(const Notification &notification)
    {
        Declaration declaration = notification.declaration();
        event_declaration_set_global_id(declaration.c(), notification.declaration_id());
        told_.insert(notification.declaration_id());
        untold_.erase(notification.declaration_id());
        write(notification.is_removal() ? EntryKind::Gone : EntryKind::Declared,
              event_declaration_serialize(declaration.c()), std::nullopt);
    }

    // Events come from their producers and declarations are told of by the switch, so that the last
    // event may have come first.
    void record_untold()
    {
        if (untold_.empty() || has_failed_)
            return;
        for (const Declaration &declaration : SwitchBus().declarations())
            if (untold_.contains(event_declaration_get_global_id(declaration.c())))
                write(EntryKind::Declared, event_declaration_serialize(declaration.c()),
                      std::nullopt);
    }

    // Nothing is put behind an entry that could not be written whole.
    void write(EntryKind kind, GArray *record, std::optional<guint32> uid)
    {
        std::string bytes = take_bytes(record);
        if (has_failed_)
            return;
        try {
            writer_->add(kind, std::move(bytes), uid);
        } catch (const Failure &failure) {
            has_failed_ = true;
            loop_->fail(failure);
        }
    }

    WatchOptions options_;
    bool force_ = false;
    MainLoop *loop_ = nullptr;
    RecordingWriter *writer_ = nullptr;
    guint64 events_ = 0;
    std::set<guint32> told_;   // of declarations, by their global ids
    std::set<guint32> untold_; // of those of which events have come
    bool has_failed_ = false;
};

} // namespace

extern const CommandEntry record_command = {
    "record",
    "records events into a file",
    "[OPTION]... FILE [EXPRESSION]...",
    R"(Writes all events, or those that satisfy one of the expressions, into a new
file, with the times at which they came and with their declarations, so that
'qandor replay' can send them again, here or on another device. With '-' for
the file it writes to the standard output.

Like watching, recording is clandestine and begins with the current states of
properties. It goes on until it is interrupted, also across restarts of the
switch. Each entry is written at once: what a recording has that was killed, or
whose disk was full, can be replayed up to there. With --count the exit code is
75 when the time was over before so many events had come. --secure records who
sent each event, too.

    qandor record evening.rec
    qandor record power.rec topic1=Power --count 1 --timeout 10
    qandor record --force power.rec 'topic0=Device & load'
    qandor record - | gzip >evening.rec.gz
)",
    make_command<RecordCommand>,
    {Argument::File, Argument::Expression},
};

} // namespace qandor::cli
