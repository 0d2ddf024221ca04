// SPDX-License-Identifier: LGPL-2.1-or-later

// Peers that leave the bus between any two of their messages: nothing of them stays, and those who
// live on are told.

#include "stress/siege/census.hpp"
#include "stress/siege/mortalpeer.hpp"

#include "bus/switch/rawrecords.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <map>

using namespace qandor::test;

namespace {

class DyingPeerTest : public testing::Test {
protected:
    using Flow = std::function<void(MortalPeer &)>;

    // Those who live on: a producer of two kinds, and a consumer that listens to everybody.
    DyingPeerTest()
    {
        producer.on_call = [this](const Received &received) {
            note(received);
            if (received.member == "Subscribe")
                send_to_subscriber(producer, received.bytes, event_bytes("Power", "on"));
            return true;
        };
        consumer.on_call = [this](const Received &received) {
            note(received);
            return true;
        };
        EXPECT_EQ(declare(producer, "Device", false).error, "");
        EXPECT_EQ(declare(producer, "Power", true).error, "");
        for (const char *topic : {"Mortal", "MortalPower"})
            EXPECT_EQ(consumer
                          .call("Consumer.Subscribe", "/c", "survivor", next_token++,
                                Octets{expression_bytes(topic)})
                          .error,
                      "");
        settle();
        baseline = take_census(onlooker.bus());
    }
    // A switch that leaks says so at its end, where the build looks for leaks.
    void TearDown() override
    {
        event_switch.process().signal(SIGTERM);
        EXPECT_EQ(event_switch.process().wait(), 0);
    }

    Answer declare(RawPeer &peer, const char *topic, bool property)
    {
        return peer.call("Producer.Declare", "/p", "survivor",
                         Octets{declaration_bytes(topic, next_local_id++, property)});
    }
    // What the switch has told the living is read.
    void settle()
    {
        producer.take();
        consumer.take();
    }

    // What has come for somebody has to go again, with his name: declarations at the consumer,
    // subscriptions at the producer.
    void note(const Received &received)
    {
        if (received.member == "Notification") {
            Owned<notification> told(notification_deserialize(array_from(received.bytes).get()));
            known["declaration " + std::to_string(notification_get_declaration_id(told.get()))] +=
                notification_is_type_deleted(told.get()) ? -1 : 1;
        } else if (received.member == "Subscribe") {
            Owned<subscribe_expression> told(
                subscribe_expression_deserialize(array_from(received.bytes).get()));
            ++known[subscription_name(subscribe_expression_get_id(told.get()),
                                      received.numbers.at(0))];
        } else if (received.member == "Unsubscribe") {
            --known[subscription_name(received.numbers.at(0), received.numbers.at(1))];
        }
    }
    static std::string subscription_name(guint32 id, guint32 local_id)
    {
        return "subscription " + std::to_string(id) + " of " + std::to_string(local_id);
    }

    // Whether the part was played to its end, where the peer leaves too.
    bool play(const Flow &flow, std::size_t last, Leaving leaving)
    {
        MortalPeer peer(onlooker, last, leaving);
        mortal = peer.name();
        try {
            flow(peer);
        } catch (const MortalPeer::Death &) {
            return false;
        }
        length = peer.messages();
        return true;
    }
    bool is_on_bus(const std::string &name)
    {
        sd_bus_creds *made = nullptr;
        int r = sd_bus_get_name_creds(onlooker.bus(), name.c_str(), 0, &made);
        qandor::BusCredentialsOwner owner(made);
        return r >= 0;
    }
    // When the bus no longer knows a peer, it has told the switch before. The switch forgets it
    // step by step.
    void expect_nothing_left()
    {
        ASSERT_TRUE(run_until([this] { return !is_on_bus(mortal); }));
        EXPECT_TRUE(run_until([this] { return take_census(onlooker.bus()) == baseline; }))
            << take_census(onlooker.bus());
        settle();
        for (const auto &[name, balance] : known)
            EXPECT_EQ(balance, 0) << name;
        known.clear();
    }
    // Lets a peer die at every message of its part, in every manner.
    void siege(const Flow &flow, std::size_t messages)
    {
        for (Leaving leaving : {Leaving::AtOnce, Leaving::Unread, Leaving::Unanswered}) {
            bool played = false;
            for (std::size_t last = 1; !played && !HasFailure(); ++last) {
                SCOPED_TRACE("message " + std::to_string(last) + ", manner " +
                             std::to_string(static_cast<int>(leaving)));
                played = play(flow, last, leaving);
                expect_nothing_left();
            }
            EXPECT_EQ(length, messages);
        }
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer producer, consumer, onlooker;
    guint32 next_local_id = 1;
    guint32 next_token = 1;
    std::map<std::string, int> known;
    std::string baseline, mortal;
    std::size_t length = 0;
};

TEST_F(DyingPeerTest, AProducerThatDiesLeavesNoDeclaration)
{
    siege(
        [](MortalPeer &peer) {
            Octets declaration{declaration_bytes("Mortal", 1)};
            peer.call("Producer.Declare", "/p", "mortal", declaration);
            guint32 global_id = peer.hear("GlobalDeclareId").numbers.at(1);
            peer.hear("Subscribe");
            peer.hear("DeclarationComplete");
            peer.call("Producer.Declare", "/p", "mortal", declaration); // in the place of the first
            global_id = peer.hear("GlobalDeclareId").numbers.at(1);
            peer.hear("Subscribe");
            peer.hear("DeclarationComplete");
            peer.call("Producer.Undeclare", "/p", global_id);
            peer.call("Producer.Declare", "/another", "mortal", declaration);
            peer.hear("GlobalDeclareId");
            peer.hear("Subscribe");
            peer.hear("DeclarationComplete");
            peer.call("Producer.Disconnect", "/another");
        },
        19);
}

TEST_F(DyingPeerTest, AConsumerThatDiesLeavesNoSubscription)
{
    siege(
        [this](MortalPeer &peer) {
            Octets expression{expression_bytes("Power")};
            peer.call("Consumer.Subscribe", "/c", "mortal", guint32(1), expression);
            peer.hear("Notification");
            producer.take();
            peer.hear("Event");
            peer.call("Consumer.RefreshProperty", "/c", guint32(1));
            peer.call("Consumer.Subscribe", "/c", "mortal", guint32(1), expression);
            peer.hear("Notification");
            producer.take();
            peer.hear("Event");
            peer.call("Consumer.Unsubscribe", "/c", guint32(1));
            peer.call("Consumer.Subscribe", "/another", "mortal", guint32(1), expression);
            peer.hear("Notification");
            producer.take();
            peer.hear("Event");
            peer.call("Consumer.Disconnect", "/another");
        },
        18);
}

TEST_F(DyingPeerTest, OneThatDiesWhileItAsksForAStateLeavesNoQuestion)
{
    siege(
        [](MortalPeer &peer) {
            peer.call("Consumer.GetPropertyState", Octets{expression_bytes("Power")});
            peer.call("Consumer.GetPropertyState", Octets{expression_bytes("Nowhere")});
        },
        4);
}

TEST_F(DyingPeerTest, WhoAsksIsAnsweredWhenTheProducerDies)
{
    siege(
        [this](MortalPeer &peer) {
            peer.call("Producer.Declare", "/p", "mortal",
                      Octets{declaration_bytes("MortalPower", 1, true)});
            for (const char *member : {"GlobalDeclareId", "Subscribe", "DeclarationComplete"})
                peer.hear(member);
            std::optional<Answer> answer;
            consumer.call_later(answer, "Consumer.GetPropertyState",
                                Octets{expression_bytes("MortalPower")});
            auto is_answered = [&] { return run_until([&] { return answer.has_value(); }); };
            try {
                Received asked = peer.hear("Subscribe");
                send_to_subscriber(peer, asked.bytes, event_bytes("MortalPower", "on"));
                peer.hear("Unsubscribe");
            } catch (const MortalPeer::Death &) {
                EXPECT_TRUE(is_answered());
                throw;
            }
            EXPECT_TRUE(is_answered());
            EXPECT_EQ(answer->error, "");
        },
        8);
}

TEST_F(DyingPeerTest, OneThatIsProducerAndConsumerOfItsOwnLeavesNeither)
{
    siege(
        [](MortalPeer &peer) {
            peer.call("Consumer.Subscribe", "/both", "mortal", guint32(1),
                      Octets{expression_bytes("Own")});
            peer.call("Producer.Declare", "/both", "mortal", Octets{declaration_bytes("Own", 1)});
            peer.hear("GlobalDeclareId");
            peer.hear("Subscribe");
            peer.hear("Notification");
            peer.hear("DeclarationComplete");
            peer.call("Consumer.Disconnect", "/both");
            peer.hear("Unsubscribe");
            peer.call("Producer.Disconnect", "/both");
        },
        13);
}

} // namespace
