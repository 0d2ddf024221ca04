// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer opposite a scripted switch, as its tests begin.
#pragma once

#include "bus/busobjects.hpp"
#include "bus/callwindow.hpp"
#include "support/privatebus.hpp"

#include <algorithm>

namespace qandor::test {

class ProducerObjectTest : public testing::Test {
protected:
    using Ids = std::vector<guint32>;

    // Files a declaration and has it declared.
    void declare(guint32 id, bool property = false)
    {
        allocate(id, property);
        producer_send_declare(producer, id);
    }
    void allocate(guint32 id, bool property = false)
    {
        producer_allocate_decl_data(producer, id, new_declaration("Device", property).release(),
                                    nullptr, nullptr);
    }
    // What the switch says about a declaration: its global id is ten times the local one.
    void make_known(guint32 id)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", id,
                          10 * id, guint32(500));
    }
    // The switch has forwarded all subscriptions to it.
    void complete(guint32 id)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.DeclarationComplete", id,
                          10 * id);
    }
    Forwarded subscription(guint32 id, guint32 token) const
    {
        return {id, token, event_switch.unique_name()};
    }
    void subscribe(guint32 id, const Forwarded &subscription)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.Subscribe",
                          Blob{subscription.bytes()}, id);
    }
    void subscribe_clandestinely(guint32 id, guint32 subscription_id)
    {
        Forwarded clandestine = subscription(subscription_id, subscription_id);
        clandestine.clandestine = true;
        subscribe(id, clandestine);
    }
    void unsubscribe(guint32 id, guint32 subscription_id)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.Unsubscribe",
                          subscription_id, id);
    }
    void refresh(guint32 id, guint32 subscription_id)
    {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.RefreshProperty",
                          subscription_id, id);
    }
    Owned<event> new_event(guint32 id, const char *state)
    {
        Owned<event> event(producer_prepare_event(producer, id));
        event_set_value(event.get(), "state", state);
        producer_fill_global_event_data(producer, event.get());
        return event;
    }
    void send(guint32 id, const char *state)
    {
        EXPECT_TRUE(producer_send_event(producer, new_event(id, state).get(), nullptr));
    }

    // What has been sent since the last time, all of it.
    std::vector<SwitchCall> take_calls()
    {
        settle(event_switch, producer);
        return event_switch.take();
    }
    std::vector<std::string> take_sent() { return texts_of(take_calls()); }
    // The states that have been delivered, "token:state" each. A consumer that is new gets a few
    // events at a time, the rest when it has answered.
    std::vector<std::string> take_states()
    {
        auto window = CallWindow::find(state_of(producer).presence.bus);
        EXPECT_TRUE(wait_until([&] { return window->slots().taken() == 0; }));
        std::vector<std::string> states;
        for (const SwitchCall &call : take_calls())
            if (call.member == "Event")
                states.push_back(std::to_string(call.numbers.at(0)) + ":" +
                                 event_get_value(read_event(call.bytes).get(), "state"));
        return states;
    }

    static void take_change(GArray *ids, gpointer self)
    {
        auto *test = static_cast<ProducerObjectTest *>(self);
        auto *first = reinterpret_cast<const guint32 *>(ids->data);
        test->changes.emplace_back(first, first + ids->len);
        std::sort(test->changes.back().begin(), test->changes.back().end());
        if (test->on_change)
            test->on_change();
    }
    void release(guint32 id)
    {
        if (decl_data *record = producer_release_declare_id(producer, id))
            producer_send_undeclare(producer, record);
    }

    PrivateBus private_bus;
    FakeSwitch event_switch;
    std::vector<Ids> changes; // what was told, the ids sorted
    std::function<void()> on_change;
    BusObject<Producer> producer{producer_new("producer", take_change, this)};
};

class ConnectedProducerTest : public ProducerObjectTest {
protected:
    ConnectedProducerTest() { producer.connect(producer_init_dbus); }
};

} // namespace qandor::test
