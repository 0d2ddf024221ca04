// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/commandsource.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;

namespace {

struct Step {
    std::vector<int> *order;
    int number;
};

void note(gpointer data, gpointer user_data)
{
    std::unique_ptr<Step> step(static_cast<Step *>(data));
    step->order->push_back(step->number);
    ++*static_cast<int *>(user_data);
}

class CommandSourceTest : public testing::Test {
protected:
    command_source *source = command_source_new_full(nullptr, &runs, 1, nullptr);
    std::vector<int> order;
    int runs = 0;
};

TEST_F(CommandSourceTest, CommandsRunInTheOrderOfTheQueue)
{
    for (int i = 0; i < 100; ++i)
        command_source_run_async(source, note, new Step{&order, i});
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(wait_until([&] { return runs == 100; }));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    command_source_free(source);
}

TEST_F(CommandSourceTest, EachThreadsCommandsKeepTheirOrder)
{
    constexpr int threads = 4, each = 2000;
    std::vector<std::thread> queueing;
    for (int t = 0; t < threads; ++t)
        queueing.emplace_back([this, t] {
            for (int i = 0; i < each; ++i)
                command_source_run_async(source, note, new Step{&order, t * each + i});
        });
    EXPECT_TRUE(wait_until([&] { return runs == threads * each; }));
    for (std::thread &thread : queueing)
        thread.join();
    std::vector<int> last(threads, -1);
    for (int number : order) {
        int &former = last[static_cast<std::size_t>(number / each)];
        EXPECT_GT(number, former);
        former = number;
    }
    command_source_free(source);
}

TEST_F(CommandSourceTest, RunWaitsUntilTheCommandHasRun)
{
    std::atomic<bool> done = false;
    std::thread other([&] {
        command_source_run(source, note, new Step{&order, 1});
        EXPECT_EQ(runs, 1);
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    other.join();
    command_source_free(source);
}

TEST_F(CommandSourceTest, RunOnTheThreadThatWouldHaveToRunItIsRefused)
{
    LogCapture log;
    command_source_post_function(source, [this] {
        command_source_run(source, note, nullptr);
        ++runs;
    });
    EXPECT_TRUE(wait_until([&] { return runs == 1; }));
    EXPECT_THAT(log.criticals(),
                ElementsAre("command_source_run: assertion '!on_own_thread' failed"));
    command_source_free(source);
}

TEST_F(CommandSourceTest, WhatIsQueuedInACommandComesLast)
{
    command_source_post_function(source, [this] {
        command_source_run_async(source, note, new Step{&order, 2});
        order.push_back(0);
    });
    command_source_run_async(source, note, new Step{&order, 1});
    EXPECT_TRUE(wait_until([&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(0, 1, 2));
    command_source_free(source);
}

struct CountedCommand : Command {
    explicit CountedCommand(int &destroyed) : destroyed(destroyed) {}
    ~CountedCommand() override { ++destroyed; }
    void run() override { ADD_FAILURE() << "a dropped command ran"; }
    int &destroyed;
};

TEST_F(CommandSourceTest, FreedInsideItsOwnCommandItDropsTheRest)
{
    int destroyed = 0;
    bool freed = false;
    command_source_post_function(source, [&] {
        command_source_post(source, std::make_unique<CountedCommand>(destroyed));
        command_source_free(source);
        freed = true;
    });
    command_source_run_async(source, note, nullptr);
    EXPECT_TRUE(wait_until([&] { return freed; }));
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(runs, 0);
}

TEST_F(CommandSourceTest, FreeingReleasesAThreadThatWaitsForItsCommand)
{
    std::atomic<bool> released = false;
    std::thread other([&] {
        command_source_run(source, note, nullptr);
        released = true;
    });
    // Queueing is all that the thread does before it waits, and the context is not iterated.
    while (!g_main_context_pending(nullptr))
        std::this_thread::yield();
    command_source_free(source);
    other.join();
    EXPECT_TRUE(released);
    EXPECT_EQ(runs, 0);
}

TEST_F(CommandSourceTest, AQueueThatNeverEndsLetsOtherSourcesHaveTheirTurn)
{
    std::function<void()> again = [&] {
        if (++runs < 1000000)
            command_source_post_function(source, again);
    };
    command_source_post_function(source, again);
    bool other = false;
    GSource *idle = g_idle_source_new();
    g_source_set_priority(idle, G_PRIORITY_DEFAULT);
    g_source_set_callback(
        idle,
        [](gpointer data) -> gboolean {
            *static_cast<bool *>(data) = true;
            return G_SOURCE_REMOVE;
        },
        &other, nullptr);
    g_source_attach(idle, nullptr);
    g_source_unref(idle);
    EXPECT_TRUE(wait_until([&] { return other; }));
    EXPECT_LT(runs, 1000);
    command_source_free(source);
}

} // namespace
