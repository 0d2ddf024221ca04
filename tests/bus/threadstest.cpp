// SPDX-License-Identifier: LGPL-2.1-or-later

// Applications whose threads all use one producer and one consumer at once, over the real switch.

#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/records.hpp"
#include "support/switchprocess.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace qandor::test;

namespace {

constexpr int thread_count = 4;
constexpr int rounds = 100;

// What one thread is told by the main context's thread, and waits for.
class Inbox {
public:
    void note_complete()
    {
        std::lock_guard lock(mutex_);
        complete_ = true;
        changed_.notify_all();
    }
    void note_state(const std::string &state)
    {
        std::lock_guard lock(mutex_);
        states_.push_back(state);
        changed_.notify_all();
    }
    void note_done()
    {
        std::lock_guard lock(mutex_);
        ++done_;
        changed_.notify_all();
    }

    bool wait_for_completion()
    {
        return wait([this] { return complete_; }, bound);
    }
    bool wait_for_state(std::chrono::milliseconds limit)
    {
        return wait([this] { return !states_.empty(); }, limit);
    }
    bool wait_for_done(int count)
    {
        return wait([this, count] { return done_ == count; }, bound);
    }
    // Whether all that came was this, and that something came.
    bool has_only(const std::string &state)
    {
        std::lock_guard lock(mutex_);
        for (const std::string &received : states_)
            if (received != state)
                return false;
        return !states_.empty();
    }

    static constexpr std::chrono::seconds bound{20};

private:
    template <class Condition, class Limit> bool wait(Condition condition, Limit limit)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, condition);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool complete_ = false;
    int done_ = 0;
    std::vector<std::string> states_;
};

void note_state(event *received, gpointer inbox)
{
    Owned<event> owner(received);
    static_cast<Inbox *>(inbox)->note_state(event_get_value(received, "state"));
}

void note_complete(guint32, gpointer inbox)
{
    static_cast<Inbox *>(inbox)->note_complete();
}

void note_done(guint32, gpointer inbox, GError *error)
{
    EXPECT_EQ(error, nullptr);
    g_clear_error(&error);
    static_cast<Inbox *>(inbox)->note_done();
}

class ThreadsTest : public testing::Test {
protected:
    guint32 declare(const std::string &topic, bool property, Inbox &inbox)
    {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0", topic.c_str(),
                                        VALUE_TYPE_STRING);
        event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
        if (property)
            event_declaration_set_property(declaration.get(), "state", nullptr, nullptr);
        return event_producer_declare_and_notify(producer, declaration.get(), note_complete,
                                                 &inbox);
    }
    guint32 subscribe(const std::string &topic, Inbox &inbox)
    {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        subscribe_expression_add_key_value(expression.get(), "topic0", topic.c_str());
        return event_consumer_subscribe(consumer, expression.get(), note_state, &inbox);
    }
    void send(guint32 id, const std::string &state)
    {
        Owned<event> event(event_producer_prepare_event(producer, id));
        EXPECT_TRUE(event_set_value(event.get(), "state", state.c_str()));
        EXPECT_TRUE(event_producer_send_event(producer, event.get(), nullptr));
    }

    // One declaration and one subscription from beginning to end.
    void go_round(const std::string &topic, bool property)
    {
        Inbox inbox;
        guint32 token = subscribe(topic, inbox);
        guint32 id = declare(topic, property, inbox);
        EXPECT_TRUE(inbox.wait_for_completion());
        EXPECT_TRUE(event_producer_declaration_complete(producer, id));
        // An event arrives as soon as the subscription has come to the producer.
        int attempts = 0;
        do
            send(id, topic);
        while (!inbox.wait_for_state(std::chrono::milliseconds(20)) && ++attempts < 1000);
        EXPECT_TRUE(event_consumer_refresh(consumer, token, nullptr));
        end(id, token, inbox);
        EXPECT_TRUE(inbox.has_only(topic));
    }
    void end(guint32 id, guint32 token, Inbox &inbox)
    {
        EXPECT_TRUE(
            event_consumer_unsubscribe_and_notify(consumer, token, note_done, &inbox, nullptr));
        EXPECT_TRUE(event_producer_undeclare_and_notify(producer, id, note_done, &inbox));
        EXPECT_FALSE(event_producer_declaration_complete(producer, id));
        EXPECT_TRUE(inbox.wait_for_done(2));
        EXPECT_EQ(event_producer_prepare_event(producer, id), nullptr);
    }

    // Runs the work on all threads, and the main context on this one until they have done.
    template <class Work> void run_on_threads(Work work)
    {
        std::atomic<int> running = thread_count;
        std::vector<std::thread> threads;
        threads.reserve(thread_count);
        for (int number = 0; number < thread_count; ++number)
            threads.emplace_back([&, number] {
                work(number);
                --running;
            });
        EXPECT_TRUE(wait_until([&] { return running == 0; }, 240));
        for (std::thread &thread : threads)
            thread.join();
    }

    void TearDown() override
    {
        int freed = 0;
        event_producer_int_free(
            producer, [](event_producer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        event_consumer_int_free(
            consumer, [](event_consumer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed == 2; }));
    }

    PrivateBus private_bus;
    SwitchProcess event_switch;
    event_producer *producer = event_producer_new("producer");
    event_consumer *consumer = event_consumer_new("consumer");
};

TEST_F(ThreadsTest, DeclareSendSubscribeUnsubscribeAndUndeclareAtOnce)
{
    run_on_threads([this](int number) {
        for (int round = 0; round < rounds && !HasFailure(); ++round)
            go_round("Topic" + std::to_string(number) + "." + std::to_string(round),
                     round % 2 == 1);
    });
}

TEST_F(ThreadsTest, SendEventsOfOneDeclarationEachInItsOwnOrder)
{
    constexpr int events = 200;
    Inbox declared;
    guint32 id = declare("Shared", false, declared);
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, id); }));

    struct Received {
        static void take(event *received, gpointer self)
        {
            Owned<event> owner(received);
            std::string state = event_get_value(received, "state");
            if (state != "hello")
                static_cast<Received *>(self)->states.push_back(state);
            ++static_cast<Received *>(self)->count;
        }
        int count = 0;
        std::vector<std::string> states;
    } received;
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", "Shared");
    event_consumer_subscribe(consumer, expression.get(), Received::take, &received);
    ASSERT_TRUE(wait_until([&] {
        send(id, "hello");
        return received.count > 0;
    }));

    run_on_threads([&](int number) {
        for (int i = 0; i < events; ++i)
            send(id, std::to_string(number) + ":" + std::to_string(i));
    });
    EXPECT_TRUE(wait_until([&] { return received.states.size() == thread_count * events; }));
    std::vector<int> next(thread_count, 0);
    for (const std::string &state : received.states) {
        int number = state.at(0) - '0';
        EXPECT_EQ(state, std::to_string(number) + ":" + std::to_string(next.at(number)++));
    }
}

} // namespace
