// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor status: is there a bus, is there a switch, who runs it, and how much there is.

#include "cli/command.hpp"
#include "cli/json.hpp"
#include "cli/monitor.hpp"
#include "cli/table.hpp"

namespace qandor::cli {
namespace {

constexpr const char *counts[] = {"Producers", "Consumers", "Declarations", "Subscriptions"};

std::string lower(const char *text)
{
    return Text(g_ascii_strdown(text, -1)).get();
}

std::string owner_of(const MonitoredLimit &limit)
{
    return limit.uid == G_MAXUINT32 ? "all users" : user_name(limit.uid);
}

std::string share_of(const MonitoredLimit &limit)
{
    guint64 percent = limit.limit == 0 ? 0 : limit.used * 100 / limit.limit;
    return std::to_string(percent) + " %";
}

Style style_of(const MonitoredLimit &limit)
{
    if (limit.used >= limit.limit)
        return Style::Red;
    return limit.used >= limit.limit / 10 * 9 ? Style::Yellow : Style::Plain;
}

class StatusCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as one JSON object"}, json_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("status", arguments, 0, 0);
        SwitchBus bus;
        std::optional<BusPeer> owner = bus.owner();
        if (json_)
            print_json(owner ? json_of(bus, *owner) : Json{{"bus", true}, {"switch", nullptr}});
        else if (owner)
            show(bus, *owner);
        if (owner)
            return EX_OK;
        if (!json_) {
            print_line("bus     there is one\nswitch  " + styled(Style::Red, "there is none"));
            note("'systemctl start event-switch' starts the switch.");
        }
        return EX_UNAVAILABLE;
    }

private:
    static Json json_of(const SwitchBus &bus, const BusPeer &owner)
    {
        Json about{{"bus", true},
                   {"switch",
                    {{"name", owner.name},
                     {"pid", owner.pid ? Json(*owner.pid) : Json()},
                     {"uid", owner.uid ? Json(*owner.uid) : Json()},
                     {"program", owner.program}}}};
        for (const char *count : counts)
            about[lower(count)] = bus.count(count);
        about["limits"] = Json::array();
        for (const MonitoredLimit &limit : list_limits(bus))
            about["limits"].push_back({{"uid", limit.uid == G_MAXUINT32 ? Json() : Json(limit.uid)},
                                       {"name", limit.name},
                                       {"used", limit.used},
                                       {"limit", limit.limit}});
        return about;
    }

    static void show(const SwitchBus &bus, const BusPeer &owner)
    {
        Table about;
        about.add({"bus", "there is one"});
        about.add({"switch", {description_of(owner), Style::Green}});
        for (const char *count : counts)
            about.add({{lower(count)}, {std::to_string(bus.count(count))}});
        about.print();
        print_line("");
        Table limits({"LIMIT", "USER", "USED", "OF", ""});
        for (const MonitoredLimit &limit : list_limits(bus))
            if (limit.used > 0)
                limits.add({{limit.name},
                            {owner_of(limit)},
                            {std::to_string(limit.used)},
                            {std::to_string(limit.limit)},
                            {share_of(limit), style_of(limit)}});
        if (limits.empty())
            print_line("Nothing is used of the limits.");
        else
            limits.print();
    }

    static std::string description_of(const BusPeer &owner)
    {
        std::string text = owner.program.empty() ? "runs" : printable(owner.program);
        if (owner.pid)
            text += ", process " + std::to_string(*owner.pid);
        if (owner.uid)
            text += ", user " + user_name(*owner.uid);
        return text + ", " + printable(owner.name) + " on the bus";
    }

    bool json_ = false;
};

} // namespace

extern const CommandEntry status_command = {
    "status",
    "tells whether there is a bus and a switch, and how much there is",
    "[--json]",
    R"(Shows who runs the event switch, how many producers, consumers, declarations
and subscriptions it knows, and what is used of its limits: one's own, and for
root and the switch's user those of all. It does not start a switch. The exit
code is 0 when there is one and 69 when there is none.

    qandor status
    qandor status --json
)",
    make_command<StatusCommand>,
};

} // namespace qandor::cli
