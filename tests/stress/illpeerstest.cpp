// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer beside consumers that never answer, on a real bus, and one that sends faster than its
// main loop runs.

#include "api/eventproducer.hpp"
#include "bus/callwindow.hpp"
#include "bus/producer.hpp"
#include "footprint.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <qandor/qandor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace qandor;
using namespace qandor::test;

namespace {

class IllPeersTest : public testing::Test {
protected:
    IllPeersTest() : producer(event_producer_new("producer")), consumer(event_consumer_new("sound"))
    {
        bool complete = false;
        event_declaration *declaration = event_declaration_new(FALSE);
        event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
        event_declaration_add_key(declaration, "number", VALUE_TYPE_INT);
        id = event_producer_declare_and_notify(
            producer, declaration,
            [](guint32, gpointer data) { *static_cast<bool *>(data) = true; }, &complete);
        event_declaration_free(declaration);
        EXPECT_TRUE(wait_until([&] { return complete; }));
    }
    ~IllPeersTest() override
    {
        guint freed = 0;
        free_producer(&freed);
        event_consumer_int_free(
            consumer, [](event_consumer *, gpointer count) { ++*static_cast<guint *>(count); },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed == 2; }));
    }

    void free_producer(guint *freed)
    {
        event_producer_int_free(
            producer, [](event_producer *, gpointer count) { ++*static_cast<guint *>(count); },
            freed);
    }

    // Subscribes; from then on the numbers that come are counted while they are in order.
    void subscribe()
    {
        guint told = 0;
        subscribe_expression *expression = subscribe_expression_new();
        subscribe_expression_add_key_value(expression, "topic0", "Device");
        counter = {this, &told};
        event_consumer_subscribe_full(consumer, expression, count_event, count_notification,
                                      &counter);
        subscribe_expression_free(expression);
        EXPECT_TRUE(wait_until([&] { return told == 1; }));
        counter.told = nullptr;
    }

    void send(gint number)
    {
        event *event = event_producer_prepare_event(producer, id);
        event_set_value(event, "number", &number);
        EXPECT_TRUE(event_producer_send_event(producer, event, nullptr));
        event_free(event);
    }

    struct Counter {
        IllPeersTest *test;
        guint *told;
    };
    static void count_event(event *event, gpointer data)
    {
        IllPeersTest &test = *static_cast<Counter *>(data)->test;
        gint number = -1;
        event_get_typed_value(event, "number", &number);
        event_free(event);
        EXPECT_GT(number, test.last_number);
        test.last_number = number;
        ++test.received;
    }
    static void count_notification(notification *notification, gpointer data)
    {
        notification_free(notification);
        if (guint *told = static_cast<Counter *>(data)->told)
            ++*told;
    }

    // The events that the warnings say were dropped.
    gint told_as_dropped() const
    {
        const std::string marker = "does not keep up: ";
        gint sum = 0;
        for (const std::string &line : log.warnings())
            if (std::size_t at = line.find(marker); at != std::string::npos)
                sum += std::stoi(line.substr(at + marker.size()));
        return sum;
    }

    LogCapture log;
    PrivateBus bus;
    SwitchProcess event_switch;
    event_producer *producer;
    event_consumer *consumer;
    Counter counter{};
    guint32 id = 0;
    gint received = 0;
    gint last_number = -1;
};

class DeafPeersTest : public IllPeersTest, public testing::WithParamInterface<guint> {
protected:
    // Times are a hundredth of what they are elsewhere.
    void hurry()
    {
        WindowLimits limits;
        limits.silence /= 100;
        limits.timeout /= 100;
        CallWindow::open(state_of(producer->producer).presence.bus, limits);
    }
};

TEST_P(DeafPeersTest, OneThatAnswersGetsEveryEvent)
{
    hurry();
    ChildProcess deaf({QANDOR_PEER, "deaf", "Device", std::to_string(GetParam())});
    std::optional<std::string> line;
    ASSERT_TRUE(wait_until([&] { return (line = deaf.read_line(0.01)).has_value(); }));
    ASSERT_EQ(*line, "ready");
    subscribe();

    constexpr gint count = 600;
    gint sent = 0;
    auto tick = [&] {
        send(sent++);
        return sent < count;
    };
    using Tick = decltype(tick);
    g_timeout_add(
        5, [](gpointer function) -> gboolean { return (*static_cast<Tick *>(function))(); }, &tick);
    EXPECT_TRUE(wait_until([&] { return received == count; }, 60)) << received;
    EXPECT_THAT(log.criticals(), testing::IsEmpty());
    EXPECT_THAT(log.warnings(), testing::IsEmpty()) << "nothing was refused by the bus";
}

INSTANTIATE_TEST_SUITE_P(Counts, DeafPeersTest, testing::Values(1u, 15u, 30u, 100u));

using FloodTest = IllPeersTest;

TEST_F(FloodTest, WhatAThreadSendsIsDeliveredOrToldAndTakesBoundedMemory)
{
    subscribe();
    constexpr gint count = 300000;
    long before = Footprint::measure().resident_kib;
    long most = 0;
    std::thread sender([&] {
        for (gint i = 0; i < count; ++i)
            send(i);
    });
    sender.join();
    most = Footprint::measure().resident_kib;
    EXPECT_TRUE(wait_until([&] { return last_number == count - 1; }, 120));
    EXPECT_TRUE(wait_until([&] { return received + told_as_dropped() == count; }, 30))
        << received << " and " << told_as_dropped();
    EXPECT_GT(told_as_dropped(), 0) << "the test is to drop something";
    if (memory_tells()) {
        EXPECT_LT(most - before, 200 * 1024) << "KiB";
    }
}

} // namespace
