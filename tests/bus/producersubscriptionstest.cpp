// SPDX-License-Identifier: LGPL-2.1-or-later

// The subscriptions that the switch forwards to a producer: who gets which event, in which order,
// and when the application is told that it has subscribers.

#include "bus/producerobject.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

class ProducerDeliveryTest : public ConnectedProducerTest {
protected:
    ProducerDeliveryTest()
    {
        declare(1);
        make_known(1);
        take_sent();
    }
};

class SubscriptionsChangedTest : public ProducerDeliveryTest {
protected:
    SubscriptionsChangedTest() { declare(2); }
};

TEST_F(ProducerDeliveryTest, AnEventThatNobodyWantsStaysAtHome)
{
    send(1, "on");
    Forwarded other = subscription(7, 9);
    other.state = "off";
    subscribe(1, other);
    send(1, "on");
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerDeliveryTest, AnEventGoesToTheSubscribersObjectAsItIs)
{
    Forwarded wanted = subscription(7, 9);
    wanted.path = "/the/subscriber";
    subscribe(1, wanted);
    Owned<event> event = new_event(1, "on");
    set_event_time_now(event.get());
    std::string bytes = take_bytes(event_serialize(event.get()));
    EXPECT_TRUE(producer_send_event(producer, event.get(), nullptr));
    EXPECT_EQ(take_bytes(event_serialize(event.get())), bytes) << "it is not altered";
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Event(9)"));
    EXPECT_EQ(calls[0].interface, "com.vemo.Event.Consumer");
    EXPECT_EQ(calls[0].path, "/the/subscriber");
    EXPECT_EQ(calls[0].bytes, bytes);
}

TEST_F(ProducerDeliveryTest, ASubscriberIsReachedByItsOwnName)
{
    FakeSwitch consumer(FakeSwitch::Name::NotTaken);
    subscribe(1, {7, 9, consumer.unique_name()});
    send(1, "on");
    EXPECT_THAT(take_sent(), IsEmpty());
    EXPECT_TRUE(wait_until([&] { return consumer.count("Event") == 1; }));
}

TEST_F(ProducerDeliveryTest, TheOrderIsThatOfTheSubscriptions)
{
    subscribe(1, subscription(5, 50));
    subscribe(1, subscription(9, 20));
    subscribe(1, subscription(3, 90));
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(50)", "Event(20)", "Event(90)"));
    unsubscribe(1, 5);
    subscribe(1, subscription(5, 50));
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(20)", "Event(90)", "Event(50)"));
}

// As when a Declare is under way while the switch restarts: it is repeated when the name comes. The
// switch takes back what it had forwarded before it announces anything anew.
TEST_F(ProducerDeliveryTest, ANewIdLeavesTheSubscriptionsAsTheyAre)
{
    subscribe(1, subscription(5, 50));
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", guint32(1),
                      guint32(11), guint32(501));
    Owned<event> sent = new_event(1, "on");
    EXPECT_EQ(event_get_global_id(sent.get()), 11u);
    EXPECT_EQ(event_get_producer_id(sent.get()), 501u);
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(50)"));
    EXPECT_THAT(changes, ElementsAre(Ids{1}));
}

TEST_F(ProducerDeliveryTest, OnlyTheMatchingOnesOfSeveralGetIt)
{
    const char *states[] = {"on", "off", nullptr, "on"};
    for (guint32 i = 0; i < 4; ++i) {
        Forwarded forwarded = subscription(i, i);
        forwarded.state = states[i];
        subscribe(1, forwarded);
    }
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("0:on", "2:on", "3:on"));
    send(1, "off");
    EXPECT_THAT(take_states(), ElementsAre("1:off", "2:off"));
}

TEST_F(ProducerDeliveryTest, TwoSubscriptionsOfOneConsumerGetItTwice)
{
    subscribe(1, subscription(7, 9));
    subscribe(1, subscription(8, 10));
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(9)", "Event(10)"));
}

// Many are not looked at one by one.
TEST_F(ProducerDeliveryTest, OfManySubscribersTheMatchingOnesGetItInTheirOrder)
{
    std::vector<std::string> wanted;
    for (guint32 i = 0; i < 100; ++i) {
        Forwarded forwarded = subscription(100 - i, i);
        bool is_wanted = i % 10 == 3;
        forwarded.state = is_wanted ? "on" : "off";
        subscribe(1, forwarded);
        if (is_wanted)
            wanted.push_back(std::to_string(i) + ":on");
    }
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAreArray(wanted));

    for (guint32 i = 3; i < 93; i += 10)
        unsubscribe(1, 100 - i);
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre(wanted.back()));
}

TEST_F(ProducerDeliveryTest, OfManyWithOneIdAnUnsubscriptionTakesTheFirst)
{
    for (guint32 i = 0; i < 20; ++i)
        subscribe(1, subscription(7, i));
    for (guint32 i = 0; i < 18; ++i)
        unsubscribe(1, 7);
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("18:on", "19:on"));
}

TEST_F(ProducerDeliveryTest, ManySubscribersAreGoneWithTheSwitch)
{
    for (guint32 i = 0; i < 20; ++i)
        subscribe(1, subscription(i, i));
    event_switch.leave();
    event_switch.come();
    ASSERT_TRUE(wait_until([&] { return event_switch.count("Declare") == 2; }));
    make_known(1);
    subscribe(1, subscription(7, 9));
    complete(1);
    take_sent();
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
}

TEST_F(ProducerDeliveryTest, EventsGoOnlyToTheSubscribersOfTheirOwnDeclaration)
{
    declare(2);
    subscribe(1, subscription(7, 9));
    subscribe(2, subscription(8, 10));
    take_sent();
    send(2, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(10)"));
}

TEST_F(ProducerDeliveryTest, AnUnsubscriptionTakesTheFirstWithItsId)
{
    subscribe(1, subscription(7, 1));
    subscribe(1, subscription(7, 2));
    subscribe(1, subscription(8, 3));
    unsubscribe(1, 7);
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(2)", "Event(3)"));
    unsubscribe(1, 99);
    unsubscribe(1, 7);
    unsubscribe(1, 8);
    unsubscribe(1, 8);
    send(1, "on");
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerDeliveryTest, AnUnknownDeclarationIsAnErrorOnlyIfSomebodyAsks)
{
    Owned<event> event = new_event(1, "on");
    release(1);
    EXPECT_FALSE(producer_send_event(producer, event.get(), nullptr));
    GError *error = nullptr;
    EXPECT_FALSE(producer_send_event(producer, event.get(), &error));
    EXPECT_EQ(take_text(error),
              "event-error-quark 4 The local declare id of the event is not registered.");
}

TEST_F(ProducerDeliveryTest, AnErrorAnsweredToAnEventIsIgnored)
{
    event_switch.answer("Event", {.error = "com.vemo.Refused", .text = "no"});
    subscribe(1, subscription(7, 9));
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(9)"));
    send(1, "on");
    EXPECT_THAT(take_sent(), ElementsAre("Event(9)"));
}

TEST(ProducerDeliveryDeathTest, WantsAnEventAndAnErrorThatIsNotSet)
{
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    producer_allocate_decl_data(producer, 1, new_declaration("Device").release(), nullptr, nullptr);
    Owned<event> event(producer_prepare_event(producer, 1));
    GError *error = nullptr;
    EXPECT_DEATH(producer_send_event(producer, nullptr, &error), "event != NULL");
    error = g_error_new_literal(g_quark_from_string("d"), 1, "set");
    EXPECT_DEATH(producer_send_event(producer, event.get(), &error),
                 "error == NULL \\|\\| \\*error == NULL");
    g_error_free(error);
}

// Telling the application.

TEST_F(SubscriptionsChangedTest, TellsOfTheFirstSubscriberAndOfTheLastOnesGoing)
{
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(changes, ElementsAre(Ids{1}));
    subscribe(1, subscription(8, 9));
    unsubscribe(1, 7);
    EXPECT_EQ(changes.size(), 1u) << "there was one all the time";
    unsubscribe(1, 8);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{}));
}

TEST_F(SubscriptionsChangedTest, TellsAllThatHaveSubscribers)
{
    subscribe(1, subscription(7, 9));
    subscribe(2, subscription(8, 9));
    unsubscribe(1, 7);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{1, 2}, Ids{2}));
}

TEST_F(SubscriptionsChangedTest, ClandestineOnesAreNeverToldOfAndStillServed)
{
    subscribe_clandestinely(1, 7);
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("7:on"));
    unsubscribe(1, 7);
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(SubscriptionsChangedTest, ClandestineOnesNeitherHideNorReplaceOthers)
{
    subscribe_clandestinely(1, 7);
    subscribe_clandestinely(2, 17);
    subscribe(1, subscription(8, 9));
    EXPECT_THAT(changes, ElementsAre(Ids{1}));
    unsubscribe(1, 7);
    EXPECT_EQ(changes.size(), 1u);
    subscribe_clandestinely(1, 7);
    unsubscribe(1, 8);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{}));
}

TEST_F(SubscriptionsChangedTest, AnUnknownSubscriptionsGoingIsNoChange)
{
    subscribe(1, subscription(7, 9));
    unsubscribe(1, 99);
    unsubscribe(2, 7);
    EXPECT_EQ(changes.size(), 1u);
}

TEST_F(SubscriptionsChangedTest, AReleasedDeclarationTakesItsSubscribersAlong)
{
    subscribe(1, subscription(7, 9));
    subscribe(2, subscription(8, 9));
    release(1);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{1, 2}, Ids{2}));
}

TEST_F(SubscriptionsChangedTest, AReleasedDeclarationWithoutVisibleSubscribersIsNoChange)
{
    subscribe_clandestinely(1, 7);
    release(1);
    release(2);
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(SubscriptionsChangedTest, NothingIsToldOnceTheProducerIsAboutToBeFreed)
{
    subscribe(1, subscription(7, 9));
    producer_prepare_free(producer);
    unsubscribe(1, 7);
    subscribe(1, subscription(7, 9));
    EXPECT_EQ(changes.size(), 1u);
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("9:on"));
}

TEST_F(SubscriptionsChangedTest, NeedsNoFunction)
{
    BusObject<Producer> quiet(producer_new("quiet", nullptr, nullptr));
    quiet.connect(producer_init_dbus);
    producer_allocate_decl_data(quiet, 1, new_declaration("Device").release(), nullptr, nullptr);
    event_switch.call(quiet.address(), "com.vemo.Event.Producer.Subscribe",
                      Blob{subscription(7, 9).bytes()}, 1u);
    EXPECT_EQ(
        event_switch.call(quiet.address(), "com.vemo.Event.Producer.Unsubscribe", 7u, 1u).error,
        "");
}

TEST_F(SubscriptionsChangedTest, ItsFunctionMaySendTheFirstEvent)
{
    on_change = [&] { send(1, "hello"); };
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(take_states(), ElementsAre("9:hello"));
}

TEST_F(SubscriptionsChangedTest, ItsFunctionMayUndeclareAsTheFirstSubscriberComes)
{
    on_change = [&] {
        on_change = nullptr;
        release(1);
    };
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{}));
    EXPECT_FALSE(producer_declaration_complete(producer, 1));
}

TEST_F(SubscriptionsChangedTest, ItsFunctionMayUndeclareAsTheLastSubscriberGoes)
{
    subscribe(1, subscription(7, 9));
    on_change = [&] { release(1); };
    unsubscribe(1, 7);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{}));
    EXPECT_EQ(producer_prepare_event(producer, 1), nullptr);
}

TEST_F(SubscriptionsChangedTest, ItsFunctionMayUndeclareAllAsOneIsReleased)
{
    subscribe(1, subscription(7, 9));
    subscribe(2, subscription(8, 9));
    on_change = [&] { release(2); };
    release(1);
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{1, 2}, Ids{2}, Ids{}));
}

} // namespace
