// SPDX-License-Identifier: LGPL-2.1-or-later

// When commands wake the context, when they are destroyed, and what a source leaves behind.

#include "platform/commandsource.hpp"
#include "support/mainloop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;

namespace {

using Diary = std::vector<std::string>;

class NotedCommand : public Command {
public:
    NotedCommand(Diary &diary, std::string name) : diary_(diary), name_(std::move(name)) {}
    ~NotedCommand() override { diary_.push_back("destroyed " + name_); }
    void run() override { diary_.push_back("ran " + name_); }

private:
    Diary &diary_;
    std::string name_;
};

class CommandLifetimeTest : public testing::Test {
protected:
    void post(const std::string &name)
    {
        command_source_post(source, std::make_unique<NotedCommand>(diary, name));
    }

    command_source *source = command_source_new_full(nullptr, nullptr, 1, nullptr);
    Diary diary;
};

TEST_F(CommandLifetimeTest, ACommandIsDestroyedBeforeTheNextOneRuns)
{
    post("a");
    post("b");
    run_pending();
    EXPECT_THAT(diary, ElementsAre("ran a", "destroyed a", "ran b", "destroyed b"));
    command_source_free(source);
}

TEST_F(CommandLifetimeTest, FreedFromOutsideItDestroysWhatIsQueuedWithoutRunningIt)
{
    post("a");
    post("b");
    command_source_free(source);
    EXPECT_THAT(diary, ElementsAre("destroyed a", "destroyed b"));
    run_pending();
    EXPECT_EQ(diary.size(), 2u);
}

TEST_F(CommandLifetimeTest, FreedInACommandItRunsNothingMoreAndDestroysThatCommandLast)
{
    struct FreeingCommand : NotedCommand {
        FreeingCommand(Diary &diary, command_source *source)
            : NotedCommand(diary, "free"), source(source)
        {
        }
        void run() override
        {
            command_source_free(source);
            NotedCommand::run();
        }
        command_source *source;
    };
    post("before");
    command_source_post(source, std::make_unique<FreeingCommand>(diary, source));
    for (int i = 0; i < 40; ++i)
        post("after");
    run_pending();
    ASSERT_EQ(diary.size(), 44u);
    EXPECT_THAT(Diary(diary.begin(), diary.begin() + 3),
                ElementsAre("ran before", "destroyed before", "destroyed after"));
    EXPECT_EQ(std::count(diary.begin(), diary.end(), "destroyed after"), 40);
    EXPECT_THAT(Diary(diary.end() - 2, diary.end()), ElementsAre("ran free", "destroyed free"));
}

TEST_F(CommandLifetimeTest, ADestroyedCommandMayQueueAnother)
{
    auto queues_another = [this](void *) { post("second"); };
    command_source_post_function(source,
                                 [this, guard = std::shared_ptr<void>(nullptr, queues_another)] {
                                     diary.emplace_back("ran first");
                                 });
    run_pending();
    EXPECT_THAT(diary, ElementsAre("ran first", "ran second", "destroyed second"));
    command_source_free(source);
}

TEST_F(CommandLifetimeTest, WhatADroppedCommandQueuesDoesNotRun)
{
    command_source_post_function(source, [this] {
        auto queues_another = [this](void *) { post("late"); };
        command_source_post_function(source,
                                     [guard = std::shared_ptr<void>(nullptr, queues_another)] {});
        command_source_free(source);
    });
    run_pending();
    EXPECT_THAT(diary, ElementsAre("destroyed late"));
}

TEST_F(CommandLifetimeTest, RunComesAfterWhatIsQueuedAndBeforeWhatFollows)
{
    std::atomic<bool> done = false;
    std::thread other([&] {
        post("a");
        post("b");
        command_source_run(
            source, [](gpointer data, gpointer) { static_cast<Diary *>(data)->push_back("ran c"); },
            &diary);
        EXPECT_EQ(diary.back(), "ran c");
        post("d");
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    other.join();
    run_pending();
    EXPECT_THAT(diary, ElementsAre("ran a", "destroyed a", "ran b", "destroyed b", "ran c", "ran d",
                                   "destroyed d"));
    command_source_free(source);
}

// A context that sleeps without a timeout: only the command itself can wake it.
TEST_F(CommandLifetimeTest, EveryCommandWakesASleepingContext)
{
    constexpr int rounds = 2000;
    std::atomic<bool> too_long = false;
    guint watchdog = g_timeout_add_seconds(
        30,
        [](gpointer data) -> gboolean {
            *static_cast<std::atomic<bool> *>(data) = true;
            return G_SOURCE_CONTINUE;
        },
        &too_long);
    std::atomic<int> ran = 0;
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            command_source_post_function(source, [&] { ++ran; });
            while (ran <= i && !too_long)
                std::this_thread::yield();
        }
    });
    while (ran < rounds && !too_long)
        g_main_context_iteration(nullptr, TRUE);
    EXPECT_FALSE(too_long);
    other.join();
    g_source_remove(watchdog);
    command_source_free(source);
}

TEST(CommandContext, CommandsRunOnTheThreadOfTheirOwnContext)
{
    GMainContext *context = g_main_context_new();
    std::atomic<bool> stop = false;
    std::thread::id ran_on;
    command_source *source = command_source_new_full(context, nullptr, 1, nullptr);
    std::thread other([&] {
        while (!stop)
            g_main_context_iteration(context, TRUE);
    });
    command_source_run(
        source,
        [](gpointer data, gpointer) {
            *static_cast<std::thread::id *>(data) = std::this_thread::get_id();
        },
        &ran_on);
    EXPECT_EQ(ran_on, other.get_id());
    command_source_post_function(source, [&] {
        command_source_free(source);
        stop = true;
    });
    other.join();
    g_main_context_unref(context);
}

TEST(CommandContext, AContextThatGoesFirstLeavesTheSourceToItsOwner)
{
    int dropped = 0;
    GMainContext *context = g_main_context_new();
    command_source *source = command_source_new_full(context, nullptr, 1, nullptr);
    command_source_post_function(
        source, [guard = std::shared_ptr<void>(nullptr, [&](void *) { ++dropped; })] {});
    g_main_context_unref(context);
    EXPECT_EQ(dropped, 0);
    command_source_free(source);
    EXPECT_EQ(dropped, 1);
}

// As handles do: made on any thread, used by it, and freed by the last command of their own.
TEST(CommandContext, SourcesOfManyThreadsComeAndGo)
{
    constexpr int threads = 4, rounds = 100, commands = 30;
    std::atomic<int> ran = 0, freed = 0;
    std::vector<std::thread> others;
    for (int t = 0; t < threads; ++t)
        others.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                command_source *source = command_source_new_full(nullptr, nullptr, 1, nullptr);
                for (int i = 0; i < commands; ++i)
                    command_source_post_function(source, [&] { ++ran; });
                command_source_post_function(source, [&, source] {
                    command_source_free(source);
                    ++freed;
                });
            }
        });
    EXPECT_TRUE(wait_until([&] { return freed == threads * rounds; }));
    for (std::thread &other : others)
        other.join();
    EXPECT_EQ(ran, threads * rounds * commands);
}

} // namespace
