// SPDX-License-Identifier: LGPL-2.1-or-later

// What becomes of a window in 24 hours beside destinations that hang, lie or leave: played in
// virtual time, on connections of which the test plays the other end.

#include "bus/callwindow.hpp"
#include "bus/consumerbusclient.hpp"
#include "support/logcapture.hpp"

#include "pairedbus.hpp"

#include <qandor/serialize.h>
#include <qandor/switchbusclient.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr guint64 second = G_USEC_PER_SEC;

guint64 virtual_now = second;

guint64 virtual_clock()
{
    return virtual_now;
}

const std::string healthy = ":1.1000";

class WindowTimeTest : public testing::Test {
protected:
    WindowTimeTest()
    {
        CallWindow::open(bus.client(), {}, virtual_clock);
        window = CallWindow::find(bus.client());
        window->share(backlog);
    }
    ~WindowTimeTest() override
    {
        CallWindow::close(bus.client());
        if (window)
            window->finish(0);
    }

    static std::vector<std::string> hung_peers(guint count)
    {
        std::vector<std::string> names;
        for (guint i = 0; i < count; ++i)
            names.push_back(":1." + std::to_string(i));
        return names;
    }

    // One event for all of them.
    void deliver(const std::vector<std::string> &names, guint32 number, guint32 property = 0)
    {
        GArray *array = serialize_create_array();
        serialize_32bit(array, number);
        std::shared_ptr<const EventBytes> bytes = new_event_bytes(bus.client(), array);
        for (const std::string &name : names)
            call_consumer_event(bus.client(), name.c_str(),
                                {bytes, "/consumer", 1, property != 0, property}, take_answer,
                                this);
        bus.process();
    }
    void deliver(const std::string &name, guint32 number)
    {
        deliver(std::vector<std::string>{name}, number);
    }

    void pass(guint64 usec)
    {
        virtual_now += usec;
        window->look_at_clock();
        bus.process();
    }

    static int take_answer(sd_bus_message *answer, void *self, sd_bus_error *)
    {
        const sd_bus_error *error = sd_bus_message_get_error(answer);
        static_cast<WindowTimeTest *>(self)->answers.emplace_back(error ? error->name : "");
        return 0;
    }

    // Runs so long at 200 events a second; how long the healthy one was without an event at most.
    guint64 longest_pause(const std::vector<std::string> &names, guint64 usec)
    {
        constexpr guint64 period = second / 200;
        std::vector<guint32> &received = bus.peer(healthy).numbers;
        guint64 last = virtual_now;
        guint64 longest = 0;
        for (guint64 end = virtual_now + usec; virtual_now < end;) {
            std::size_t before = received.size();
            deliver(names, sent++);
            if (received.size() > before)
                last = virtual_now;
            longest = std::max(longest, virtual_now - last);
            pass(period);
        }
        return longest;
    }

    LogCapture log;
    PairedBus bus;
    std::shared_ptr<Backlog> backlog = std::make_shared<Backlog>(1 << 20);
    std::shared_ptr<CallWindow> window;
    std::vector<std::string> answers;
    guint32 sent = 0;
};

class HungPeersTest : public WindowTimeTest, public testing::WithParamInterface<guint> {
protected:
    // Nothing that the bus counts goes beyond what it allows.
    void expect_within_stock_limit()
    {
        EXPECT_EQ(bus.refused, 0u);
        EXPECT_LE(bus.most_unanswered, 120u);
        EXPECT_LE(window->slots().taken() + window->slots().kept_free(), 120u);
    }
};

TEST_P(HungPeersTest, AHealthyOneIsServedForADayBesideThoseThatNeverAnswered)
{
    std::vector<std::string> names = hung_peers(GetParam());
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(healthy, sent++);
    names.push_back(healthy);
    EXPECT_LE(longest_pause(names, 10 * second), 2 * second);
    for (guint minute = 0; minute < 24 * 60; ++minute) {
        deliver(names, sent++);
        pass(60 * second);
        ASSERT_EQ(bus.peer(healthy).numbers.size(), sent) << "after " << minute << " minutes";
    }
    EXPECT_EQ(longest_pause(names, second), 0u);
    expect_within_stock_limit();
}

TEST_P(HungPeersTest, AHealthyOneIsServedBesideThoseThatHangOneAfterAnother)
{
    deliver(healthy, sent++);
    std::vector<std::string> names = hung_peers(GetParam());
    names.push_back(healthy);
    longest_pause(names, second);
    guint64 longest = 0;
    for (const std::string &name : names) {
        bus.peer(name).is_hung = name != healthy;
        longest = std::max(longest, longest_pause(names, second / 40));
    }
    longest = std::max(longest, longest_pause(names, 10 * second));
    pass(120 * second);
    EXPECT_LE(longest, 2 * second);
    EXPECT_GE(bus.peer(healthy).numbers.size(), sent * 9 / 10);
    EXPECT_EQ(longest_pause(names, second), 0u);
    expect_within_stock_limit();
}

TEST_P(HungPeersTest, AHealthyOneThatComesLastIsFoundAsLongAsThereAreSlots)
{
    std::vector<std::string> names = hung_peers(std::min(GetParam(), 100u));
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    names.push_back(healthy);
    EXPECT_LE(longest_pause(names, 10 * second), 2 * second);
    EXPECT_GE(bus.peer(healthy).numbers.size(), sent * 9 / 10);
    expect_within_stock_limit();
}

TEST_P(HungPeersTest, ThoseThatAnswerOnceInAWhileHoldNobodyUp)
{
    std::vector<std::string> names = hung_peers(GetParam());
    deliver(healthy, sent++);
    names.push_back(healthy);
    for (const std::string &name : names)
        bus.peer(name).is_hung = name != healthy;
    for (guint round = 0; round < 8; ++round) {
        EXPECT_EQ(longest_pause(names, 3 * second / 2), 0u);
        for (const std::string &name : names)
            bus.answer(name, 1);
    }
    expect_within_stock_limit();
}

INSTANTIATE_TEST_SUITE_P(Counts, HungPeersTest, testing::Values(1u, 15u, 30u, 100u, 200u));

TEST_F(WindowTimeTest, OneThatLeavesCallsUnansweredNowAndThenDoesNotEatTheSlots)
{
    for (const std::string &name : hung_peers(200))
        bus.peer(name).lies = true;
    std::vector<std::string> names = hung_peers(200);
    deliver(healthy, sent++);
    names.push_back(healthy);
    for (guint minute = 0; minute < 120; ++minute) {
        deliver(names, sent++);
        pass(60 * second);
        ASSERT_EQ(bus.peer(healthy).numbers.size(), sent);
    }
    EXPECT_EQ(bus.refused, 0u);
    EXPECT_LE(bus.most_unanswered, 120u);
}

TEST_F(WindowTimeTest, ANewcomerGetsFewCallsUntilItHasAnswered)
{
    bus.peer(healthy).is_hung = true;
    for (guint32 i = 0; i < 100; ++i)
        deliver(healthy, i);
    EXPECT_THAT(bus.peer(healthy).numbers, SizeIs(4));
    bus.answer(healthy, 1);
    EXPECT_THAT(bus.peer(healthy).numbers, SizeIs(65)) << "the answered one and 64 more";
}

TEST_F(WindowTimeTest, NewcomersThatComeOneByOneDoNotTakeMuchMoreThanOneSlotEach)
{
    for (const std::string &name : hung_peers(100)) {
        bus.peer(name).is_hung = true;
        for (guint32 i = 0; i < 10; ++i)
            deliver(name, i);
    }
    EXPECT_EQ(window->slots().taken(), 3 * 4 + 97u);
    deliver(healthy, 0);
    EXPECT_THAT(bus.peer(healthy).numbers, ElementsAre(0));
}

TEST_F(WindowTimeTest, ACallbackIsToldAfterAMinuteAndNotAgainWhenTheAnswerComesLate)
{
    bus.peer(healthy).is_hung = true;
    deliver(healthy, 0);
    pass(60 * second - 1);
    EXPECT_THAT(answers, IsEmpty());
    pass(1);
    EXPECT_THAT(answers, ElementsAre(SD_BUS_ERROR_NO_REPLY));
    EXPECT_EQ(window->slots().taken(), 1u) << "the bus still counts it";
    bus.thaw(healthy);
    EXPECT_EQ(window->slots().taken(), 0u);
    EXPECT_THAT(answers, SizeIs(1));
}

TEST_F(WindowTimeTest, AfterALostCallTheRestWaitsForItsAnswerAndThenComesInOrder)
{
    deliver(healthy, 0);
    bus.peer(healthy).is_hung = true;
    for (guint32 i = 1; i < 200; ++i)
        deliver(healthy, i);
    pass(3600 * second);
    pass(3600 * second);
    EXPECT_THAT(bus.peer(healthy).numbers, SizeIs(65)) << "no further call while one is lost";
    bus.thaw(healthy);
    ASSERT_THAT(bus.peer(healthy).numbers, SizeIs(200));
    for (guint32 i = 0; i < 200; ++i)
        EXPECT_EQ(bus.peer(healthy).numbers[i], i);
    EXPECT_EQ(window->slots().taken(), 0u);
}

TEST_F(WindowTimeTest, OneThatLeavesGivesBackAllThatItHeld)
{
    std::vector<std::string> names = hung_peers(120);
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(names, 0);
    deliver(names, 1);
    pass(600 * second);
    EXPECT_EQ(window->slots().taken(), 112u);
    for (const std::string &name : names)
        bus.leave(name);
    EXPECT_EQ(window->slots().taken(), 0u);
    EXPECT_EQ(window->slots().kept_free(), 0u);
    EXPECT_EQ(backlog->bytes(), 0u);
    EXPECT_THAT(log.warnings(), IsEmpty()) << "what a consumer that has left misses is no loss";
}

TEST_F(WindowTimeTest, NewcomersBeyondTheSlotsComeInTheirOrderWhenOthersAnswer)
{
    std::vector<std::string> names = hung_peers(120);
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(names, 7);
    EXPECT_THAT(bus.peer(names[112]).numbers, IsEmpty());
    bus.thaw(names[0]);
    EXPECT_THAT(bus.peer(names[112]).numbers, IsEmpty()) << "the seat of the first is kept free";
    bus.leave(names[1]);
    EXPECT_THAT(bus.peer(names[112]).numbers, ElementsAre(7));
    EXPECT_THAT(bus.peer(names[113]).numbers, IsEmpty());
}

TEST_F(WindowTimeTest, ManyDestinationsComeAndGoAndSomeSeatsAreKept)
{
    for (guint32 i = 0; i < 1000; ++i)
        deliver(":2." + std::to_string(i), i);
    EXPECT_EQ(window->slots().taken(), 0u);
    EXPECT_EQ(window->slots().kept_free(), 88u);
    EXPECT_THAT(answers, SizeIs(1000));
}

// Where more have answered than there are seats, those that were there first keep theirs.
TEST_F(WindowTimeTest, ASeatThatIsUsedNowAndThenIsNotLostToOthers)
{
    deliver(healthy, sent++);
    std::vector<std::string> names = hung_peers(200);
    names.push_back(healthy);
    for (guint minute = 0; minute < 20; ++minute) {
        deliver(names, sent++);
        pass(60 * second);
    }
    for (const std::string &name : names)
        bus.peer(name).is_hung = name != healthy;
    EXPECT_LE(longest_pause(names, 10 * second), 0u);
    EXPECT_EQ(bus.refused, 0u);
}

TEST_F(WindowTimeTest, ASeatThatIsNotUsedIsTakenBackForOthers)
{
    std::vector<std::string> names = hung_peers(88);
    deliver(names, 0);
    pass(3600 * second);
    deliver(healthy, 0); // takes the seat of the first
    bus.peer(healthy).is_hung = true;
    names = hung_peers(200);
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(names, 1);
    deliver(healthy, 1);
    EXPECT_THAT(bus.peer(healthy).numbers, ElementsAre(0, 1));
}

TEST_F(WindowTimeTest, TheEndWaitsForNobodyThatIsSilent)
{
    deliver(":1.7", 0);
    bus.peer(":1.7").is_hung = true;
    deliver(":1.7", 1);
    deliver(":1.7", 2);
    pass(3 * second);
    deliver(":1.7", 3);
    CallWindow::close(bus.client())->finish(24 * 3600 * second);
    window.reset();
    bus.process();
    EXPECT_THAT(bus.peer(":1.7").numbers, ElementsAre(0, 1, 2, 3)) << "it is sent all the same";
}

class SwitchSlotsTest : public WindowTimeTest {
protected:
    SwitchSlotsTest() { bus.peer(DBUS_SERVICE_SWITCH).is_hung = true; }

    void undeclare()
    {
        com_vemo_Event_Switch_Producer_undeclare_async(bus.client(), "/o", 1, take_answer, this);
        bus.process();
    }
    std::size_t received() { return bus.peer(DBUS_SERVICE_SWITCH).numbers.size(); }
};

TEST_F(SwitchSlotsTest, FourCallsToTheSwitchAreUnderWayAtATime)
{
    for (guint i = 0; i < 20; ++i)
        undeclare();
    EXPECT_EQ(received(), 4u);
    bus.answer(DBUS_SERVICE_SWITCH, 1);
    EXPECT_EQ(received(), 5u);
    bus.thaw(DBUS_SERVICE_SWITCH);
    EXPECT_EQ(received(), 20u);
    EXPECT_THAT(answers, SizeIs(20));
}

TEST_F(SwitchSlotsTest, HungConsumersDoNotTakeThem)
{
    std::vector<std::string> names = hung_peers(200);
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(names, 0);
    pass(600 * second);
    for (guint i = 0; i < 4; ++i)
        undeclare();
    EXPECT_EQ(received(), 4u);
    EXPECT_EQ(bus.refused, 0u);
}

TEST_F(SwitchSlotsTest, ACallThatWaitsIsAnsweredForAfterAMinuteAndStillSent)
{
    for (guint i = 0; i < 10; ++i)
        undeclare();
    pass(59 * second);
    EXPECT_THAT(answers, IsEmpty());
    pass(second);
    EXPECT_THAT(answers, testing::AllOf(SizeIs(10), testing::Each(SD_BUS_ERROR_NO_REPLY)));
    bus.thaw(DBUS_SERVICE_SWITCH);
    EXPECT_EQ(received(), 10u);
    EXPECT_THAT(answers, SizeIs(10));
}

class LossTest : public WindowTimeTest {
protected:
    LossTest()
    {
        backlog = std::make_shared<Backlog>(3000);
        window->share(backlog);
        bus.peer(healthy).is_hung = true;
        deliver(healthy, 0); // under way
        pass(3 * second);    // and silent
    }
};

TEST_F(LossTest, BytesThatSeveralShareCountOnce)
{
    std::vector<std::string> names = hung_peers(8);
    for (const std::string &name : names)
        bus.peer(name).is_hung = true;
    deliver(names, 1);
    pass(3 * second); // all are silent now
    GArray *array = g_array_set_size(serialize_create_array(), 900);
    std::shared_ptr<const EventBytes> bytes = new_event_bytes(bus.client(), array);
    for (const std::string &name : names)
        call_consumer_event(bus.client(), name.c_str(), {bytes, "/consumer", 1}, take_answer, this);
    EXPECT_EQ(backlog->bytes(), 900u + 8 * 256u);
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(LossTest, EveryDropIsToldByDestinationAtTheLatestTenSecondsLater)
{
    std::string other = ":1.7";
    bus.peer(other).is_hung = true;
    deliver(other, 0);
    guint32 number = 1;
    for (; backlog->bytes() + 2 * 260 <= backlog->limit(); ++number)
        deliver({healthy, other}, number);
    EXPECT_THAT(log.warnings(), IsEmpty());
    std::size_t waiting = number - 1;
    for (guint32 end = number + 10; number < end; ++number)
        deliver({healthy, other}, number);
    EXPECT_THAT(log.warnings(), SizeIs(2)) << "the first for each at once";
    pass(LossReport::quiet_time - 1);
    EXPECT_THAT(log.warnings(), SizeIs(2));
    pass(1);
    EXPECT_THAT(log.warnings(), SizeIs(4));
    guint told = 0;
    for (const std::string &line : log.warnings())
        told += static_cast<guint>(std::stoul(line.substr(line.find(": ") + 2)));
    std::size_t left = 0;
    bus.thaw(healthy);
    bus.thaw(other);
    left = bus.peer(healthy).numbers.size() + bus.peer(other).numbers.size() - 2;
    EXPECT_GE(left, waiting);
    EXPECT_EQ(told + left, 2 * (number - 1));
    pass(3600 * second);
    EXPECT_THAT(log.warnings(), SizeIs(4)) << "nothing more happened";
}

TEST_F(LossTest, WhatIsLeftIsToldAtTheEnd)
{
    for (guint32 i = 1; i <= 21; ++i)
        deliver(healthy, i);
    std::size_t kept = backlog->bytes() / 260;
    CallWindow::close(bus.client())->finish(0);
    window.reset();
    EXPECT_THAT(log.warnings(),
                ElementsAre(healthy + " does not keep up: 1 events and 0 superseded property "
                                      "states were dropped",
                            healthy + " does not keep up: " + std::to_string(20 - kept) +
                                " events and 0 superseded property states were dropped"));
}

TEST_F(LossTest, SupersededStatesGoFirst)
{
    for (guint32 i = 1; i <= 5; ++i)
        deliver(healthy, i);
    for (guint32 i = 10; i < 30; ++i)
        deliver({healthy}, i, 3);
    bus.thaw(healthy);
    EXPECT_THAT(bus.peer(healthy).numbers, testing::IsSupersetOf({0, 1, 2, 3, 4, 5, 29}));
    pass(LossReport::quiet_time);
    EXPECT_EQ(log.warnings().back(), healthy + " does not keep up: 0 events and " +
                                         std::to_string(26 - 1 - bus.peer(healthy).numbers.size()) +
                                         " superseded property states were dropped");
}

TEST_F(LossTest, WhatTheBusRefusesIsTold)
{
    std::string other = ":1.7";
    for (guint32 i = 0; i < 3; ++i) {
        bus.refuse_next(other);
        deliver(other, i);
    }
    pass(LossReport::quiet_time);
    EXPECT_THAT(log.warnings(), ElementsAre(":1.7 3 deliveries could not be made "
                                            "(org.freedesktop.DBus.Error.LimitsExceeded)"));
    EXPECT_THAT(answers, SizeIs(3));
}

TEST_F(LossTest, WhatCouldNotBeHandedToTheBusIsTold)
{
    for (guint32 i = 1; i < 4; ++i)
        deliver(healthy, i);
    sd_bus_close(bus.client());
    CallWindow::close(bus.client())->finish(0);
    window.reset();
    EXPECT_THAT(log.warnings(), ElementsAre(healthy + " 3 deliveries could not be made "
                                                      "(Transport endpoint is not connected)"));
}

} // namespace
