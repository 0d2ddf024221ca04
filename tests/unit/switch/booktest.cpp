// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's books, without a bus: who is told what, in which order, and what is left behind.

#include "switch/book.hpp"

#include "model/footprint.hpp"

#include <qandor/serialize.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace qandor;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Writes down what peers are told, as "whom what".
class Notes : public Post {
public:
    void set_cause(guint32) override {}
    bool has_room(const PeerAddress &peer) const override { return peer.name != full; }

    void global_declare_id(const Declaration &declaration) override
    {
        note(declaration.producer, "id " + ids_of(declaration) + " of producer " +
                                       std::to_string(declaration.producer_id));
    }
    void declaration_complete(const Declaration &declaration) override
    {
        note(declaration.producer, "complete " + ids_of(declaration));
    }
    void subscribe(const Declaration &declaration, const Subscription &subscription) override
    {
        note(declaration.producer,
             "subscribe " + std::to_string(subscription.id) + " to " + ids_of(declaration));
    }
    void unsubscribe(const Declaration &declaration, guint32 subscription_id) override
    {
        note(declaration.producer,
             "unsubscribe " + std::to_string(subscription_id) + " from " + ids_of(declaration));
    }
    void refresh_property(const Declaration &declaration, guint32 subscription_id) override
    {
        note(declaration.producer,
             "refresh " + std::to_string(subscription_id) + " of " + ids_of(declaration));
    }
    void notify(const Subscription &subscription, const Declaration &declaration,
                notification_type type) override
    {
        note(subscription.consumer,
             std::string(type == NOTIFY_DECLARATION_ADDED ? "added " : "removed ") +
                 std::to_string(declaration.global_id) + " for " +
                 std::to_string(subscription.token));
    }

    std::vector<std::string> take() { return std::exchange(lines_, {}); }

    std::string full; // a name that has to read first

private:
    static std::string ids_of(const Declaration &declaration)
    {
        return std::to_string(declaration.local_id) + "=" + std::to_string(declaration.global_id);
    }
    void note(const PeerAddress &peer, const std::string &what)
    {
        lines_.push_back(peer.name + peer.object + " " + what);
    }

    std::vector<std::string> lines_;
};

DeclarationOwner new_declaration(const char *topic, guint32 local_id, bool property = false)
{
    DeclarationOwner declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    if (property)
        event_declaration_set_property(declaration.get(), "topic0", nullptr, nullptr);
    event_declaration_set_local_id(declaration.get(), local_id);
    return declaration;
}

ExpressionOwner new_expression(const char *topic)
{
    ExpressionOwner expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return expression;
}

class BookTest : public testing::Test {
protected:
    const Declaration &declare(const PeerAddress &peer, const char *topic, guint32 local_id,
                               bool property = false)
    {
        const Declaration &declaration =
            book.declare(peer, new_declaration(topic, local_id, property));
        finish();
        return declaration;
    }
    const Subscription &subscribe(const PeerAddress &peer, guint32 token, const char *topic)
    {
        const Subscription &subscription = book.subscribe(peer, token, new_expression(topic));
        finish();
        return subscription;
    }
    void finish()
    {
        while (jobs.step()) {
        }
    }
    void steps(int count)
    {
        for (; count > 0; --count)
            jobs.step();
    }

    const PeerAddress producer{":1.1", "/p"};
    const PeerAddress consumer{":1.2", "/c"};
    const PeerAddress stranger{":1.3", "/p"};
    Notes notes;
    Accounts accounts;
    Jobs jobs;
    Book book{notes, accounts, jobs};
};

TEST_F(BookTest, AProducerIsToldItsIdsFirstItsSubscribersInOrderAndTheEndLast)
{
    subscribe(consumer, 7, "Device");
    subscribe(consumer, 6, "Elsewhere");
    subscribe(consumer, 5, "Device");
    EXPECT_THAT(notes.take(), IsEmpty());

    declare(producer, "Device", 40);
    EXPECT_THAT(notes.take(),
                ElementsAre(":1.1/p id 40=1 of producer 1", ":1.1/p subscribe 1 to 40=1",
                            ":1.2/c added 1 for 7", ":1.1/p subscribe 3 to 40=1",
                            ":1.2/c added 1 for 5", ":1.1/p complete 40=1"));
}

TEST_F(BookTest, ASubscriptionReachesTheMatchingDeclarationsInOrder)
{
    declare(producer, "Device", 9);
    declare(producer, "Elsewhere", 8);
    declare(producer, "Device", 7);
    notes.take();
    subscribe(consumer, 5, "Device");
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p subscribe 1 to 9=1", ":1.2/c added 1 for 5",
                                          ":1.1/p subscribe 1 to 7=3", ":1.2/c added 3 for 5"));
}

TEST_F(BookTest, AForwardedExpressionSaysHowItsConsumerIsReached)
{
    const Subscription &subscription = subscribe(consumer, 5, "Device");
    const subscribe_expression *record = subscription.record.get();
    EXPECT_EQ(subscribe_expression_get_id(record), 1u);
    EXPECT_STREQ(subscribe_expression_get_dbus_service(record), ":1.2");
    EXPECT_STREQ(subscribe_expression_get_dbus_object(record), "/c");
    EXPECT_EQ(subscribe_expression_get_consumer_token(record), 5u);
}

TEST_F(BookTest, DeclaringALocalIdAgainReplacesTheOldDeclaration)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 40);
    notes.take();
    declare(producer, "Device", 40);
    EXPECT_THAT(notes.take(),
                ElementsAre(":1.2/c removed 1 for 5", ":1.1/p unsubscribe 1 from 40=1",
                            ":1.1/p id 40=2 of producer 1", ":1.1/p subscribe 1 to 40=2",
                            ":1.2/c added 2 for 5", ":1.1/p complete 40=2"));
    EXPECT_EQ(book.declarations().size(), 1u);
}

TEST_F(BookTest, ASubscriptionThatGoesIsTakenBackFromAReplacedDeclarationOnce)
{
    const Peer peer(producer, 1000);
    subscribe(consumer, 5, "Device");
    subscribe(consumer, 6, "Device");
    book.declare(peer, new_declaration("Device", 40));
    finish();
    notes.take();
    book.declare(peer, new_declaration("Device", 40));
    steps(2); // the first subscription has been told
    book.unsubscribe(consumer, 5);
    book.unsubscribe(consumer, 6);
    finish();
    EXPECT_THAT(notes.take(),
                ElementsAre(":1.2/c removed 1 for 5", ":1.1/p unsubscribe 1 from 40=1",
                            ":1.1/p unsubscribe 2 from 40=1", ":1.1/p id 40=2 of producer 1",
                            ":1.1/p complete 40=2"));
}

TEST_F(BookTest, AnAnnouncementWaitsForWhoHasToReadFirst)
{
    subscribe(consumer, 5, "Device");
    notes.full = consumer.name;
    book.declare(Peer(producer, 1000), new_declaration("Device", 40));
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p id 40=1 of producer 1"));
    EXPECT_TRUE(jobs.is_busy(1000));
    EXPECT_FALSE(jobs.is_busy(0));
    notes.full.clear();
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p subscribe 1 to 40=1", ":1.2/c added 1 for 5",
                                          ":1.1/p complete 40=1"));
    EXPECT_FALSE(jobs.is_busy(1000));
}

TEST_F(BookTest, ARemovalTellsThoseWhoHadBeenTold)
{
    for (guint32 token : {5u, 6u, 7u})
        subscribe(consumer, token, "Device");
    book.declare(Peer(producer, 1000), new_declaration("Device", 40));
    steps(3); // two of them are told
    book.undeclare(producer, 1);
    notes.take();
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.2/c removed 1 for 5", ":1.2/c removed 1 for 6"));
}

TEST_F(BookTest, NobodyFindsWhatANameThatHasLeftHadDeclared)
{
    declare(producer, "Device", 1);
    declare(producer, "Device", 2);
    notes.take();
    book.forget_peer(producer.name);
    EXPECT_TRUE(book.is_forgetting(producer.name));
    EXPECT_EQ(book.list_declarations(), std::string(4, '\0'));
    EXPECT_EQ(book.find_declaration(1), nullptr);
    subscribe(consumer, 5, "Device");
    EXPECT_THAT(notes.take(), IsEmpty());
    EXPECT_FALSE(book.is_forgetting(producer.name));
    EXPECT_EQ(book.declarations().size(), 0u);
}

TEST_F(BookTest, SubscribingATokenAgainReplacesTheOldSubscription)
{
    declare(producer, "Device", 40);
    subscribe(consumer, 5, "Device");
    notes.take();
    subscribe(consumer, 5, "Device");
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p unsubscribe 1 from 40=1",
                                          ":1.1/p subscribe 2 to 40=1", ":1.2/c added 1 for 5"));
    EXPECT_EQ(book.subscriptions().size(), 1u);
}

TEST_F(BookTest, TheSameTokenAndLocalIdOfAnotherPeerAreOtherThings)
{
    declare(producer, "Device", 40);
    declare(stranger, "Device", 40);
    subscribe(consumer, 5, "Device");
    subscribe(stranger, 5, "Device");
    EXPECT_EQ(book.declarations().size(), 2u);
    EXPECT_EQ(book.subscriptions().size(), 2u);
    EXPECT_EQ(book.producers().size(), 2u);
    EXPECT_EQ(book.consumers().size(), 2u);
}

TEST_F(BookTest, NobodyUndeclaresWhatAnotherHasDeclared)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 40);
    notes.take();
    book.undeclare(stranger, 1);
    finish();
    book.undeclare({":1.1", "/other"}, 1);
    finish();
    book.undeclare(producer, 2);
    finish();
    EXPECT_THAT(notes.take(), IsEmpty());
    EXPECT_EQ(book.declarations().size(), 1u);
    book.undeclare(producer, 1);
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.2/c removed 1 for 5"));
    EXPECT_EQ(book.declarations().size(), 0u);
}

TEST_F(BookTest, NobodyUnsubscribesForAnother)
{
    declare(producer, "Device", 40);
    subscribe(consumer, 5, "Device");
    notes.take();
    book.unsubscribe(stranger, 5);
    finish();
    book.unsubscribe({":1.2", "/other"}, 5);
    finish();
    book.unsubscribe(consumer, 6);
    finish();
    EXPECT_THAT(notes.take(), IsEmpty());
    book.unsubscribe(consumer, 5);
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p unsubscribe 1 from 40=1"));
    EXPECT_EQ(book.subscriptions().size(), 0u);
}

TEST_F(BookTest, OnlyPropertiesAreRefreshed)
{
    declare(producer, "Device", 1);
    declare(producer, "Device", 2, true);
    declare(producer, "Elsewhere", 3, true);
    subscribe(consumer, 5, "Device");
    notes.take();
    book.refresh_property(consumer, 6);
    finish();
    book.refresh_property(stranger, 5);
    finish();
    EXPECT_THAT(notes.take(), IsEmpty());
    book.refresh_property(consumer, 5);
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p refresh 1 of 2=2"));
}

TEST_F(BookTest, ADisconnectedProducerTakesItsDeclarationsAlongAndComesBackAsANewOne)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 1);
    declare(producer, "Device", 2);
    notes.take();
    book.disconnect_producer(producer);
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.2/c removed 1 for 5", ":1.2/c removed 2 for 5"));
    EXPECT_EQ(book.producers().size(), 0u);
    EXPECT_EQ(declare(producer, "Device", 1).producer_id, 2u);
}

TEST_F(BookTest, ADisconnectedConsumerTakesItsSubscriptionsAlong)
{
    declare(producer, "Device", 1);
    subscribe(consumer, 5, "Device");
    subscribe(consumer, 6, "Elsewhere");
    notes.take();
    book.disconnect_consumer(consumer);
    finish();
    EXPECT_THAT(notes.take(), ElementsAre(":1.1/p unsubscribe 1 from 1=1"));
    EXPECT_EQ(book.subscriptions().size(), 0u);
    EXPECT_EQ(book.consumers().size(), 0u);
}

TEST_F(BookTest, APeerThatLeavesTakesAllItsObjectsAlongAndNobodyElses)
{
    declare({":1.1", "/a"}, "Device", 1);
    declare({":1.1", "/b"}, "Device", 1);
    declare({":1.10", "/a"}, "Device", 1);
    subscribe({":1.1", "/a"}, 5, "Device");
    subscribe({":1.10", "/a"}, 5, "Device");
    book.forget_peer(":1.1");
    finish();
    EXPECT_EQ(book.declarations().size(), 1u);
    EXPECT_EQ(book.subscriptions().size(), 1u);
    EXPECT_EQ(book.producers().size(), 1u);
    EXPECT_EQ(book.consumers().size(), 1u);
    EXPECT_EQ(book.find_declaration(3)->producer.name, ":1.10");
    EXPECT_EQ(book.find_declaration(1), nullptr);
}

TEST_F(BookTest, AllDeclarationsAreListedWithTheirIdsInOrder)
{
    EXPECT_EQ(book.list_declarations(), std::string(4, '\0'));
    declare(producer, "One", 7);
    declare(stranger, "Two", 8);
    std::string list = book.list_declarations();
    ArrayOwner array(serialize_create_array());
    g_array_append_vals(array.get(), list.data(), static_cast<guint>(list.size()));
    guint index = 0;
    ASSERT_EQ(deserialize_32bit(array.get(), &index), 2u);
    for (guint32 number : {1u, 2u}) {
        DeclarationOwner read(event_declaration_deserialize_internal(array.get(), &index));
        EXPECT_EQ(event_declaration_get_global_id(read.get()), number);
        EXPECT_EQ(event_declaration_get_producer_id(read.get()), number);
        EXPECT_EQ(event_declaration_get_local_id(read.get()), 6 + number);
    }
    EXPECT_EQ(index, array->len);
}

TEST_F(BookTest, WhatIsKeptIsChargedToItsUserAndGivenBack)
{
    const Peer peer(producer, 1000);
    Limits limits;
    limits.declarations = 1;
    limits.peers = 1;
    accounts.set_limits({limits, {}});
    EXPECT_EQ(book.refusal_to_declare(peer, 1, {100, 1000}), std::nullopt);
    const Declaration &declared = book.declare(peer, new_declaration("Device", 1));
    std::size_t size = declared.bytes.size();
    EXPECT_GT(accounts.usages()[1000].stored_bytes,
              size + memory_of(*event_declaration_get_inspectable(declared.record.get())));
    EXPECT_EQ(accounts.usages()[1000].declarations, 1u);
    EXPECT_EQ(accounts.usages()[1000].peers, 1u);
    EXPECT_EQ(accounts.total().declared_bytes, size);
    EXPECT_EQ(book.refusal_to_declare(peer, 2, {100, 1000}), "A user may have 1 declarations");
    EXPECT_EQ(book.refusal_to_declare(peer, 1, {100, 1000}), std::nullopt)
        << "it replaces the old one";
    EXPECT_NE(book.refusal_to_subscribe(Peer({":1.1", "/other"}, 1000), 1, {100, 1000}),
              std::nullopt);
    EXPECT_EQ(book.refusal_to_subscribe(Peer({":1.2", "/other"}, 1001), 1, {100, 1000}),
              std::nullopt);

    book.forget_peer(producer.name);
    finish();
    EXPECT_EQ(accounts.usages()[1000].declarations, 0u);
    EXPECT_EQ(accounts.usages()[1000].peers, 0u);
    EXPECT_EQ(accounts.total().stored_bytes, 0u);
    EXPECT_EQ(accounts.total().declared_bytes, 0u);
}

TEST_F(BookTest, ASubscriptionIsChargedWithItsMemoryAndTheWayToItsConsumer)
{
    const Peer peer(consumer, 1000);
    const Subscription &subscription = book.subscribe(peer, 5, new_expression("Device"));
    std::size_t memory =
        memory_of(*subscribe_expression_get_inspectable(subscription.record.get()));
    std::size_t bytes = subscription.bytes.size();
    guint64 charged = accounts.usages()[1000].stored_bytes;
    EXPECT_GT(charged, memory + bytes + consumer.object.size());
    EXPECT_EQ(accounts.usages()[1000].subscriptions, 1u);
    book.unsubscribe(consumer, 5);
    finish();
    guint64 of_peer = accounts.usages()[1000].stored_bytes;
    EXPECT_GT(charged - of_peer, memory + bytes);
    EXPECT_GE(of_peer, 2 * (consumer.name.size() + consumer.object.size()));
    EXPECT_EQ(accounts.usages()[1000].peers, 1u);
    book.disconnect_consumer(consumer);
    finish();
    EXPECT_EQ(accounts.usages()[1000].stored_bytes, 0u);
    EXPECT_EQ(accounts.usages()[1000].peers, 0u);
}

TEST(NextId, SkipsZeroAndWhatIsInUseWhenItComesRound)
{
    std::set<guint32> in_use = {1, 2, 4, G_MAXUINT32};
    guint32 last = G_MAXUINT32 - 2;
    EXPECT_EQ(next_id(last, in_use), G_MAXUINT32 - 1);
    EXPECT_EQ(next_id(last, in_use), 3u);
    EXPECT_EQ(next_id(last, in_use), 5u);
    last = 0;
    EXPECT_EQ(next_id(last, std::set<guint32>()), 1u);
}

} // namespace
