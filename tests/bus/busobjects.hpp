// SPDX-License-Identifier: LGPL-2.1-or-later

// Producer and Consumer objects opposite a scripted switch, and the records that pass between them.
#pragma once

#include "bus/consumer.hpp"
#include "bus/producer.hpp"
#include "bus/switch/rawrecords.hpp"
#include "support/fakeswitch.hpp"
#include "support/mainloop.hpp"

#include <gtest/gtest.h>

namespace qandor::test {

constexpr guint32 unknown_id = 4000000000;

// An instance with its connection, gone with its owner.
template <class Instance> class BusObject {
public:
    explicit BusObject(Instance *instance) : instance_(instance) {}
    BusObject(const BusObject &) = delete;
    BusObject &operator=(const BusObject &) = delete;
    ~BusObject() { free(); }

    operator Instance *() const { return instance_; }

    void connect(gboolean (*init)(Instance *, GError **))
    {
        GError *error = nullptr;
        EXPECT_TRUE(init(instance_, &error));
        EXPECT_EQ(error, nullptr);
    }
    void free()
    {
        if (instance_)
            g_object_unref(std::exchange(instance_, nullptr));
    }
    sd_bus *bus() const { return state_of(instance_).presence.bus; }
    ObjectAddress address() const
    {
        const char *name = nullptr;
        sd_bus_get_unique_name(bus(), &name);
        return {name, state_of(instance_).presence.object};
    }

private:
    Instance *instance_;
};

// Waits until the switch has what the object has sent: the answer to a call that changes nothing
// comes behind it.
inline void settle(FakeSwitch &event_switch, const BusObject<Producer> &producer)
{
    event_switch.call(producer.address(), "com.vemo.Event.Producer.RefreshProperty", unknown_id,
                      unknown_id);
}

inline void settle(FakeSwitch &event_switch, const BusObject<Consumer> &consumer)
{
    event_switch.call(consumer.address(), "com.vemo.Event.Consumer.Event", Blob{}, unknown_id);
}

// Waits until the bus has done with a connection that has been closed.
inline void wait_until_left(const std::string &name)
{
    sd_bus *bus = nullptr;
    sd_bus_open_system(&bus);
    auto is_there = [&] {
        sd_bus_creds *made = nullptr;
        int r = sd_bus_get_name_creds(bus, name.c_str(), 0, &made);
        BusCredentialsOwner owner(made);
        return r >= 0;
    };
    EXPECT_TRUE(wait_until([&] { return !is_there(); }));
    sd_bus_flush_close_unref(bus);
}

inline std::string text_of(const SwitchCall &call)
{
    std::string text = call.member + "(";
    for (guint32 number : call.numbers)
        text += (text.back() == '(' ? "" : ",") + std::to_string(number);
    return text + ")";
}

// Calls as "Member(numbers)" each.
inline std::vector<std::string> texts_of(const std::vector<SwitchCall> &calls)
{
    std::vector<std::string> texts;
    for (const SwitchCall &call : calls)
        texts.push_back(text_of(call));
    return texts;
}

inline Owned<event_declaration> new_declaration(const char *topic, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
    return declaration;
}

inline Owned<subscribe_expression> new_expression(const char *topic, const char *state = nullptr)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    if (state)
        subscribe_expression_add_key_value(expression.get(), "state", state);
    return expression;
}

// A subscription as a switch forwards it.
struct Forwarded {
    guint32 id;
    guint32 token;
    std::string subscriber; // a bus name
    bool clandestine = false;
    const char *state = nullptr; // the only one that is wanted
    const char *path = "/subscriber";

    std::string bytes() const
    {
        Owned<subscribe_expression> expression(subscribe_expression_new_full(clandestine));
        subscribe_expression_add_key_value(expression.get(), "topic0", "Device");
        if (state)
            subscribe_expression_add_key_value(expression.get(), "state", state);
        subscribe_expression_set_id(expression.get(), id);
        subscribe_expression_set_dbus_service(expression.get(), subscriber.c_str());
        subscribe_expression_set_dbus_object(expression.get(), path);
        subscribe_expression_set_consumer_token(expression.get(), token);
        return take_bytes(subscribe_expression_serialize(expression.get()));
    }
};

inline Owned<event> read_event(const std::string &bytes)
{
    return Owned<event>(event_deserialize(array_from(bytes).get()));
}

inline std::string notification_bytes()
{
    Owned<notification> notification(notification_new());
    notification_set_declaration(notification.get(), new_declaration("Device").get());
    notification_set_subscribe_expression(notification.get(), new_expression("Device").get());
    notification_set_type(notification.get(), NOTIFY_DECLARATION_ADDED);
    notification_set_declaration_id(notification.get(), 77);
    return take_bytes(notification_serialize(notification.get()));
}

// The text and the code of an error, which is cleared.
inline std::string take_text(GError *&error)
{
    std::string text = error ? std::string(g_quark_to_string(error->domain)) + " " +
                                   std::to_string(error->code) + " " + error->message
                             : std::string("none");
    g_clear_error(&error);
    return text;
}

} // namespace qandor::test
