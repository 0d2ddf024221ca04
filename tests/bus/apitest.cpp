// SPDX-License-Identifier: LGPL-2.1-or-later

// Producers and consumers as applications hold them, over a real bus with the real switch.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <qandor/qandor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

struct Deleter {
    void operator()(event *record) const { event_free(record); }
    void operator()(event_declaration *record) const { event_declaration_free(record); }
    void operator()(subscribe_expression *record) const { subscribe_expression_free(record); }
    void operator()(notification *record) const { notification_free(record); }
    void operator()(property_state *record) const { property_state_free(record); }
    void operator()(GError *error) const { g_error_free(error); }
};
template <class Record> using Owned = std::unique_ptr<Record, Deleter>;

Owned<event_declaration> new_declaration(const char *topic, bool property = false)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
    return declaration;
}

Owned<subscribe_expression> new_expression(const char *topic)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return expression;
}

// What a subscription was told: the values of "state", and "+" or "-" for declarations.
struct Receiver {
    std::vector<std::string> states;
    std::vector<std::string> notifications;

    static void receive_event(event *received, gpointer self)
    {
        Owned<event> owner(received);
        static_cast<Receiver *>(self)->states.push_back(event_get_value(received, "state"));
    }
    static void receive_notification(notification *received, gpointer self)
    {
        Owned<notification> owner(received);
        static_cast<Receiver *>(self)->notifications.push_back(
            notification_is_type_deleted(received) ? "-" : "+");
    }
};

class ApiTest : public testing::Test {
protected:
    void TearDown() override
    {
        // Consumers first: what they were told to fill in is gone already.
        for (event_consumer *consumer : consumers)
            free_consumer(consumer);
        for (event_producer *producer : producers)
            free_producer(producer);
    }

    event_producer *new_producer()
    {
        producers.push_back(event_producer_new("producer"));
        return producers.back();
    }
    event_consumer *new_consumer()
    {
        consumers.push_back(event_consumer_new("consumer"));
        return consumers.back();
    }
    static void free_producer(event_producer *producer)
    {
        bool freed = false;
        event_producer_int_free(
            producer, [](event_producer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
    }
    static void free_consumer(event_consumer *consumer)
    {
        bool freed = false;
        event_consumer_int_free(
            consumer, [](event_consumer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
    }

    guint32 declare(event_producer *producer, const char *topic, bool property = false)
    {
        bool complete = false;
        guint32 id = event_producer_declare_and_notify(
            producer, new_declaration(topic, property).get(),
            [](guint32, gpointer data) { *static_cast<bool *>(data) = true; }, &complete);
        EXPECT_TRUE(wait_until([&] { return complete; }));
        EXPECT_TRUE(event_producer_declaration_complete(producer, id));
        return id;
    }
    guint32 subscribe(event_consumer *consumer, const char *topic, Receiver &receiver)
    {
        return event_consumer_subscribe_full(consumer, new_expression(topic).get(),
                                             Receiver::receive_event,
                                             Receiver::receive_notification, &receiver);
    }
    static gboolean send(event_producer *producer, guint32 id, const std::string &state)
    {
        Owned<event> event(event_producer_prepare_event(producer, id));
        event_set_value(event.get(), "state", state.c_str());
        return event_producer_send_event(producer, event.get(), nullptr);
    }
    // An event arrives as soon as the subscription has reached the producer.
    static bool send_until_received(event_producer *producer, guint32 id, const Receiver &receiver)
    {
        return wait_until([&] {
            send(producer, id, "on");
            return !receiver.states.empty();
        });
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    std::vector<event_producer *> producers;
    std::vector<event_consumer *> consumers;
};

TEST_F(ApiTest, AnEventReachesTheSubscriberItMatches)
{
    event_producer *producer = new_producer();
    event_consumer *consumer = new_consumer();
    Receiver matching, other;
    guint32 id = declare(producer, "Device");
    subscribe(consumer, "Device", matching);
    subscribe(consumer, "Elsewhere", other);
    ASSERT_TRUE(wait_until([&] { return matching.notifications.size() == 1; }));

    EXPECT_TRUE(send_until_received(producer, id, matching));
    EXPECT_EQ(matching.states.front(), "on");
    EXPECT_TRUE(other.states.empty());
}

TEST_F(ApiTest, ALateSubscriberIsToldThePropertysState)
{
    event_producer *producer = new_producer();
    guint32 id = declare(producer, "Power", true);
    EXPECT_TRUE(send(producer, id, "saving"));

    event_consumer *consumer = new_consumer();
    Receiver receiver;
    guint32 token = subscribe(consumer, "Power", receiver);
    ASSERT_TRUE(wait_until([&] { return receiver.states.size() == 1; }));
    EXPECT_TRUE(event_consumer_refresh(consumer, token, nullptr));
    ASSERT_TRUE(wait_until([&] { return receiver.states.size() == 2; }));
    EXPECT_THAT(receiver.states, ElementsAre("saving", "saving"));
}

TEST_F(ApiTest, APropertysStateCanBeAskedFor)
{
    // In a process of its own: the one that asks waits on the thread that would have to answer.
    ChildProcess producer({QANDOR_PEER, "property", "Power", "saving"});
    ASSERT_TRUE(producer.wait_for("ready"));
    event_consumer *consumer = new_consumer();
    auto expression = new_expression("Power");

    std::atomic<bool> answered = false;
    property_state *state = nullptr;
    GError *error = nullptr;
    std::thread asker([&] {
        state = event_consumer_get_property_state(consumer, expression.get(), &error);
        answered = true;
    });
    EXPECT_TRUE(wait_until([&] { return answered.load(); }));
    asker.join();
    Owned<property_state> owner(state);
    ASSERT_NE(state, nullptr) << error->message;
    EXPECT_STREQ(inspectable_get_value(property_state_get_inspectable(state), "state"), "saving");
}

TEST_F(ApiTest, AskingForTheStateOfNoPropertyFailsWithTheSwitchsWords)
{
    event_consumer *consumer = new_consumer();
    auto expression = new_expression("Power");
    std::atomic<bool> answered = false;
    GError *error = nullptr;
    property_state *state = nullptr;
    std::thread asker([&] {
        state = event_consumer_get_property_state(consumer, expression.get(), &error);
        answered = true;
    });
    EXPECT_TRUE(wait_until([&] { return answered.load(); }));
    asker.join();
    Owned<GError> owner(error);
    EXPECT_EQ(state, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code, 7);
    EXPECT_STREQ(error->message, "No property matches the expression");
}

TEST_F(ApiTest, NobodyHasToNoticeARestartOfTheSwitch)
{
    event_producer *producer = new_producer();
    event_consumer *consumer = new_consumer();
    Receiver receiver;
    guint32 id = declare(producer, "Device");
    subscribe(consumer, "Device", receiver);
    ASSERT_TRUE(wait_until([&] { return receiver.notifications.size() == 1; }));

    event_switch.kill();
    ASSERT_TRUE(wait_until([&] { return !event_producer_declaration_complete(producer, id); }));
    event_switch.start();
    ASSERT_TRUE(wait_until([&] { return receiver.notifications.size() == 2; }));
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, id); }));
    EXPECT_TRUE(send_until_received(producer, id, receiver));
}

TEST_F(ApiTest, WhatIsDeclaredAndSubscribedWithoutASwitchIsKnownOnceThereIsOne)
{
    event_switch.kill();
    event_producer *producer = new_producer();
    event_consumer *consumer = new_consumer();
    Receiver receiver;
    guint32 id = event_producer_declare(producer, new_declaration("Device").get());
    subscribe(consumer, "Device", receiver);
    run_pending();
    event_switch.start();
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, id); }));
    ASSERT_TRUE(wait_until([&] { return receiver.notifications.size() == 1; }));
    EXPECT_TRUE(send_until_received(producer, id, receiver));
}

TEST_F(ApiTest, AllOfABurstArrivesAlthoughTheProducerIsFreedAtOnce)
{
    constexpr int rounds = 50, burst = 100;
    event_consumer *consumer = new_consumer();
    Receiver receiver;
    subscribe(consumer, "Device", receiver);
    for (int round = 0; round < rounds; ++round) {
        receiver = {};
        event_producer *producer = event_producer_new("producer");
        guint32 id = declare(producer, "Device");
        for (int i = 0; i < burst; ++i)
            ASSERT_TRUE(send(producer, id, std::to_string(i)));
        free_producer(producer);
        ASSERT_TRUE(wait_until([&] { return receiver.states.size() == burst; }))
            << receiver.states.size() << " in round " << round;
        // The farewell has arrived when the switch says that the declaration has gone.
        ASSERT_TRUE(wait_until([&] { return receiver.notifications.size() == 2; })) << round;
        for (int i = 0; i < burst; ++i)
            EXPECT_EQ(receiver.states[i], std::to_string(i));
    }
}

} // namespace
