// SPDX-License-Identifier: LGPL-2.1-or-later

// Whom the books tell, held against the plain matcher: after each of many random changes, and when
// the work that changes make is done in random pieces, while others change, leave or do not read.

#include "switch/book.hpp"

#include "model/inspectable.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <utility>

using namespace qandor;

namespace {

// A declaration's global id and a subscription's id.
using Pairs = std::set<std::pair<guint32, guint32>>;

// Keeps what producers and consumers know. Each pair is added once and removed once, and those who
// have gone are told nothing.
class Known : public Post {
public:
    void set_cause(guint32) override {}
    bool has_room(const PeerAddress &) const override { return !is_full || !is_full(); }

    void global_declare_id(const Declaration &declaration) override
    {
        expect_alive(declaration.producer);
        EXPECT_TRUE(completed.emplace(declaration.global_id, false).second);
    }
    void declaration_complete(const Declaration &declaration) override
    {
        expect_alive(declaration.producer);
        EXPECT_FALSE(std::exchange(completed.at(declaration.global_id), true));
    }
    void subscribe(const Declaration &declaration, const Subscription &subscription) override
    {
        expect_alive(declaration.producer);
        EXPECT_TRUE(completed.contains(declaration.global_id)) << "it has its id first";
        EXPECT_TRUE(forwarded.emplace(declaration.global_id, subscription.id).second);
    }
    void unsubscribe(const Declaration &declaration, guint32 subscription_id) override
    {
        expect_alive(declaration.producer);
        EXPECT_EQ(forwarded.erase({declaration.global_id, subscription_id}), 1u);
    }
    void refresh_property(const Declaration &declaration, guint32 subscription_id) override
    {
        refreshed.emplace(declaration.global_id, subscription_id);
    }
    void notify(const Subscription &subscription, const Declaration &declaration,
                notification_type type) override
    {
        expect_alive(subscription.consumer);
        EXPECT_FALSE(gone_subscriptions.contains(subscription.id));
        std::pair pair(declaration.global_id, subscription.id);
        if (type == NOTIFY_DECLARATION_ADDED) {
            EXPECT_TRUE(ever_notified.insert(pair).second);
            EXPECT_TRUE(notified.insert(pair).second);
        } else {
            EXPECT_EQ(notified.erase(pair), 1u);
        }
    }

    // What a producer forgets by itself, with the declaration.
    void forget_declaration(guint32 global_id)
    {
        std::erase_if(forwarded, [=](const auto &pair) { return pair.first == global_id; });
    }
    // A consumer forgets what it has been told for a subscription that it takes back.
    void forget_subscription(guint32 id)
    {
        gone_subscriptions.insert(id);
        std::erase_if(notified, [=](const auto &pair) { return pair.second == id; });
    }

    Pairs forwarded, notified, ever_notified, refreshed;
    std::map<guint32, bool> completed; // by global id
    std::set<guint32> gone_subscriptions;
    std::set<std::string> gone_names;
    std::function<bool()> is_full;

private:
    void expect_alive(const PeerAddress &peer) const
    {
        EXPECT_FALSE(gone_names.contains(peer.name)) << peer.name;
    }
};

class RandomPeers {
public:
    explicit RandomPeers(guint32 seed) : random_(seed) {}

    guint32 below(guint32 bound) { return static_cast<guint32>(random_() % bound); }

    DeclarationOwner declaration(guint32 local_id)
    {
        DeclarationOwner declaration(event_declaration_new(below(2) == 0));
        event_declaration_add_key_value(declaration.get(), "topic0", value(), VALUE_TYPE_STRING);
        for (guint32 i = below(4); i > 0; --i)
            if (below(2) == 0)
                event_declaration_add_key(declaration.get(), key(), VALUE_TYPE_STRING);
            else
                event_declaration_add_key_value(declaration.get(), key(), value(),
                                                VALUE_TYPE_STRING);
        if (below(6) == 0)
            add_values_of_strangers(declaration.get());
        if (below(3) == 0)
            event_declaration_set_property(declaration.get(), "topic0", nullptr, nullptr);
        event_declaration_set_local_id(declaration.get(), local_id);
        return declaration;
    }

    ExpressionOwner expression()
    {
        ExpressionOwner expression(subscribe_expression_new());
        for (guint32 alternatives = few_or_many(2, 30); alternatives > 0; --alternatives) {
            for (guint32 i = few_or_many(4, 40) - 1; i > 0; --i)
                add_condition(expression.get());
            if (alternatives > 1)
                subscribe_expression_or(expression.get());
        }
        return expression;
    }

private:
    // From 1 on; now and then very many.
    guint32 few_or_many(guint32 few, guint32 many) { return 1 + below(below(8) ? few : many); }

    const char *key()
    {
        static const char *const keys[] = {"topic1", "state", "unit", "level", "room"};
        return keys[below(5)];
    }
    const char *value()
    {
        static const char *const values[] = {"on", "off", "Device", "Power"};
        return values[below(4)];
    }
    // Off the wire a key may have many values, the same ones again, and negated ones.
    void add_values_of_strangers(event_declaration *declaration)
    {
        AndList &list = *event_declaration_get_inspectable(declaration)->current();
        for (guint32 i = below(30); i > 0; --i)
            list.add(key_value(KeyName::intern(key()), FALSE, value(), FALSE, below(30) == 0));
    }
    void add_condition(subscribe_expression *expression)
    {
        switch (below(6)) {
        case 0:
            subscribe_expression_add_key(expression, key());
            break;
        case 1:
            subscribe_expression_add_not_key(expression, key());
            break;
        case 2:
            subscribe_expression_add_value(expression, value());
            break;
        case 3:
            subscribe_expression_add_not_value(expression, value());
            break;
        case 4:
            subscribe_expression_add_key_not_value(expression, key(), value());
            break;
        default:
            subscribe_expression_add_key_value(expression, key(), value());
        }
    }

    std::mt19937 random_;
};

class BookMatchingTest : public testing::TestWithParam<guint32> {
protected:
    // Two names of a user, with two objects each; names that leave come back under others.
    Peer random_peer()
    {
        guint32 place = random.below(4);
        return Peer({names.at(place), random.below(2) ? "/a" : "/b"}, place / 2);
    }
    // The calls of a user wait for what the last one has caused.
    bool may_call(const Peer &peer) const
    {
        return !jobs.is_busy(peer.uid) && !book.is_forgetting(peer.address.name);
    }

    void change()
    {
        Peer peer = random_peer();
        guint32 number = 1 + random.below(8);
        if (random.below(40) == 0)
            leave(peer);
        else if (may_call(peer))
            call(peer, number);
    }
    void call(const Peer &peer, guint32 number)
    {
        switch (random.below(12)) {
        case 0:
        case 1:
        case 2:
        case 3:
            book.declare(peer, random.declaration(number));
            break;
        case 4:
        case 5:
        case 6:
        case 7:
            forget_subscription(peer, number);
            book.subscribe(peer, number, random.expression());
            break;
        case 8:
            forget_subscription(peer, number);
            book.unsubscribe(peer.address, number);
            break;
        case 9:
            undeclare_one(peer);
            break;
        case 10:
            forget_all_declarations(peer);
            book.disconnect_producer(peer.address);
            break;
        default:
            forget_all_subscriptions(peer);
            book.disconnect_consumer(peer.address);
        }
    }
    void leave(const Peer &peer)
    {
        const std::string &name = peer.address.name;
        for (const char *object : {"/a", "/b"}) {
            forget_all_declarations(Peer({name, object}));
            forget_all_subscriptions(Peer({name, object}));
        }
        known.gone_names.insert(name);
        book.forget_peer(name);
        std::ranges::replace(names, name, ":1." + std::to_string(++last_name));
    }
    void undeclare_one(const Peer &peer)
    {
        auto producer = book.producers().find(peer.address);
        if (producer == book.producers().end() || producer->second.global_ids.empty())
            return;
        guint32 global_id = producer->second.global_ids.begin()->second;
        known.forget_declaration(global_id);
        book.undeclare(peer.address, global_id);
    }
    void forget_all_declarations(const Peer &peer)
    {
        auto producer = book.producers().find(peer.address);
        if (producer != book.producers().end())
            for (const auto &[local_id, global_id] : producer->second.global_ids)
                known.forget_declaration(global_id);
        // Also those that were replaced and are still being taken back.
        if (known.is_full)
            std::erase_if(known.forwarded, [&](const auto &pair) {
                return declared_by[pair.first] == peer.address.name + peer.address.object;
            });
    }
    void forget_subscription(const Peer &peer, guint32 token)
    {
        auto consumer = book.consumers().find(peer.address);
        if (consumer == book.consumers().end())
            return;
        auto id = consumer->second.subscription_ids.find(token);
        if (id != consumer->second.subscription_ids.end())
            known.forget_subscription(id->second);
    }
    void forget_all_subscriptions(const Peer &peer)
    {
        for (guint32 token = 1; token <= 8; ++token)
            forget_subscription(peer, token);
    }
    void finish()
    {
        while (jobs.step()) {
        }
    }
    void note_declarers()
    {
        for (const auto &[global_id, declaration] : book.declarations())
            declared_by[global_id] = declaration->producer.name + declaration->producer.object;
    }

    // Those that belong together, one by one.
    Pairs matching() const
    {
        Pairs pairs;
        for (const auto &[global_id, declaration] : book.declarations())
            for (const auto &[id, subscription] : book.subscriptions())
                if (event_declaration_contains(declaration->record.get(),
                                               subscription->record.get()))
                    pairs.emplace(global_id, id);
        return pairs;
    }

    RandomPeers random{GetParam()};
    std::vector<std::string> names{":1.1", ":1.2", ":1.3", ":1.4"};
    int last_name = 4;
    std::map<guint32, std::string> declared_by;
    Known known;
    Accounts accounts;
    Jobs jobs;
    Book book{known, accounts, jobs};
};

TEST_P(BookMatchingTest, EverybodyKnowsWhatConcernsThemAndNothingElse)
{
    for (int i = 0; i < 300; ++i) {
        change();
        finish();
        Pairs pairs = matching();
        ASSERT_EQ(known.forwarded, pairs) << "after change " << i;
        ASSERT_EQ(known.notified, pairs) << "after change " << i;
        ASSERT_FALSE(HasFailure()) << "after change " << i;
    }
}

TEST_P(BookMatchingTest, ItIsTheSameWhenTheWorkIsDoneInPiecesWhileOthersChange)
{
    bool is_full = false;
    known.is_full = [&] { return is_full; };
    for (int i = 0; i < 3000; ++i) {
        change();
        note_declarers();
        for (guint32 steps = random.below(6); steps > 0; --steps) {
            is_full = random.below(4) == 0;
            jobs.step();
        }
        ASSERT_FALSE(HasFailure()) << "after change " << i;
        if (random.below(20) > 0)
            continue;
        is_full = false;
        finish();
        Pairs pairs = matching();
        ASSERT_EQ(known.forwarded, pairs) << "after change " << i;
        ASSERT_EQ(known.notified, pairs) << "after change " << i;
        for (const auto &[global_id, declaration] : book.declarations())
            ASSERT_TRUE(known.completed.at(global_id)) << "after change " << i;
        ASSERT_FALSE(HasFailure()) << "after change " << i;
    }
}

TEST_P(BookMatchingTest, ARefreshReachesTheMatchingProperties)
{
    for (int i = 0; i < 200; ++i) {
        change();
        finish();
    }
    for (const auto &[id, subscription] : book.subscriptions())
        book.refresh_property(subscription->consumer, subscription->token);
    finish();
    Pairs expected = matching();
    std::erase_if(expected, [this](const auto &pair) {
        return !event_declaration_is_property(book.find_declaration(pair.first)->record.get());
    });
    EXPECT_EQ(known.refreshed, expected);
}

INSTANTIATE_TEST_SUITE_P(Seeds, BookMatchingTest, testing::Range(0U, 8U));

} // namespace
