// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor top: how much comes of what, again and again.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/eventwatch.hpp"
#include "cli/expressions.hpp"
#include "cli/owners.hpp"
#include "cli/screen.hpp"
#include "cli/toptable.hpp"

#include <map>
#include <set>

namespace qandor::cli {
namespace {

constexpr double least_interval = 0.1;

// What came since the last look, and in all.
struct Tally {
    guint64 events = 0;
    guint64 bytes = 0;
    guint64 all_events = 0;
};

class TopCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.seconds({"interval", 'i', "look again after so many seconds (1)", "S"}, interval_);
        options.count({"count", 'n', "end after so many looks", "N"}, count_);
        options.flag({"json", 'j', "one JSON object a line for each look"}, json_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        if (interval_ && *interval_ < least_interval)
            throw Failure(EX_USAGE, "--interval: less than 0.1 seconds is too short");
        expression_ = any_of(arguments);
        MainLoop loop;
        loop_ = &loop;
        EventWatch watch(loop, "qandor top", {});
        SwitchBus bus;
        bus_ = &bus;
        watch.subscribe(expression_,
                        [this](const Event &event, std::optional<guint32>) { take(event); });
        look_on();
        return watch.end();
    }

private:
    // On a terminal there is something to see from the first moment on.
    void look_on()
    {
        looked_at_ = g_get_monotonic_time();
        std::optional<Screen> screen;
        if (is_live() && !json_) {
            screen.emplace([this](char key) {
                if (key == 'q')
                    loop_->quit();
            });
            draw(table(1));
        }
        wait();
        loop_->run();
    }

    void wait()
    {
        loop_->after(interval_.value_or(1), [this] { look(); });
    }

    void take(const Event &event)
    {
        Tally &tally = tallies_[event_get_global_id(event.c())];
        Bytes bytes(event_serialize(event.c()));
        ++tally.events;
        ++tally.all_events;
        tally.bytes += bytes->len;
    }

    void look()
    {
        gint64 now = g_get_monotonic_time();
        TopTable seen = table(static_cast<double>(now - looked_at_) / G_USEC_PER_SEC);
        looked_at_ = now;
        for (auto &[id, tally] : tallies_)
            tally.events = tally.bytes = 0;
        tell(seen);
        if (count_ && ++looks_ == *count_)
            loop_->quit();
        else
            wait();
    }

    TopTable table(double seconds)
    {
        TopTable table{{}, seconds, ask_switch()};
        auto subscribers = subscribers_by_declaration(*bus_);
        for (const Declaration &declaration : declarations_) {
            guint32 id = declaration.global_id();
            const Tally &tally = tallies_[id];
            table.rows.push_back({&declaration, topic_path(keys_of(declaration.sample())),
                                  static_cast<double>(tally.events) / seconds,
                                  static_cast<double>(tally.bytes) / seconds, tally.all_events,
                                  subscribers ? std::optional((*subscribers)[id]) : std::nullopt});
        }
        table.sort();
        return table;
    }

    // Whether there is a switch: one that is away leaves what was there before.
    bool ask_switch()
    {
        try {
            declarations_ = bus_->declarations();
        } catch (const Failure &) {
            return false;
        }
        std::erase_if(declarations_, [this](const Declaration &declaration) {
            return !declaration.matches(expression_);
        });
        forget_what_is_gone();
        return true;
    }

    void forget_what_is_gone()
    {
        std::set<guint32> ids;
        for (const Declaration &declaration : declarations_)
            ids.insert(declaration.global_id());
        std::erase_if(tallies_, [&](const auto &entry) { return ids.count(entry.first) == 0; });
    }

    void tell(const TopTable &table) const
    {
        if (json_)
            print_json_line(table.json());
        else if (is_live())
            return draw(table);
        else
            print_plainly(table);
        std::fflush(stdout);
    }

    static void draw(const TopTable &table)
    {
        look_at_terminal(); // which may be wider now
        std::vector<std::string> lines = table.lines();
        lines.insert(lines.begin(), table.title() + styled(Style::Dim, "  (q: end)"));
        Screen::draw(lines);
    }

    static void print_plainly(const TopTable &table)
    {
        print_line(table.title());
        for (const std::string &line : table.lines())
            print_line(line);
        print_line("");
    }

    std::optional<double> interval_;
    std::optional<guint64> count_;
    bool json_ = false;

    Expression expression_;
    MainLoop *loop_ = nullptr;
    const SwitchBus *bus_ = nullptr;
    std::vector<Declaration> declarations_;
    std::map<guint32, Tally> tallies_;
    gint64 looked_at_ = 0;
    guint64 looks_ = 0;
};

} // namespace

extern const CommandEntry top_command = {
    "top",
    "shows how much comes of what, again and again",
    "[OPTION]... [EXPRESSION]...",
    R"(Shows all declarations, or those whose events can satisfy one of the
expressions, with the events and bytes that came of each a second, the busiest
first. On a terminal the table stands in its place until 'q' is pressed;
elsewhere each look is printed behind the last.

Like watching it is clandestine: producers that send only to somebody stay
quiet. Who subscribes is shown to root and to the switch's own user, and does
not count this command.

    qandor top
    qandor top topic0=Device --interval 0.5
    qandor top --count 1
    qandor top --json --count 2 --interval 0.2
)",
    make_command<TopCommand>,
    {Argument::Expression},
};

} // namespace qandor::cli
