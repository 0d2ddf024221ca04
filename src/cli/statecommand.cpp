// SPDX-License-Identifier: LGPL-2.1-or-later

// qandor state: the current state of a property.

#include "cli/command.hpp"
#include "cli/describe.hpp"
#include "cli/eventjson.hpp"
#include "cli/expressions.hpp"
#include "cli/recordbytes.hpp"
#include "cli/statekeys.hpp"
#include "cli/switchbus.hpp"
#include "cli/table.hpp"

namespace qandor::cli {
namespace {

constexpr int no_state = 1;

class StateCommand : public Command {
public:
    void add_options(Options &options) override
    {
        options.flag({"json", 'j', "as a JSON object"}, json_);
        options.flag({"value", 'v', "the value of the state alone"}, value_);
    }

    int run(const std::vector<std::string> &arguments) override
    {
        expect_arguments("state", arguments, 1, 1);
        Expression::C expression = parse_argument(arguments[0]).build();
        SwitchBus bus;
        bus.require_switch();
        Message call = bus.new_call(DBUS_INTERFACE_SWITCH_CONSUMER, "GetPropertyState");
        Bytes bytes(subscribe_expression_serialize(expression.c()));
        sd_bus_message_append_array(call.get(), 'y', bytes->data, bytes->len);
        std::string why;
        std::optional<Message> reply = ask(bus, call, why);
        if (!reply) {
            note(why);
            return no_state;
        }
        show(read(*reply));
        return EX_OK;
    }

private:
    // That there is no state is an answer; everything else that goes wrong is a Failure.
    static std::optional<Message> ask(const SwitchBus &bus, const Message &call, std::string &why)
    {
        try {
            return bus.call(call);
        } catch (const Failure &failure) {
            if (failure.code() != EX_NOINPUT)
                throw;
            why = failure.message();
            return std::nullopt;
        }
    }

    static PropertyState read(const Message &reply)
    {
        const void *data = nullptr;
        std::size_t size = 0;
        sd_bus_message_read_array(reply.get(), 'y', &data, &size);
        Record record =
            read_bytes({static_cast<const char *>(data), size}, "The answer of the switch");
        if (auto *state = std::get_if<PropertyState>(&record))
            return std::move(*state);
        throw Failure(EX_UNAVAILABLE, "The switch answers with something else than a state");
    }

    void show(const PropertyState &state) const
    {
        std::vector<KeyView> keys = keys_of(state);
        if (value_)
            return print_value(keys);
        if (json_)
            return print_json(json_of_state(keys));
        print_line(styled(Style::Bold, topic_path(keys)) + "  " + values_text(keys));
    }

    static void print_value(const std::vector<KeyView> &keys)
    {
        for (const KeyView &key : keys)
            if (key.is_state())
                return print_line(printable(key.value));
        throw Failure(EX_DATAERR, "The state has no key that is tagged 'property-state'");
    }

    bool json_ = false;
    bool value_ = false;
};

} // namespace

extern const CommandEntry state_command = {
    "state",
    "tells the current state of a property",
    "[--json | --value] EXPRESSION",
    R"(Asks the producer of a property that matches the expression for its state. When
several match, the first that answers is taken. The exit code is 1 when there
is no such property or it has no state yet.

    qandor state 'topic1=Power'
    qandor state 'topic1=Power & topic2=Saving' --value
    qandor state 'topic1=Power' --json
)",
    make_command<StateCommand>,
    {Argument::Expression},
};

} // namespace qandor::cli
