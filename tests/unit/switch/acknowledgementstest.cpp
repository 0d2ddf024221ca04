// SPDX-License-Identifier: LGPL-2.1-or-later

// Whether peers have read is found out also on a bus that drops answers, and nobody takes more
// places than his share.

#include "switch/acknowledgements.hpp"

#include "bus/pairedbus.hpp"

#include <gtest/gtest.h>

using namespace qandor;
using qandor::test::PairedBus;

namespace {

constexpr guint32 user = 1000;
const std::string peer = ":1.5";

gint64 the_time = 0;

gint64 tell_time()
{
    return the_time;
}

class AcknowledgementsTest : public testing::Test {
protected:
    void SetUp() override { bus.peer(peer).is_hung = true; }

    void ask(const std::string &name = peer)
    {
        acknowledgements.ask(name, user);
        bus.process();
    }
    // As the switch does it, once a second.
    void pass(gint64 seconds)
    {
        for (; seconds > 0; --seconds) {
            the_time += G_USEC_PER_SEC;
            acknowledgements.look_again();
            bus.process();
        }
    }
    std::size_t questions() { return bus.peer(peer).unanswered.size(); }

    PairedBus bus;
    std::vector<std::string> asked, answered;
    Acknowledgements acknowledgements{
        bus.client(), [this](const std::string &name) { asked.push_back(name); },
        [this](const std::string &name) { answered.push_back(name); }, tell_time};
};

TEST_F(AcknowledgementsTest, APeerIsAskedOnceAtATime)
{
    ask();
    ask();
    pass(2);
    EXPECT_EQ(asked.size(), 1u);
    EXPECT_EQ(questions(), 1u);
    bus.answer(peer);
    EXPECT_EQ(answered, std::vector{peer});
    ask();
    EXPECT_EQ(asked.size(), 2u);
}

TEST_F(AcknowledgementsTest, ADroppedAnswerIsAskedForAgain)
{
    ask();
    bus.drop_answer(peer);
    pass(5);
    ASSERT_EQ(questions(), 1u);
    bus.answer(peer);
    EXPECT_EQ(asked.size(), 1u) << "what has been read is what had been sent before the first";
    EXPECT_EQ(answered, std::vector{peer});
}

TEST_F(AcknowledgementsTest, ALateAnswerIsAnAnswerToAllRepetitions)
{
    ask();
    pass(30);
    EXPECT_EQ(questions(), 3u);
    bus.answer(peer, 1);
    EXPECT_EQ(answered.size(), 1u);
    ask();
    bus.answer(peer, 2); // to the repetitions of the first
    EXPECT_EQ(answered.size(), 1u) << "the second question is not answered yet";
    bus.answer(peer);
    EXPECT_EQ(answered.size(), 2u);
}

TEST_F(AcknowledgementsTest, APeerThatHangsForADayIsAskedAFewTimes)
{
    ask();
    pass(24 * 3600);
    EXPECT_EQ(questions(), Acknowledgements::most_questions);
    bus.thaw(peer);
    EXPECT_EQ(answered.size(), 1u);
    EXPECT_EQ(questions(), 0u);
}

// Otherwise a peer that answers every second question would take one place after another.
TEST_F(AcknowledgementsTest, UnansweredQuestionsKeepTheirPlaces)
{
    bus.peer(peer).is_hung = false;
    bus.peer(peer).lies = true;
    for (int round = 0; round < 100; ++round) {
        ask();
        pass(5);
    }
    EXPECT_GT(answered.size(), 1u);
    EXPECT_LE(questions(), Acknowledgements::most_questions);
}

TEST_F(AcknowledgementsTest, UsersShareThePlaces)
{
    constexpr int names = 200;
    for (int number = 0; number < names; ++number) {
        std::string name = ":1." + std::to_string(100 + number);
        bus.peer(name).is_hung = true;
        ask(name);
    }
    pass(3600);
    EXPECT_LE(bus.most_unanswered, acknowledgement_calls / 2);
    acknowledgements.ask(":1.7", user + 1);
    bus.process();
    EXPECT_EQ(answered, std::vector<std::string>{":1.7"});
}

TEST_F(AcknowledgementsTest, APeerThatLeavesGivesItsPlacesBack)
{
    ask();
    pass(3600);
    acknowledgements.forget(peer);
    bus.leave(peer);
    EXPECT_TRUE(answered.empty());
    for (int number = 0; number < 30; ++number)
        ask(":1." + std::to_string(100 + number));
    EXPECT_EQ(answered.size(), 30u);
}

} // namespace
