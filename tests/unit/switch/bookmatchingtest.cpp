// SPDX-License-Identifier: LGPL-2.1-or-later

// Whom the books tell, held after each of many random changes against the plain matcher.

#include "switch/book.hpp"

#include "model/inspectable.hpp"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <utility>

using namespace qandor;

namespace {

// A declaration's global id and a subscription's id.
using Pairs = std::set<std::pair<guint32, guint32>>;

// Keeps what producers and consumers know.
class Known : public Post {
public:
    void global_declare_id(const Declaration &) override {}
    void declaration_complete(const Declaration &) override {}
    void subscribe(const Declaration &declaration, const Subscription &subscription) override
    {
        EXPECT_TRUE(forwarded.emplace(declaration.global_id, subscription.id).second);
    }
    void unsubscribe(const Declaration &declaration, guint32 subscription_id) override
    {
        EXPECT_EQ(forwarded.erase({declaration.global_id, subscription_id}), 1u);
        notified.erase({declaration.global_id, subscription_id});
    }
    void refresh_property(const Declaration &declaration, guint32 subscription_id) override
    {
        refreshed.emplace(declaration.global_id, subscription_id);
    }
    void notify(const Subscription &subscription, const Declaration &declaration,
                notification_type type) override
    {
        std::pair pair(declaration.global_id, subscription.id);
        if (type == NOTIFY_DECLARATION_ADDED) {
            EXPECT_TRUE(notified.insert(pair).second);
            return;
        }
        // The producer forgets by itself what it has taken back.
        EXPECT_EQ(notified.erase(pair), 1u);
        forwarded.erase(pair);
    }

    Pairs forwarded, notified, refreshed;
};

class RandomPeers {
public:
    explicit RandomPeers(guint32 seed) : random_(seed) {}

    guint32 below(guint32 bound) { return static_cast<guint32>(random_() % bound); }

    Peer peer() { return Peer({":1." + std::to_string(below(4)), "/p"}); }

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
    void change()
    {
        Peer peer = random.peer();
        guint32 number = 1 + random.below(8);
        switch (random.below(6)) {
        case 0:
        case 1:
            book.announce(book.declare(peer, random.declaration(number)));
            break;
        case 2:
        case 3:
            book.announce(book.subscribe(peer, number, random.expression()));
            break;
        case 4:
            book.unsubscribe(peer.address, number);
            break;
        default:
            if (!book.declarations().empty())
                book.undeclare(peer.address, book.declarations().begin()->first);
        }
    }

    // Those that belong together, one by one.
    Pairs matching() const
    {
        Pairs pairs;
        for (const auto &[global_id, declaration] : book.declarations())
            for (const auto &[id, subscription] : book.subscriptions())
                if (event_declaration_contains(declaration.record.get(), subscription.record.get()))
                    pairs.emplace(global_id, id);
        return pairs;
    }

    RandomPeers random{GetParam()};
    Known known;
    Accounts accounts;
    Book book{known, accounts};
};

TEST_P(BookMatchingTest, EverybodyKnowsWhatConcernsThemAndNothingElse)
{
    for (int i = 0; i < 300; ++i) {
        change();
        Pairs pairs = matching();
        ASSERT_EQ(known.forwarded, pairs) << "after change " << i;
        ASSERT_EQ(known.notified, pairs) << "after change " << i;
    }
}

TEST_P(BookMatchingTest, ARefreshReachesTheMatchingProperties)
{
    for (int i = 0; i < 200; ++i)
        change();
    for (const auto &[id, subscription] : book.subscriptions())
        book.refresh_property(subscription.consumer, subscription.token);
    Pairs expected = matching();
    std::erase_if(expected, [this](const auto &pair) {
        return !event_declaration_is_property(book.find_declaration(pair.first)->record.get());
    });
    EXPECT_EQ(known.refreshed, expected);
}

INSTANTIATE_TEST_SUITE_P(Seeds, BookMatchingTest, testing::Range(0U, 8U));

} // namespace
