// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor send: declares a type and sends events of it.

#include "cli/command.hpp"
#include "cli/declaring.hpp"
#include "cli/describe.hpp"
#include "cli/installedtypes.hpp"
#include "cli/json.hpp"
#include "cli/recordfile.hpp"
#include "cli/subscribers.hpp"
#include "cli/switchwatch.hpp"
#include "cli/values.hpp"

namespace qandor::cli {
namespace {

class SendCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.text({"declare", 'd', "the declaration in this file instead of a type", "FILE"},
                     file_);
        options.text({"property", 'p', "makes it a property with its state in this key", "KEY"},
                     property_);
        options.count({"repeat", 'n', "sends so many events", "N"}, repeat_);
        options.seconds({"interval", 'i', "waits so many seconds between them (1)", "S"},
                        interval_);
        options.flag({"stay", 0, "stays until it is interrupted, so that a state stays known"},
                     stay_);
        options.flag({"json", 'j', "tells what was sent as JSON, one object a line"}, json_);
        folders_.add_options(options);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        if (!file_)
            expect_arguments("send", arguments, 1, arguments.size() + 1);
        Declaration declaration = file_ ? read_declaration(*file_) : installed(arguments[0]);
        values_ = parse_values({arguments.begin() + (file_ ? 0 : 1), arguments.end()});
        prepare(declaration);

        SwitchBus bus;
        bus.require_switch();
        MainLoop loop;
        SwitchWatch watch(loop);
        bus_ = &bus;
        loop_ = &loop;
        auto changed = [this](const std::vector<guint32> &ids) { is_wanted_ = !ids.empty(); };
        auto producer = std::make_unique<EventProducer>("qandor send", changed);
        produce(*producer, declaration);
        loop.finish(producer);
        return EX_OK;
    }

private:
    Declaration installed(const std::string &type) const
    {
        InstalledTypes::Type found = folders_.find(type);
        if (!found.declaration)
            throw Failure(EX_DATAERR, found.path + " cannot be read", "'qandor check' says why.");
        return *found.declaration;
    }

    // Finds out what is wrong before anybody is told about the declaration.
    void prepare(Declaration &declaration) const
    {
        if (property_ && !declaration.sample().has(property_->c_str()))
            throw Failure(EX_USAGE, "The type has no key '" + printable(*property_) +
                                        "' that could be the state");
        if (property_)
            declaration.property(*property_);
        if (!can_be_declared(declaration))
            throw Failure(EX_DATAERR,
                          "An external type without the key 'topic0' cannot be declared");
        Event event = declaration.sample();
        fill(event, values_);
    }

    void produce(EventProducer &producer, const Declaration &declaration)
    {
        std::vector<Publication> publications = declare_and_wait(producer, *loop_, {declaration});
        if (publications.empty())
            return;
        publication_ = &publications[0];
        producer_ = producer.c();
        send();
        loop_->run();
        publication_ = nullptr;
    }

    // Once it has been sent the declaration may go: taken back earlier, it would take the event
    // along.
    void send()
    {
        Event event = publication_->event();
        fill(event, values_);
        subscribers_ = subscribers_of(*bus_, event);
        auto sent = [](guint32, ::event *, gpointer self, GError *error) {
            static_cast<SendCommand *>(self)->go_on(error);
        };
        event_producer_int_send_event(producer_, event.c(), event_copy(event.c()), sent, this,
                                      nullptr);
    }

    void go_on(GError *error)
    {
        if (error)
            return loop_->fail({EX_UNAVAILABLE, detail::take_error(error).message()});
        tell(subscribers_);
        ++sent_;
        if (!publication_)
            return; // interrupted
        if (sent_ < repeat_.value_or(1))
            loop_->after(interval_.value_or(1), [this] { send(); });
        else if (!stay_)
            loop_->quit();
    }

    void tell(const std::optional<Subscribers> &subscribers) const
    {
        if (json_) {
            Json json{{"sent", sent_ + 1}, {"wanted", is_wanted_}};
            json["visible"] = subscribers ? Json(subscribers->visible) : Json();
            json["clandestine"] = subscribers ? Json(subscribers->clandestine) : Json();
            print_json_line(json);
        } else if (subscribers) {
            print_line("sent " + text_of(*subscribers));
        } else {
            print_line(is_wanted_ ? "sent; somebody subscribes to such events"
                                  : "sent; nobody who counts subscribes to such events");
        }
        std::fflush(stdout);
    }

    std::optional<std::string> file_, property_;
    std::optional<guint64> repeat_;
    std::optional<double> interval_;
    bool stay_ = false, json_ = false;
    InstalledTypes folders_;
    std::vector<GivenValue> values_;

    const SwitchBus *bus_ = nullptr;
    MainLoop *loop_ = nullptr;
    const Publication *publication_ = nullptr;
    ::event_producer *producer_ = nullptr;
    std::optional<Subscribers> subscribers_;
    bool is_wanted_ = false;
    guint64 sent_ = 0;
};

} // namespace

extern const CommandEntry send_command = {
    "send",
    "sends an event",
    "[OPTION]... TYPE | --declare FILE  [KEY=VALUE]...",
    R"(Declares the installed type, or what is in the file, waits until the switch has
made it known, and sends an event with the values. All open keys have to be
given; 'qandor types' shows them. Then it tells how many there were who
subscribe to it; who may not be told by the switch learns whether there is
anybody.

The state of a property lasts as long as its producer: with --stay it is there
until the command is interrupted.

    qandor send system-load load=0.42 available=512
    qandor send system-load load=0.42 available=512 --repeat 3 --interval 0.1
    qandor send --declare door-moved.xml door=left open=true
    qandor send --declare door-moved.xml --property open door=left open=true
    qandor send power-saving state=true reason='low battery' --stay
)",
    make_command<SendCommand>,
    {Argument::Type, Argument::Value},
};

} // namespace qandor::cli
