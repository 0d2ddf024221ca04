// SPDX-License-Identifier: LGPL-2.1-or-later

// Deliveries beside consumers that hang or stop, and from producers that send faster than events
// can be delivered. Healthy consumers are served, and the library reports the number of lost
// events.

#include "stress/siege/handles.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <algorithm>
#include <list>
#include <thread>

using namespace qandor::test;

namespace {

constexpr const char *topic = "Device";

class Deliveries : public Siege {
protected:
    // A process of consumers that count their events; each event takes @microseconds.
    OtherUser::Part consume(guint handles = 1, bool secure = false, guint microseconds = 0)
    {
        return [=, this](OtherUser::Line &line) {
            std::list<ReceivingHandle> consumers;
            for (guint i = 0; i < handles; ++i)
                consumers.emplace_back(
                    topic,
                    [=, this](gint) {
                        received.add();
                        if (microseconds > 0)
                            usleep(microseconds);
                    },
                    secure);
            wait_until([&] { return line.is_over(); }, 3600);
        };
    }
    // A producer that sends @events events when @begins is set, then frees its handle.
    OtherUser::Part produce(gint events, std::size_t payload)
    {
        return [=, this](OtherUser::Line &line) {
            ToldLosses losses(told);
            SendingHandle producer(topic, payload);
            line.say(producer.is_complete() ? "ready" : "not declared");
            wait_until([&] { return begins.get() > 0; }, 60);
            // From another thread, as fast as possible.
            std::thread sender([&] {
                for (gint i = 0; i < events; ++i)
                    accepted.add(producer.send(i));
                sent.add();
            });
            wait_until([&] { return sent.get() > 0; }, 600);
            sender.join();
            line.say("sent");
            wait_until([&] { return line.is_over(); }, 3600);
            line.say(producer.free() ? "freed" : "not freed");
        };
    }
    // Each accepted event was delivered to each consumer or reported as lost.
    void expect_nothing_lost_untold(guint64 consumers = 1)
    {
        tell_figure("accepted", static_cast<double>(accepted.get()), "events");
        tell_figure("delivered", static_cast<double>(received.get()), "events");
        tell_figure("told as dropped", static_cast<double>(told.get()), "events");
        tell_figure("lost untold",
                    static_cast<double>(accepted.get() * consumers) -
                        static_cast<double>(received.get() + told.get()),
                    "events");
        EXPECT_EQ(received.get() + told.get(), accepted.get() * consumers);
    }

    SharedCount begins, accepted, sent, received, told;
};

TEST_F(Deliveries, AThreadThatSendsWithoutEndLosesNothingUntold)
{
    OtherUser consumer(*bus, bystander, consume());
    await_subscriptions(1);
    OtherUser producer(*bus, bystander, produce(scaled(200000, 1000000), 0));
    ASSERT_TRUE(producer.says("ready"));
    begins.add();
    ASSERT_TRUE(producer.says("sent", 300));
    received.settles(2, 300);
    EXPECT_TRUE(producer.end());
    received.settles(0.5, 20);
    expect_nothing_lost_untold();
}

TEST_F(Deliveries, AConsumerThatStandsStillLosesNothingUntold)
{
    const gint events = 3000;
    OtherUser consumer(*bus, bystander, consume());
    await_subscriptions(1);
    OtherUser producer(*bus, bystander, produce(events, 60000));
    ASSERT_TRUE(producer.says("ready"));
    consumer.stop();
    begins.add();
    ASSERT_TRUE(producer.says("sent", 300));
    consumer.resume();
    received.settles(2, 120);
    EXPECT_TRUE(producer.end());
    received.settles(0.5, 20);
    expect_nothing_lost_untold();
}

TEST_F(Deliveries, AnEventForAHundredConsumersWaitsOnlyOnce)
{
    constexpr guint64 consumers = 100;
    OtherUser consumer(*bus, bystander, consume(consumers));
    await_subscriptions(consumers);
    OtherUser producer(*bus, attacker, produce(1000, 400));
    ASSERT_TRUE(producer.says("ready"));
    begins.add();
    ASSERT_TRUE(producer.says("sent", 300));
    received.settles(3, 120);
    EXPECT_TRUE(producer.end());
    expect_nothing_lost_untold(consumers);
    EXPECT_EQ(received.get(), 1000 * consumers);
}

// The bus queues a limited amount for one connection and refuses further messages to it.
TEST_F(Deliveries, WhatTheBusRefusesIsTold)
{
    const int producers = 40;
    OtherUser consumer(*bus, bystander, consume());
    await_subscriptions(1);
    std::list<OtherUser> senders;
    for (int i = 0; i < producers; ++i)
        senders.emplace_back(*bus, bystander, [this](OtherUser::Line &line) {
            ToldLosses losses(told);
            SendingHandle producer(topic, 60000);
            line.say(producer.is_complete() ? "ready" : "not declared");
            wait_until([&] { return begins.get() > 0; }, 60);
            for (gint number = 0; number < 100; ++number)
                accepted.add(producer.send(number));
            line.say("sent");
            wait_until([&] { return line.is_over(); }, 600);
            producer.free();
        });
    for (OtherUser &sender : senders)
        ASSERT_TRUE(sender.says("ready"));
    consumer.stop();
    begins.add();
    for (OtherUser &sender : senders)
        EXPECT_TRUE(sender.says("sent"));
    told.settles(1, 10); // until the bus has refused the messages
    consumer.resume();
    received.settles(2, 120);
    for (OtherUser &sender : senders)
        sender.ask_to_end();
    for (OtherUser &sender : senders)
        EXPECT_TRUE(sender.end());
    received.settles(0.5, 20);
    expect_nothing_lost_untold();
}

// Consumers that subscribe and never answer, each on its own connection.

class HungConsumers : public Deliveries, public testing::WithParamInterface<int> {};

TEST_P(HungConsumers, LeaveAHealthyOneServed)
{
    const int hung = GetParam();
    const gint seconds = scaled(3, 150);
    OtherUser ill(*bus, attacker, [&](OtherUser::Line &line) {
        std::list<RawPeer> peers(static_cast<std::size_t>(hung));
        for (RawPeer &peer : peers) {
            peer.remembers = false;
            peer.on_call = [](const Received &) { return false; };
            peer.call("Consumer.Subscribe", "/c", "ill", guint32(1),
                      Octets{expression_bytes(topic)});
        }
        line.say("ill");
        run_until([&] { return line.is_over(); }, 3600);
    });
    ASSERT_TRUE(ill.says("ill"));
    OtherUser consumer(*bus, bystander, consume());
    await_subscriptions(static_cast<std::size_t>(hung) + 1);
    OtherUser producer(*bus, bystander, [&](OtherUser::Line &line) {
        ToldLosses losses(told);
        SendingHandle handle(topic);
        line.say(handle.is_complete() ? "ready" : "not declared");
        Beat beat(10, [&](gint number) { accepted.add(handle.send(number)); });
        wait_until([&] { return line.is_over(); }, 3600);
    });
    ASSERT_TRUE(producer.says("ready"));
    gint served = 0;
    for (gint second = 0; second < seconds && !HasFailure(); ++second) {
        guint64 wanted = accepted.get() + 100;
        EXPECT_TRUE(accepted.reaches(wanted, 10) && received.reaches(wanted, 10))
            << "nothing comes after " << second << " s";
        served += !HasFailure();
    }
    tell_figure("served for", served, ("of " + std::to_string(seconds) + " s").c_str());
    EXPECT_TRUE(producer.is_running());
}

INSTANTIATE_TEST_SUITE_P(Some, HungConsumers, testing::Values(1, 12, 30),
                         [](const testing::TestParamInfo<int> &info) {
                             return std::to_string(info.param);
                         });

// A consumer that gets the sender's user id. The sender may have left before its event is handled.
TEST_F(Deliveries, ASecureConsumerOutlivesProducersThatSendAndLeave)
{
    OtherUser consumer(*bus, bystander, consume(1, true, 50000));
    await_subscriptions(1);
    const int rounds = scaled(2, 1000);
    int survived = 0;
    while (survived < rounds && !HasFailure()) {
        guint64 before = received.get();
        OtherUser producer(*bus, bystander, produce(20, 0));
        ASSERT_TRUE(producer.says("ready"));
        begins.add();
        EXPECT_TRUE(producer.says("sent"));
        EXPECT_TRUE(producer.end());
        EXPECT_TRUE(received.reaches(before + 20, 10)) << received.get() - before;
        survived += !HasFailure();
    }
    tell_figure("rounds survived", survived, ("of " + std::to_string(rounds)).c_str());
    EXPECT_EQ(accepted.get(), received.get());
    EXPECT_TRUE(consumer.is_running());
}

} // namespace
