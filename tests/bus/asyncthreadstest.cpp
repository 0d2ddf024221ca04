// SPDX-License-Identifier: LGPL-2.1-or-later

// Asynchronous handles of many threads at once.

#include "bus/asyncpeers.hpp"

#include <array>
#include <atomic>
#include <thread>

using namespace qandor::test;

namespace {

// What a thread of its own does with both handles; it waits for what it is told.
struct Worker {
    explicit Worker(int number) : topic("Topic" + std::to_string(number)) {}

    static void raise(std::atomic<int> &count) { ++count; }
    static void complete(guint32, gpointer self) { raise(static_cast<Worker *>(self)->completed); }
    static void sent(guint32, event *, gpointer self, GError *error)
    {
        EXPECT_EQ(outcome("sent", error), "sent");
        raise(static_cast<Worker *>(self)->sent_events);
    }
    static void ids(GArray *, gpointer self) { raise(static_cast<Worker *>(self)->audience); }
    static void receive(event *event, gpointer self)
    {
        event_free(event);
        raise(static_cast<Worker *>(self)->received);
    }
    static void producer_freed(event_producer *, gpointer self)
    {
        raise(static_cast<Worker *>(self)->freed);
    }
    static void consumer_freed(event_consumer *, gpointer self)
    {
        raise(static_cast<Worker *>(self)->freed);
    }
    static void reach(const std::atomic<int> &count, int value)
    {
        gint64 end = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
        while (count < value && g_get_monotonic_time() < end)
            std::this_thread::yield();
        EXPECT_GE(count, value);
    }

    void run()
    {
        event_producer *producer = async_producer_new("producer", nullptr, ids, this);
        event_consumer *consumer = async_consumer_new("consumer", nullptr, this);
        auto expression = new_expression(topic.c_str());
        guint32 token =
            async_consumer_subscribe(consumer, expression.get(), nullptr, G_CALLBACK(receive),
                                     nullptr, this, SUBSCRIPTION_TYPE_NORMAL, nullptr);
        guint32 id = async_producer_declare(producer, new_declaration(topic.c_str()).get(), nullptr,
                                            complete, this, nullptr);
        reach(completed, 1);
        reach(audience, 1);
        for (int i = 0; i < events; ++i) {
            Owned<event> event(async_producer_prepare_event(producer, id));
            event_set_value(event.get(), "state", "on");
            async_producer_send_event(producer, event.get(), sent, this);
        }
        reach(received, events);
        async_consumer_refresh(consumer, token, nullptr, nullptr);
        async_consumer_unsubscribe(consumer, token, nullptr, nullptr);
        async_consumer_free(consumer, consumer_freed, this);
        async_producer_undeclare(producer, id, nullptr, nullptr);
        async_producer_free(producer, producer_freed, this);
        reach(freed, 2);
        done = true;
    }

    static constexpr int events = 100;
    std::string topic;
    std::atomic<int> completed = 0, audience = 0, sent_events = 0, received = 0, freed = 0;
    std::atomic<bool> done = false;
};

TEST_F(AsyncTest, ThreadsWithHandlesOfTheirOwnDoNotDisturbEachOther)
{
    std::array<Worker, 4> workers{Worker(0), Worker(1), Worker(2), Worker(3)};
    std::array<std::thread, 4> threads;
    for (std::size_t i = 0; i < workers.size(); ++i)
        threads[i] = std::thread(&Worker::run, &workers[i]);
    auto all_done = [&] {
        return std::all_of(workers.begin(), workers.end(),
                           [](const Worker &worker) { return worker.done.load(); });
    };
    // Longer than the workers have: they end on their own.
    EXPECT_TRUE(wait_until(all_done, 600));
    for (std::thread &thread : threads)
        thread.join();
    for (const Worker &worker : workers)
        EXPECT_EQ(worker.sent_events, Worker::events);
}

} // namespace
