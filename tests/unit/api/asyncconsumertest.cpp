// SPDX-License-Identifier: LGPL-2.1-or-later

// What the asynchronous consumer checks at once, what it leaves for later, and what it tells in
// which order.

#include "unit/api/asynchandles.hpp"

#include <gmock/gmock.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class AsyncConsumerTest : public AsyncHandlesTest {
protected:
    // Expressions live until their commands have run.
    ~AsyncConsumerTest() override
    {
        async_consumer_free(consumer, nullptr, nullptr);
        run_pending();
    }

    static void ignore_event(event *event, gpointer) { event_free(event); }
    guint32 subscribe(event_consumer *handle, subscribe_expression *read, GCallback event_callback,
                      guint32 type)
    {
        return async_consumer_subscribe(handle, read, Diary::subscribed, event_callback, nullptr,
                                        &diary, type, &error);
    }
    guint32 subscribe()
    {
        return subscribe(consumer, expression.get(), G_CALLBACK(ignore_event),
                         SUBSCRIPTION_TYPE_NORMAL);
    }
    void refresh(guint32 token)
    {
        async_consumer_refresh(consumer, token, Diary::refreshed, &diary);
    }
    void unsubscribe(guint32 token)
    {
        async_consumer_unsubscribe(consumer, token, Diary::unsubscribed, &diary);
    }

    Owned<subscribe_expression> expression{subscribe_expression_new()};
    event_consumer *consumer = async_consumer_new("consumer", Diary::setup, &diary);
};

TEST_F(AsyncConsumerTest, OnlyTheTokenIsThereBeforeTheMainContextRuns)
{
    EXPECT_EQ(subscribe(), 1u);
    EXPECT_EQ(subscribe(), 2u);
    EXPECT_THAT(diary.lines, IsEmpty());
    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("setup: -2 Failed to connect to bus", "subscribed 1", "subscribed 2"));
}

TEST_F(AsyncConsumerTest, ARefusedSubscriptionQueuesNothingAndCostsNoToken)
{
    run_pending();
    diary.lines.clear();
    GCallback callback = G_CALLBACK(ignore_event);
    auto refuse = [&](event_consumer *handle, subscribe_expression *read, GCallback callback) {
        EXPECT_EQ(subscribe(handle, read, callback, 2), 0u);
        return take(std::exchange(error, nullptr));
    };
    EXPECT_EQ(refuse(nullptr, nullptr, nullptr), "0 Event consumer object was NULL");
    EXPECT_EQ(refuse(consumer, nullptr, nullptr), "0 Subscribe expression was NULL");
    EXPECT_EQ(refuse(consumer, expression.get(), nullptr), "0 Subscription callback was NULL");
    EXPECT_EQ(refuse(consumer, expression.get(), callback), "11 Invalid subscription type");
    error = g_error_new_literal(g_quark_from_string("d"), 1, "old");
    EXPECT_EQ(refuse(nullptr, nullptr, nullptr), "10 Error object already set");
    EXPECT_FALSE(g_main_context_pending(nullptr));
    EXPECT_EQ(subscribe(), 1u);
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(AsyncConsumerTest, ATokenIsKnownToWhatIsAskedAfterItsSubscribing)
{
    refresh(1);
    unsubscribe(1);
    EXPECT_EQ(subscribe(), 1u);
    refresh(1);
    unsubscribe(1);
    refresh(1);
    run_pending();
    EXPECT_THAT(diary.lines,
                ElementsAre("setup: -2 Failed to connect to bus",
                            "refreshed 1: 3 Cannot find subscription token 1",
                            "unsubscribed 1: 3 Cannot find subscription token 1", "subscribed 1",
                            "refreshed 1: fine", "unsubscribed 1: fine",
                            "refreshed 1: 3 Cannot find subscription token 1"));
}

TEST_F(AsyncConsumerTest, WhatWasAskedBeforeTheFreeingIsDoneAndToldBeforeIt)
{
    guint32 token = subscribe();
    refresh(token);
    async_consumer_free(std::exchange(consumer, nullptr), Diary::freed, &diary);
    run_pending();
    EXPECT_THAT(diary.lines, ElementsAre("setup: -2 Failed to connect to bus", "subscribed 1",
                                         "refreshed 1: fine", "freed"));
}

TEST_F(AsyncConsumerTest, NobodyHasToListen)
{
    event_consumer *quiet = async_consumer_new(nullptr, nullptr, nullptr);
    guint32 token =
        async_consumer_subscribe(quiet, expression.get(), nullptr, G_CALLBACK(ignore_event),
                                 nullptr, nullptr, SUBSCRIPTION_TYPE_SECURE, nullptr);
    EXPECT_EQ(token, 1u);
    EXPECT_EQ(
        async_consumer_subscribe(quiet, nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr),
        0u);
    async_consumer_refresh(quiet, token + 1, nullptr, nullptr);
    async_consumer_unsubscribe(quiet, token + 1, nullptr, nullptr);
    async_consumer_free(quiet, nullptr, nullptr);
    run_pending();
    EXPECT_THAT(log.criticals(),
                testing::Contains("Failed to setup dbus: Failed to connect to bus (-2)"));
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(AsyncConsumerTest, CallbacksRunOnTheMainContextsThreadWhoeverCalls)
{
    std::thread caller([&] {
        guint32 token = subscribe();
        refresh(token);
        unsubscribe(token);
        async_consumer_free(std::exchange(consumer, nullptr), Diary::freed, &diary);
    });
    EXPECT_TRUE(wait_until([&] { return !diary.lines.empty() && diary.lines.back() == "freed"; }));
    caller.join();
    EXPECT_EQ(diary.lines.size(), 5u);
}

TEST_F(AsyncHandlesTest, FreeingNoConsumerDoesNothing)
{
    async_consumer_free(nullptr, Diary::freed, &diary);
    EXPECT_FALSE(g_main_context_pending(nullptr));
    EXPECT_THAT(diary.lines, IsEmpty());
    EXPECT_THAT(log.criticals(), IsEmpty());
}

TEST(AsyncConsumerDeathTest, RefreshingAndUnsubscribingWantAConsumer)
{
    EXPECT_DEATH(async_consumer_refresh(nullptr, 1, nullptr, nullptr),
                 "async_consumer_refresh.*event_consumer != NULL");
    EXPECT_DEATH(async_consumer_unsubscribe(nullptr, 1, nullptr, nullptr),
                 "async_consumer_unsubscribe.*event_consumer != NULL");
}

} // namespace
