// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor watch: events and declarations as they come.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/eventwatch.hpp"
#include "cli/expressions.hpp"
#include "cli/switchbus.hpp"

namespace qandor::cli {
namespace {

using Clock = std::chrono::system_clock;

std::string line_of(const char *what, Style style, Clock::time_point time,
                    const std::vector<KeyView> &keys, const std::string &content)
{
    std::string line = styled(Style::Dim, clock_time(time)) + "  " + styled(style, what) + "  " +
                       styled(Style::Bold, topic_path(keys));
    return content.empty() ? line : line + "  " + content;
}

Json begun(const char *what)
{
    return {{"what", what}};
}

class WatchCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "one JSON object a line"}, json_);
        options_.add_to(options);
        options.flag({"no-notifications", 0, "do not tell what is declared and taken back"},
                     quiet_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        Expression expression = any_of(arguments);
        MainLoop loop;
        EventWatch watch(loop, "qandor watch", options_);
        NotificationFunction notification;
        if (!quiet_)
            notification = [this](const Notification &told) { tell(told); };
        watch.subscribe(
            expression,
            [this](const Event &event, std::optional<guint32> uid) { tell(event, uid); },
            notification);
        return watch.run();
    }

private:
    void tell(const Event &event, std::optional<guint32> uid) const
    {
        json_ ? write(event, uid) : show(event, uid);
        std::fflush(stdout);
    }

    void write(const Event &event, std::optional<guint32> uid) const
    {
        Json json = begun("event");
        json.update(json_of(event));
        if (options_.secure)
            json["uid"] = uid ? Json(*uid) : Json();
        print_json_line(json);
    }

    void show(const Event &event, std::optional<guint32> uid) const
    {
        std::vector<KeyView> keys = keys_of(event);
        std::string content = values_text(keys);
        if (std::string tags = tags_text(event.tags()); !tags.empty())
            content += " " + tags;
        if (options_.secure)
            content += " from " + (uid ? user_name(*uid) : std::string("?"));
        bool is_state = event.is_property();
        print_line(line_of(is_state ? "state" : "event", is_state ? Style::Yellow : Style::Cyan,
                           event.time(), keys, content));
    }

    void tell(const Notification &notification) const
    {
        Clock::time_point when = time_of(notification);
        json_ ? write(notification, when) : show(notification, when);
        std::fflush(stdout);
    }

    static void write(const Notification &notification, Clock::time_point when)
    {
        Json json = begun(notification.is_removal() ? "gone" : "declared");
        json["time"] = iso_time(when);
        json.update(json_of(notification.declaration()));
        json["declaration"] = notification.declaration_id();
        print_json_line(json);
    }

    static void show(const Notification &notification, Clock::time_point when)
    {
        std::vector<KeyView> keys = keys_of(notification.declaration().sample());
        bool is_gone = notification.is_removal();
        print_line(line_of(is_gone ? "gone " : "added", is_gone ? Style::Red : Style::Green, when,
                           keys, keys_text(keys)));
    }

    WatchOptions options_;
    bool json_ = false;
    bool quiet_ = false;
};

} // namespace

extern const CommandEntry watch_command = {
    "watch",
    "shows events as they come",
    "[OPTION]... [EXPRESSION]...",
    R"(Shows all events, or those that satisfy one of the expressions, one in a line:
the time, what it is, the topics, the values. What it is:

    event   something happened
    state   the state of a property, as it is at the start or as it has become
    added   producers declare such events from now on, or did so before
    gone    such a declaration has been taken back

Watching is clandestine: it does not count as subscribing, and producers that
send only to somebody stay quiet, unless --visible is given. It goes on until
it is interrupted, also across restarts of the switch. With --count the exit
code is 75 when the time was over before so many events had come. A secure
watch asks the bus who sent each event, and ends when the sender has left the
bus before the bus was asked.

    qandor watch
    qandor watch 'topic0=Device & load'
    qandor watch topic1=Power --count 1 --timeout 10
    qandor watch --json --since-start --no-notifications
    qandor watch --secure topic0=Device
)",
    make_command<WatchCommand>,
    {Argument::Expression},
};

} // namespace qandor::cli
