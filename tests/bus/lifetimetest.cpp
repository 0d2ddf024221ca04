// SPDX-License-Identifier: LGPL-2.1-or-later

// Handles that go, and declarations that are taken back, while something is on its way to them.

#include "api/eventproducer.hpp"
#include "bus/producer.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/records.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <utility>

using namespace qandor::test;

namespace {

Owned<event_declaration> new_declaration(const char *topic)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
    return declaration;
}

Owned<subscribe_expression> new_expression(const char *topic)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", topic);
    return expression;
}

void note(gpointer flag)
{
    *static_cast<bool *>(flag) = true;
}

bool free_and_wait(event_producer *producer)
{
    bool freed = false;
    event_producer_int_free(
        producer, [](event_producer *, gpointer data) { note(data); }, &freed);
    return wait_until([&] { return freed; });
}

bool free_and_wait(event_consumer *consumer)
{
    bool freed = false;
    event_consumer_int_free(
        consumer, [](event_consumer *, gpointer data) { note(data); }, &freed);
    return wait_until([&] { return freed; });
}

class LifetimeTest : public testing::Test {
protected:
    PrivateBus bus;
    SwitchProcess event_switch;
};

struct Freeing {
    event_producer *producer = nullptr;
    event_consumer *consumer = nullptr;
    bool freed = false;

    static void free_consumer(event *received, gpointer data)
    {
        Owned<event> owner(received);
        auto *self = static_cast<Freeing *>(data);
        self->freed = free_and_wait(self->consumer);
    }
    static void free_producer(guint32, gpointer data)
    {
        auto *self = static_cast<Freeing *>(data);
        self->freed = free_and_wait(self->producer);
    }
};

TEST_F(LifetimeTest, AnEventFunctionMayFreeTheConsumerAndIterateUntilItIsGone)
{
    Freeing freeing;
    event_producer *producer = event_producer_new("producer");
    guint32 id = event_producer_declare(producer, new_declaration("Device").get());
    freeing.consumer = event_consumer_new("consumer");
    event_consumer_subscribe(freeing.consumer, new_expression("Device").get(),
                             Freeing::free_consumer, &freeing);
    EXPECT_TRUE(wait_until([&] {
        Owned<event> event(event_producer_prepare_event(producer, id));
        event_producer_send_event(producer, event.get(), nullptr);
        return freeing.freed;
    }));
    EXPECT_TRUE(free_and_wait(producer));
}

TEST_F(LifetimeTest, ACompletionFunctionMayFreeTheProducerAndIterateUntilItIsGone)
{
    Freeing freeing;
    freeing.producer = event_producer_new("producer");
    event_producer_declare_and_notify(freeing.producer, new_declaration("Device").get(),
                                      Freeing::free_producer, &freeing);
    EXPECT_TRUE(wait_until([&] { return freeing.freed; }));
}

TEST_F(LifetimeTest, AProducerThatIsBeingFreedCallsNoCompletionFunction)
{
    bool called = false;
    Producer *producer = producer_new("producer", nullptr, nullptr);
    producer_allocate_decl_data(
        producer, 1, new_declaration("Device").release(),
        [](guint32, gpointer data) { note(data); }, &called);
    producer_prepare_free(producer);
    producer_receive_declaration_complete(producer, 1, 1);
    EXPECT_FALSE(called);
    g_object_unref(producer);
}

// A producer whose declaration has a subscriber, which is told of changes.
class ReleaseTest : public LifetimeTest {
protected:
    ReleaseTest()
    {
        event_consumer_subscribe(
            consumer, new_expression("Device").get(),
            [](event *event, gpointer) { event_free(event); }, nullptr);
        EXPECT_TRUE(wait_until([&] { return last_told == 1; }));
    }
    ~ReleaseTest() override { EXPECT_TRUE(free_and_wait(consumer)); }

    static void take_change(GArray *ids, gpointer data)
    {
        auto *self = static_cast<ReleaseTest *>(data);
        self->last_told = static_cast<int>(ids->len);
        self->told_on = std::this_thread::get_id();
        if (self->on_change)
            self->on_change();
    }
    // Frees it and does not come back before it is gone.
    void free_producer()
    {
        event_producer *freed = std::exchange(producer, nullptr);
        EXPECT_TRUE(!freed || free_and_wait(freed));
    }

    int last_told = -1; // the number of declarations with subscribers
    std::thread::id told_on;
    std::function<void()> on_change;
    event_producer *producer = event_producer_new_full("producer", take_change, this);
    event_consumer *consumer = event_consumer_new("consumer");
    guint32 id = event_producer_declare(producer, new_declaration("Device").get());
};

TEST_F(ReleaseTest, TellsAtOnceOnTheMainThread)
{
    EXPECT_TRUE(event_producer_undeclare(producer, id));
    EXPECT_EQ(last_told, 0);
    EXPECT_EQ(told_on, std::this_thread::get_id());
    free_producer();
}

TEST_F(ReleaseTest, TellsAtOnceWithinTheMainLoop)
{
    bool told_at_once = false;
    auto undeclare = [&] {
        event_producer_undeclare(producer, id);
        told_at_once = last_told == 0;
    };
    std::function<void()> call = undeclare;
    g_idle_add(
        [](gpointer function) -> gboolean {
            (*static_cast<std::function<void()> *>(function))();
            return G_SOURCE_REMOVE;
        },
        &call);
    EXPECT_TRUE(wait_until([&] { return last_told == 0; }));
    EXPECT_TRUE(told_at_once);
    free_producer();
}

TEST_F(ReleaseTest, TellsOnTheMainThreadOfAReleaseOnAnother)
{
    std::thread worker([&] { EXPECT_TRUE(event_producer_undeclare(producer, id)); });
    worker.join();
    EXPECT_EQ(last_told, 1) << "not on the worker's thread";
    EXPECT_TRUE(wait_until([&] { return last_told == 0; }));
    EXPECT_EQ(told_on, std::this_thread::get_id());
    free_producer();
}

TEST_F(ReleaseTest, ToldOfAReleaseTheApplicationMayFreeTheProducerAndIterateUntilItIsGone)
{
    on_change = [&] { free_producer(); };
    EXPECT_TRUE(event_producer_undeclare(producer, id));
    EXPECT_EQ(producer, nullptr);
}

TEST_F(ReleaseTest, ToldOfAReleaseOnAnotherThreadTheApplicationMayFreeTheProducer)
{
    on_change = [&] { free_producer(); };
    std::thread worker([&] { EXPECT_TRUE(event_producer_undeclare(producer, id)); });
    EXPECT_TRUE(wait_until([&] { return producer == nullptr; }));
    worker.join();
}

TEST_F(ReleaseTest, TellsNothingOfAReleaseOnceTheProducerIsBeingFreed)
{
    std::thread worker([&] { EXPECT_TRUE(event_producer_undeclare(producer, id)); });
    worker.join();
    free_producer();
    EXPECT_EQ(last_told, 1);
}

// The new switch may have given the old id to somebody who lives.
TEST_F(LifetimeTest, WhatWasTakenBackBeforeARestartIsNotTakenFromAnotherAfterIt)
{
    event_producer *producer = event_producer_new("producer");
    guint32 taken = event_producer_declare(producer, new_declaration("Device").get());
    guint32 kept = event_producer_declare(producer, new_declaration("Device").get());
    auto global_id_of = [&](guint32 local_id) {
        Owned<event> event(event_producer_prepare_event(producer, local_id));
        producer_fill_global_event_data(producer->producer, event.get());
        return event_get_global_id(event.get());
    };
    ASSERT_TRUE(wait_until([&] { return global_id_of(taken) != 0 && global_id_of(kept) != 0; }));
    // The one that is left gets the first id of the new switch.
    if (global_id_of(taken) > global_id_of(kept))
        std::swap(taken, kept);
    guint32 old_id = global_id_of(taken);

    decl_data *released = producer_release_declare_id(producer->producer, taken);
    event_switch.kill();
    ASSERT_TRUE(wait_until([&] { return global_id_of(kept) == 0; }));
    event_switch.start();
    ASSERT_TRUE(wait_until([&] { return global_id_of(kept) == old_id; }));
    producer_send_undeclare(producer->producer, released);

    bool is_known = false;
    event_consumer *consumer = event_consumer_new("consumer");
    event_consumer_subscribe_full(
        consumer, new_expression("Device").get(), [](event *event, gpointer) { event_free(event); },
        [](notification *notification, gpointer data) {
            notification_free(notification);
            note(data);
        },
        &is_known);
    EXPECT_TRUE(wait_until([&] { return is_known; }));
    EXPECT_TRUE(free_and_wait(consumer));
    EXPECT_TRUE(free_and_wait(producer));
}

} // namespace
