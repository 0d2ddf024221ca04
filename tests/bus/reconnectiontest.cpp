// SPDX-License-Identifier: LGPL-2.1-or-later

// Handles whose bus goes and comes back, or is not there to begin with.

#include "api/eventconsumer.hpp"
#include "api/eventproducer.hpp"
#include "bus/consumer.hpp"
#include "bus/producer.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/records.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <thread>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

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

constexpr const char *producer_lost =
    "The producer \"producer\" has lost its connection to the bus and connects again";
constexpr const char *consumer_lost =
    "The consumer \"consumer\" has lost its connection to the bus and connects again";

class ReconnectionTest : public testing::Test {
protected:
    ~ReconnectionTest() override
    {
        free_handles();
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    void connect()
    {
        producer = event_producer_new_full("producer", take_change, this);
        consumer = event_consumer_new("consumer");
    }
    void free_handles()
    {
        bool producer_gone = !producer, consumer_gone = !consumer;
        auto note_producer = [](event_producer *, gpointer gone) {
            *static_cast<bool *>(gone) = true;
        };
        auto note_consumer = [](event_consumer *, gpointer gone) {
            *static_cast<bool *>(gone) = true;
        };
        if (producer)
            event_producer_int_free(producer, note_producer, &producer_gone);
        if (consumer)
            event_consumer_int_free(consumer, note_consumer, &consumer_gone);
        producer = nullptr;
        consumer = nullptr;
        EXPECT_TRUE(wait_until([&] { return producer_gone && consumer_gone; }));
    }

    static void take_change(GArray *ids, gpointer data)
    {
        auto *self = static_cast<ReconnectionTest *>(data);
        self->changes.push_back(ids->len);
        if (self->on_change)
            self->on_change();
    }
    static void take_event(event *received, gpointer data)
    {
        Owned<event> owner(received);
        static_cast<ReconnectionTest *>(data)->states.push_back(event_get_value(received, "state"));
    }
    guint32 declare(const char *topic = "Device", bool property = false)
    {
        return event_producer_declare(producer, new_declaration(topic, property).get());
    }
    guint32 subscribe(const char *topic = "Device")
    {
        return event_consumer_subscribe(consumer, new_expression(topic).get(), take_event, this);
    }
    // The code of the error with which an event is refused, or -1.
    int send(guint32 id, const std::string &state)
    {
        Owned<event> event(event_producer_prepare_event(producer, id));
        event_set_value(event.get(), "state", state.c_str());
        GError *error = nullptr;
        event_producer_send_event(producer, event.get(), &error);
        int code = error ? error->code : -1;
        g_clear_error(&error);
        return code;
    }
    // Waits until an event arrives.
    bool is_reached(guint32 id)
    {
        states.clear();
        return wait_until([&] {
            send(id, "on");
            return !states.empty();
        });
    }
    bool lose_bus()
    {
        bus.kill();
        return wait_until([&] {
            return state_of(producer->producer).presence.is_lost() &&
                   state_of(consumer->consumer).presence.is_lost();
        });
    }
    void restart_bus()
    {
        bus.start();
        event_switch.kill();
        event_switch.start();
    }

    LogCapture log;
    PrivateBus bus;
    SwitchProcess event_switch;
    event_producer *producer = nullptr;
    event_consumer *consumer = nullptr;
    std::vector<std::string> states;
    std::vector<guint> changes; // the number of declarations with subscribers
    std::function<void()> on_change;
};

TEST_F(ReconnectionTest, EverythingGoesOnWithTheNextBus)
{
    connect();
    guint32 id = declare(), token = subscribe();
    ASSERT_TRUE(is_reached(id));
    std::string path = state_of(producer->producer).presence.object;
    ASSERT_TRUE(lose_bus());
    EXPECT_THAT(log.criticals(), UnorderedElementsAre(producer_lost, consumer_lost));
    EXPECT_THAT(changes, ElementsAre(1, 0));
    EXPECT_EQ(send(id, "nobody there"), 4);

    restart_bus();
    EXPECT_TRUE(is_reached(id));
    EXPECT_THAT(changes, ElementsAre(1, 0, 1));
    EXPECT_TRUE(consumer_token_exists(consumer->consumer, token));
    EXPECT_EQ(state_of(producer->producer).presence.object, path);
    EXPECT_EQ(log.criticals().size(), 2u);
}

TEST_F(ReconnectionTest, APropertyThatChangesMeanwhileIsToldAfterwards)
{
    connect();
    guint32 id = declare("Power", true);
    subscribe("Power");
    ASSERT_TRUE(is_reached(id));
    ASSERT_TRUE(lose_bus());
    states.clear();
    EXPECT_EQ(send(id, "meanwhile"), -1);
    restart_bus();
    EXPECT_TRUE(wait_until([&] { return !states.empty(); }));
    EXPECT_EQ(states.front(), "meanwhile");
}

TEST_F(ReconnectionTest, WhatBeginsAndEndsMeanwhileIsKnownAfterwards)
{
    connect();
    guint32 gone = declare("Gone"), gone_token = subscribe("Device");
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, gone); }));
    ASSERT_TRUE(lose_bus());
    EXPECT_TRUE(event_producer_undeclare(producer, gone));
    EXPECT_TRUE(event_consumer_unsubscribe(consumer, gone_token, nullptr));
    EXPECT_FALSE(event_consumer_refresh(consumer, gone_token, nullptr));
    guint32 id = declare(), token = subscribe();
    EXPECT_TRUE(event_consumer_refresh(consumer, token, nullptr));
    run_pending();
    restart_bus();
    EXPECT_TRUE(is_reached(id));
    states.clear();
    send(id, "last");
    EXPECT_TRUE(wait_until([&] { return !states.empty() && states.back() == "last"; }));
    EXPECT_EQ(std::count(states.begin(), states.end(), "last"), 1) << "one subscription is left";
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_EQ(log.criticals().size(), 2u);
}

TEST_F(ReconnectionTest, QuestionsFailMeanwhile)
{
    connect();
    subscribe();
    run_pending();
    ASSERT_TRUE(lose_bus());
    std::atomic<bool> done = false;
    GError *error = nullptr;
    std::thread asker([&] {
        EXPECT_EQ(
            event_consumer_get_property_state(consumer, new_expression("Power").get(), &error),
            nullptr);
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    asker.join();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code, 7);
    EXPECT_STREQ(error->message, "The connection to the bus is lost");
    g_clear_error(&error);
}

TEST_F(ReconnectionTest, TypesAreNotInstalledMeanwhileAndThatIsTold)
{
    connect();
    run_pending();
    ASSERT_TRUE(lose_bus());
    std::vector<int> codes;
    auto take_code = [](const gchar *, gpointer data, GError *error) {
        static_cast<std::vector<int> *>(data)->push_back(error ? error->code : 0);
        g_clear_error(&error);
    };
    event_producer_add_declaration(producer, "type", new_declaration("Device").get(), take_code,
                                   &codes);
    event_producer_remove_declaration(producer, "type", take_code, &codes);
    EXPECT_TRUE(wait_until([&] { return codes.size() == 2; }));
    EXPECT_THAT(codes, ElementsAre(ENOTCONN, ENOTCONN));
}

TEST_F(ReconnectionTest, CallsUnderWayEndWithAnError)
{
    connect();
    run_pending();
    event_switch.process().signal(SIGSTOP);
    std::vector<int> codes;
    for (int i = 0; i < 200; ++i) // more than are under way at a time
        event_producer_add_declaration(
            producer, "type", new_declaration("Device").get(),
            [](const gchar *, gpointer data, GError *error) {
                static_cast<std::vector<int> *>(data)->push_back(error ? error->code : 0);
                g_clear_error(&error);
            },
            &codes);
    run_pending();
    ASSERT_TRUE(lose_bus());
    EXPECT_TRUE(wait_until([&] { return codes.size() == 200; }));
    EXPECT_THAT(codes, testing::Each(testing::Gt(0)));
}

TEST_F(ReconnectionTest, AHandleMayBeFreedMeanwhile)
{
    connect();
    declare();
    subscribe();
    run_pending();
    ASSERT_TRUE(lose_bus());
    free_handles();
    EXPECT_EQ(log.criticals().size(), 2u);
}

TEST_F(ReconnectionTest, TheFunctionThatIsToldMayFreeTheHandle)
{
    connect();
    guint32 id = declare();
    subscribe();
    ASSERT_TRUE(is_reached(id));
    bool freed = false;
    on_change = [&] {
        event_producer_int_free(
            std::exchange(producer, nullptr),
            [](event_producer *, gpointer gone) { *static_cast<bool *>(gone) = true; }, &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
    };
    bus.kill();
    EXPECT_TRUE(wait_until([&] { return freed; }));
}

TEST_F(ReconnectionTest, TheMainContextSleepsWhileThereIsNoBus)
{
    connect();
    declare();
    subscribe();
    run_pending();
    ASSERT_TRUE(lose_bus());
    int wakeups = 0;
    gint64 end = g_get_monotonic_time() + G_USEC_PER_SEC;
    wait_until([&] {
        ++wakeups;
        return g_get_monotonic_time() >= end;
    });
    EXPECT_LT(wakeups, 500) << "the waiting itself wakes it 50 times";
}

std::size_t open_descriptors()
{
    std::filesystem::directory_iterator descriptors("/proc/self/fd"), end;
    return static_cast<std::size_t>(std::distance(descriptors, end));
}

TEST_F(ReconnectionTest, ManyRestartsUnderLoadLeaveNothingBehind)
{
    connect();
    guint32 id = declare();
    subscribe();
    ASSERT_TRUE(is_reached(id));
    std::size_t descriptors = open_descriptors();
    struct Load {
        std::function<void()> send;
    } load{[&] { send(id, "load"); }};
    guint timer = g_timeout_add(
        2,
        [](gpointer data) -> gboolean {
            static_cast<Load *>(data)->send();
            return G_SOURCE_CONTINUE;
        },
        &load);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(lose_bus()) << i;
        restart_bus();
        gint64 begin = g_get_monotonic_time();
        states.clear();
        ASSERT_TRUE(wait_until([&] { return !states.empty(); })) << i;
        RecordProperty("back_after_usec_" + std::to_string(i),
                       std::to_string(g_get_monotonic_time() - begin));
    }
    g_source_remove(timer);
    EXPECT_EQ(log.criticals().size(), 40u) << "one for each handle and restart";
    EXPECT_TRUE(wait_until([&] { return open_descriptors() == descriptors; }));
}

// Without a bus to begin with.

TEST_F(ReconnectionTest, AHandleThatFindsNoBusConnectsOnceThereIsOne)
{
    bus.kill();
    connect();
    run_pending();
    EXPECT_THAT(log.criticals(), testing::Each(testing::HasSubstr(
                                     "Failed to setup dbus: Failed to connect to bus")));
    EXPECT_EQ(log.criticals().size(), 2u);
    guint32 id = declare();
    subscribe();
    run_pending();
    EXPECT_EQ(log.criticals().size(), 4u) << "that they cannot be sent now";
    restart_bus();
    EXPECT_TRUE(is_reached(id));
    EXPECT_EQ(log.criticals().size(), 4u);
}

} // namespace
