// SPDX-License-Identifier: LGPL-2.1-or-later

// What becomes of commands when a thread queues them faster than they run.

#include "platform/commandsource.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t megabyte = 1 << 20;
constexpr const char *line_begin = "The main context does not keep up: ";
constexpr const char *line_end = " events and 0 superseded property states were dropped";

class CommandBacklogTest : public testing::Test {
protected:
    struct Load : Command {
        Load(CommandBacklogTest &test, int number, DropClass drop_class)
            : test(test), number(number), kind(std::move(drop_class))
        {
        }
        void run() override { (is_shed ? test.shed : test.ran).push_back(number); }
        std::size_t size() const override { return megabyte; }
        DropClass drop_class() const override { return kind; }
        bool drop() override
        {
            is_shed = true;
            return wants_word;
        }

        CommandBacklogTest &test;
        const int number;
        const DropClass kind;
        bool wants_word = false;
        bool is_shed = false;
    };

    CommandBacklogTest() : source(command_source_new_full(nullptr, nullptr, 1, nullptr)) {}
    ~CommandBacklogTest() override
    {
        if (source)
            command_source_free(source);
    }

    void post(int number, DropClass drop_class = {Droppable::Event, {}}, bool wants_word = false)
    {
        auto load = std::make_unique<Load>(*this, number, std::move(drop_class));
        load->wants_word = wants_word;
        command_source_post(source, std::move(load));
    }
    void run_all()
    {
        bool done = false;
        command_source_post_function(source, [&] { done = true; });
        EXPECT_TRUE(wait_until([&] { return done; }));
    }

    LogCapture log;
    command_source *source;
    std::shared_ptr<Backlog> backlog = command_source_backlog(source);
    std::vector<int> ran;
    std::vector<int> shed;
};

TEST_F(CommandBacklogTest, BeyondTheBoundTheOldestEventsGoAndAreCounted)
{
    std::thread([&] {
        for (int i = 0; i < 100; ++i)
            post(i);
    }).join();
    EXPECT_EQ(backlog->bytes(), 64 * megabyte);
    wait_until([&] { return ran.size() == 64; });
    EXPECT_EQ(backlog->bytes(), 0u);
    ASSERT_EQ(ran.size(), 64u);
    EXPECT_EQ(ran.front(), 36);
    EXPECT_EQ(ran.back(), 99);
    command_source_free(std::exchange(source, nullptr));
    EXPECT_THAT(log.warnings(), ElementsAre(std::string(line_begin) + "1" + line_end,
                                            std::string(line_begin) + "35" + line_end));
}

TEST_F(CommandBacklogTest, SupersededStatesGoBeforeEventsAndOtherCommandsNever)
{
    post(0);
    post(1, {Droppable::State, "a"});
    post(2, {Droppable::State, "b"});
    post(3, {Droppable::State, "a"});
    for (int i = 4; i < 66; ++i)
        post(i, {});
    run_all();
    ASSERT_EQ(ran.size(), 64u);
    EXPECT_EQ(ran[0], 2) << "first the superseded state 1 goes, then the event 0";
    EXPECT_EQ(ran[1], 3);
}

TEST_F(CommandBacklogTest, ACallbackOfADroppedCommandIsToldInItsTurn)
{
    for (int i = 0; i < 66; ++i)
        post(i, {Droppable::Event, {}}, true);
    run_all();
    EXPECT_THAT(shed, ElementsAre(0, 1, 2)) << "what is left of them takes room too";
    EXPECT_EQ(ran.size(), 63u);
}

// A slow consumer, for whom the window lets wait all that may, costs the others no event.
TEST_F(CommandBacklogTest, AQuarterOfTheBoundIsLeftToCommandsWhateverElseWaits)
{
    BacklogPart elsewhere(backlog, backlog->limit());
    for (int i = 0; i < 16; ++i)
        post(i);
    EXPECT_THAT(log.warnings(), IsEmpty());
    post(16);
    EXPECT_THAT(log.warnings(), ElementsAre(std::string(line_begin) + "1" + line_end));
    EXPECT_TRUE(wait_until([&] { return ran.size() == 16; }));
}

} // namespace
