// SPDX-License-Identifier: LGPL-2.1-or-later

// What is lost when very much happens at once: nothing.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <qandor/qandor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

using namespace qandor::test;

namespace {

event_declaration *new_declaration(const std::string &topic)
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", topic.c_str(), VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "number", VALUE_TYPE_INT);
    return declaration;
}

class DeliveryTest : public testing::Test {
protected:
    DeliveryTest() : producer(event_producer_new("producer")) {}
    ~DeliveryTest() override
    {
        bool freed = false;
        event_producer_int_free(
            producer, [](event_producer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
    }

    guint32 declare(const std::string &topic)
    {
        bool complete = false;
        event_declaration *declaration = new_declaration(topic);
        guint32 id = event_producer_declare_and_notify(
            producer, declaration,
            [](guint32, gpointer data) { *static_cast<bool *>(data) = true; }, &complete);
        event_declaration_free(declaration);
        EXPECT_TRUE(wait_until([&] { return complete; }));
        return id;
    }

    void send(guint32 id, gint number)
    {
        event *event = event_producer_prepare_event(producer, id);
        event_set_value(event, "number", &number);
        EXPECT_TRUE(event_producer_send_event(producer, event, nullptr));
        event_free(event);
    }
    void send_burst(guint32 id, gint count)
    {
        for (gint i = 0; i < count; ++i)
            send(id, i);
    }

    // Runs the main context until a process says the text and, but for "ready", nothing else.
    bool wait_for(ChildProcess &process, const std::string &text)
    {
        std::optional<std::string> line;
        bool came = wait_until(
            [&] {
                line = process.read_line(0.001);
                return line && *line != "ready";
            },
            60);
        EXPECT_EQ(line.value_or("nothing"), text);
        return came;
    }
    // A subscription has reached the producer when an event reaches the subscriber.
    bool wait_until_ready(guint32 id, ChildProcess &process)
    {
        return wait_until([&] {
            send(id, -1);
            return process.read_line(0.01) == "ready";
        });
    }

    LogCapture log;
    PrivateBus bus;
    SwitchProcess event_switch;
    event_producer *producer;
};

constexpr gint burst = 20000;

struct Consumers {
    explicit Consumers(int count)
    {
        for (int i = 0; i < count; ++i)
            processes.emplace_back(
                std::vector<std::string>{QANDOR_PEER, "consumer", "Device", std::to_string(burst)});
    }
    std::vector<ChildProcess> processes;
};

TEST_F(DeliveryTest, ABurstReachesThreeConsumersWholeAndInOrder)
{
    guint32 id = declare("Device");
    Consumers consumers(3);
    for (ChildProcess &consumer : consumers.processes)
        ASSERT_TRUE(wait_until_ready(id, consumer));
    send_burst(id, burst);
    for (ChildProcess &consumer : consumers.processes)
        EXPECT_TRUE(wait_for(consumer, "all 20000 in order"));
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(DeliveryTest, AConsumerThatStandsStillForAWhileLosesNothingAndHoldsNobodyUp)
{
    guint32 id = declare("Device");
    Consumers consumers(3);
    for (ChildProcess &consumer : consumers.processes)
        ASSERT_TRUE(wait_until_ready(id, consumer));
    ChildProcess &stopped = consumers.processes[0];
    stopped.signal(SIGSTOP);
    send_burst(id, burst);
    EXPECT_TRUE(wait_for(consumers.processes[1], "all 20000 in order"));
    EXPECT_TRUE(wait_for(consumers.processes[2], "all 20000 in order"));
    gint64 begin = g_get_monotonic_time();
    wait_until([&] { return g_get_monotonic_time() - begin > 5 * G_USEC_PER_SEC; });
    stopped.signal(SIGCONT);
    EXPECT_TRUE(wait_for(stopped, "all 20000 in order"));
    EXPECT_TRUE(log.warnings().empty());
}

struct Census {
    std::set<guint32> complete;
    static void count(guint32 local_id, gpointer self)
    {
        static_cast<Census *>(self)->complete.insert(local_id);
    }
};

void receive_nothing(event *event, gpointer)
{
    event_free(event);
}

void count_notification(notification *notification, gpointer count)
{
    notification_free(notification);
    ++*static_cast<guint *>(count);
}

TEST_F(DeliveryTest, AThousandDeclarationsAndSubscriptionsComeBackAfterTheSwitchWasKilled)
{
    constexpr guint count = 1000;
    event_consumer *consumer = event_consumer_new("consumer");
    Census census;
    guint notifications = 0;
    std::vector<guint32> ids;
    for (guint i = 0; i < count; ++i) {
        std::string topic = "Topic" + std::to_string(i);
        event_declaration *declaration = new_declaration(topic);
        ids.push_back(
            event_producer_declare_and_notify(producer, declaration, Census::count, &census));
        event_declaration_free(declaration);
        subscribe_expression *expression = subscribe_expression_new();
        subscribe_expression_add_key_value(expression, "topic0", topic.c_str());
        event_consumer_subscribe_full(consumer, expression, receive_nothing, count_notification,
                                      &notifications);
        subscribe_expression_free(expression);
    }
    ASSERT_TRUE(wait_until([&] { return census.complete.size() == count; }, 60));
    ASSERT_TRUE(wait_until([&] { return notifications == count; }, 60));

    event_switch.kill();
    auto known = [&](guint32 id) { return event_producer_declaration_complete(producer, id); };
    ASSERT_TRUE(wait_until([&] { return !known(ids.back()); }));
    notifications = 0;
    event_switch.start();
    ASSERT_TRUE(wait_until([&] { return std::all_of(ids.begin(), ids.end(), known); }, 60));
    EXPECT_TRUE(wait_until([&] { return notifications == count; }, 60)) << notifications;
    EXPECT_TRUE(log.warnings().empty());

    bool freed = false;
    event_consumer_int_free(
        consumer, [](event_consumer *, gpointer data) { *static_cast<bool *>(data) = true; },
        &freed);
    EXPECT_TRUE(wait_until([&] { return freed; }));
}

} // namespace
