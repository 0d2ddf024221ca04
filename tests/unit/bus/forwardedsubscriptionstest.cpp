// SPDX-License-Identifier: LGPL-2.1-or-later

#include "bus/forwardedsubscriptions.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace qandor;

namespace {

// The token tells which one it is, since ids may come twice.
std::unique_ptr<subscribe_expression> subscription(guint32 id, guint32 token, bool clandestine,
                                                   const std::string &value)
{
    auto made = std::make_unique<subscribe_expression>(clandestine);
    made->id = id;
    made->consumer_token = token;
    subscribe_expression_add_key_value(made.get(), "a", value.c_str());
    return made;
}

std::unique_ptr<event> event_of(const std::string &value)
{
    std::unique_ptr<event> made(event_new());
    inspectable_add_key_value(&made->content, "a", FALSE, value.c_str(), FALSE, FALSE);
    return made;
}

struct Known {
    guint32 id;
    guint32 token;
    bool clandestine;
    std::string value;
};

class ForwardedSubscriptionsTest : public testing::Test {
protected:
    void add(guint32 id, bool clandestine, const std::string &value)
    {
        known.push_back({id, ++last_token, clandestine, value});
        subscriptions.add(subscription(id, last_token, clandestine, value));
    }
    void remove(guint32 id)
    {
        auto gone = first_of(id);
        if (gone != known.end())
            known.erase(gone);
        subscriptions.remove(id);
    }
    std::vector<Known>::iterator first_of(guint32 id)
    {
        return std::find_if(known.begin(), known.end(),
                            [id](const Known &one) { return one.id == id; });
    }

    void check(guint32 id, const std::string &value)
    {
        std::vector<guint32> all, known_tokens;
        subscriptions.for_each(
            [&](const subscribe_expression &one) { all.push_back(one.consumer_token); });
        for (const Known &one : known)
            known_tokens.push_back(one.token);
        EXPECT_EQ(all, known_tokens);
        auto expected = first_of(id);
        const subscribe_expression *found = subscriptions.find(id);
        ASSERT_EQ(found != nullptr, expected != known.end());
        if (found) {
            ASSERT_EQ(found->consumer_token, expected->token);
        }
        ASSERT_EQ(subscriptions.has_visible(),
                  std::any_of(known.begin(), known.end(),
                              [](const Known &one) { return !one.clandestine; }));
        std::vector<guint32> tokens, satisfied;
        for (const Known &one : known)
            if (one.value == value)
                tokens.push_back(one.token);
        subscriptions.for_each_satisfied(*event_of(value), [&](const subscribe_expression &one) {
            satisfied.push_back(one.consumer_token);
        });
        ASSERT_EQ(satisfied, tokens);
    }

    ForwardedSubscriptions subscriptions;
    std::vector<Known> known;
    guint32 last_token = 0;
};

TEST_F(ForwardedSubscriptionsTest, WhateverComesAndGoesTheyAreFoundInTheOrderInWhichTheyCame)
{
    std::mt19937 random(7);
    for (int step = 0; step < 5000; ++step) {
        SCOPED_TRACE(step);
        guint32 id = static_cast<guint32>(random() % 40);
        std::string value = std::to_string(random() % 5);
        // Grows for a while, and shrinks again.
        if (random() % 100 < (step / 500 % 2 ? 30 : 70))
            add(id, random() % 4 == 0, value);
        else
            remove(id);
        if (step % 1500 == 1499) {
            known.clear();
            subscriptions.clear();
        }
        ASSERT_NO_FATAL_FAILURE(check(static_cast<guint32>(random() % 40), value));
    }
}

// Searched one by one, this would take some two thousand million steps.
TEST_F(ForwardedSubscriptionsTest, VeryManyAreTakenBackInAnyOrder)
{
    constexpr guint32 count = 60000;
    for (guint32 id = 0; id < count; ++id)
        subscriptions.add(subscription(id, id, false, std::to_string(id)));
    for (guint32 i = 0; i < count; ++i) {
        guint32 id = static_cast<guint32>(guint64(i) * 7919 % count);
        ASSERT_TRUE(subscriptions.find(id));
        subscriptions.remove(id);
        ASSERT_FALSE(subscriptions.find(id));
    }
    EXPECT_FALSE(subscriptions.has_visible());
}

} // namespace
