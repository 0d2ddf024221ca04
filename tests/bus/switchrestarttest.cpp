// SPDX-License-Identifier: LGPL-2.1-or-later

// Producers and consumers while the switch goes and comes back, or is not there to begin with.

#include "bus/producerobject.hpp"
#include "support/logcapture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

class ProducerRestartTest : public ConnectedProducerTest {
protected:
    void go()
    {
        event_switch.leave();
        settle(event_switch, producer);
    }
    void come()
    {
        event_switch.come();
        settle(event_switch, producer);
    }
    void declare_known(guint32 id, bool property = false)
    {
        declare(id, property);
        make_known(id);
        take_sent();
    }
    bool is_known(guint32 id) { return producer_declaration_complete(producer, id); }
};

TEST_F(ProducerRestartTest, LosesItsIdsAndSubscriptionsWithTheSwitch)
{
    declare_known(1);
    subscribe(1, subscription(7, 9));
    go();
    EXPECT_FALSE(is_known(1));
    Owned<event> event = new_event(1, "on");
    EXPECT_EQ(event_get_global_id(event.get()), 0u);
    EXPECT_EQ(event_get_producer_id(event.get()), 0u);
    EXPECT_TRUE(producer_send_event(producer, event.get(), nullptr));
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerRestartTest, DeclaresEverythingAgainUnderTheSameLocalIds)
{
    declare_known(1);
    declare_known(2);
    go();
    EXPECT_THAT(take_sent(), IsEmpty());
    come();
    std::vector<std::string> declared;
    for (const SwitchCall &call : take_calls()) {
        EXPECT_EQ(call.member, "Declare");
        EXPECT_THAT(call.texts, ElementsAre(producer.address().path, "producer"));
        declared.push_back(call.bytes);
    }
    EXPECT_THAT(declared, UnorderedElementsAre(declaration_bytes("Device", 1),
                                               declaration_bytes("Device", 2)))
        << "without the former ids";
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", 1u, 77u, 78u);
    EXPECT_TRUE(is_known(1));
    EXPECT_FALSE(is_known(2));
    EXPECT_EQ(event_get_global_id(new_event(1, "on").get()), 77u);
}

TEST_F(ProducerRestartTest, IsDeclaredOnceForEachSwitch)
{
    declare_known(1);
    for (int i = 0; i < 3; ++i) {
        go();
        come();
        EXPECT_THAT(take_sent(), ElementsAre("Declare()"));
    }
    producer_send_declare(producer, 1);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerRestartTest, ServesTheSubscriptionsThatTheNewSwitchForwards)
{
    declare_known(1);
    subscribe(1, subscription(7, 9));
    go();
    come();
    make_known(1);
    subscribe(1, subscription(3, 4));
    complete(1);
    take_sent();
    send(1, "on");
    EXPECT_THAT(take_states(), ElementsAre("4:on"));
}

// Events while the switch returns.

class ProducerReturnTest : public ProducerRestartTest {
protected:
    ProducerReturnTest()
    {
        declare_known(1);
        declare_known(2);
        subscribe(1, subscription(7, 9));
    }
    void restart()
    {
        go();
        come();
        take_sent();
    }

    LogCapture log;
};

TEST_F(ProducerReturnTest, WaitForTheSubscriptionsThatTheSwitchForwards)
{
    restart();
    make_known(1);
    send(1, "first");
    subscribe(1, subscription(3, 4));
    send(1, "second");
    EXPECT_THAT(take_states(), IsEmpty());
    subscribe(1, subscription(5, 6));
    complete(1);
    EXPECT_THAT(take_states(), ElementsAre("4:first", "6:first", "4:second", "6:second"));
    send(1, "third");
    EXPECT_THAT(take_states(), ElementsAre("4:third", "6:third"));
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(ProducerReturnTest, AreKeptForASubscriberThatIsNotBackYet)
{
    subscribe(1, subscription(8, 10));
    restart();
    make_known(1);
    send(1, "first");
    subscribe(1, subscription(3, 10));
    complete(1);
    send(1, "second");
    EXPECT_THAT(take_states(), ElementsAre("10:first", "10:second"));
    subscribe(1, subscription(4, 11));
    EXPECT_THAT(take_states(), IsEmpty()) << "that one is new";
    subscribe(1, subscription(5, 9));
    EXPECT_THAT(take_states(), ElementsAre("9:first", "9:second"));
    send(1, "third");
    EXPECT_THAT(take_states(), ElementsAre("10:third", "11:third", "9:third"));
    subscribe(1, subscription(6, 9));
    EXPECT_THAT(take_states(), IsEmpty()) << "each is told once";
}

TEST_F(ProducerReturnTest, AreNotKeptForLong)
{
    restart();
    make_known(1);
    complete(1);
    send(1, "missed");
    EXPECT_TRUE(wait_until([&] { return !log.warnings().empty(); }));
    EXPECT_THAT(log.warnings(),
                ElementsAre("Subscribers of the producer \"producer\" have not come back since the "
                            "event switch returned: 1 events may have missed them"));
    subscribe(1, subscription(3, 9));
    EXPECT_THAT(take_states(), IsEmpty());
}

TEST_F(ProducerReturnTest, CarryTheNewIds)
{
    Owned<event> accepted = new_event(1, "accepted before");
    go();
    EXPECT_TRUE(producer_send_event(producer, accepted.get(), nullptr));
    come();
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", 1u, 77u, 78u);
    subscribe(1, subscription(3, 4));
    take_sent();
    complete(1);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Event(4)"));
    Owned<event> sent = read_event(calls[0].bytes);
    EXPECT_STREQ(event_get_value(sent.get(), "state"), "accepted before");
    EXPECT_EQ(event_get_global_id(sent.get()), 77u);
    EXPECT_EQ(event_get_producer_id(sent.get()), 78u);
}

TEST_F(ProducerReturnTest, AreNotOvertakenByThoseOfOtherDeclarations)
{
    restart();
    make_known(1);
    make_known(2);
    subscribe(1, subscription(3, 4));
    subscribe(2, subscription(5, 6));
    complete(2);
    send(1, "first");
    send(2, "second");
    EXPECT_THAT(take_states(), IsEmpty());
    complete(1);
    EXPECT_THAT(take_states(), ElementsAre("4:first", "6:second"));
}

TEST_F(ProducerReturnTest, WaitForNoLongerThanASecond)
{
    restart();
    make_known(1);
    subscribe(1, subscription(3, 4));
    take_sent();
    send(1, "on");
    EXPECT_THAT(take_sent(), IsEmpty());
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Event") == 1; }));
    EXPECT_THAT(log.warnings(),
                ElementsAre("The event switch did not return in time: 1 events of the producer "
                            "\"producer\" missed the subscribers that it had not announced yet"));
    take_sent();
    send(1, "later");
    EXPECT_THAT(take_states(), ElementsAre("4:later")) << "the switch has had its time";
}

TEST_F(ProducerReturnTest, AreDroppedWithAWordWhenTheSwitchDoesNotReturn)
{
    Owned<event> accepted = new_event(1, "accepted before");
    go();
    EXPECT_TRUE(producer_send_event(producer, accepted.get(), nullptr));
    EXPECT_TRUE(producer_send_event(producer, accepted.get(), nullptr));
    EXPECT_TRUE(wait_until([&] { return !log.warnings().empty(); }));
    EXPECT_THAT(log.warnings(), ElementsAre(testing::HasSubstr(" 2 events of the producer ")));
    come();
    make_known(1);
    subscribe(1, subscription(3, 4));
    complete(1);
    EXPECT_THAT(take_states(), IsEmpty());
}

TEST_F(ProducerReturnTest, DoNotWaitWhenTheyAreUndeclared)
{
    restart();
    make_known(1);
    make_known(2);
    subscribe(1, subscription(3, 4));
    send(1, "last");
    send(2, "of another one");
    take_sent();
    release(1);
    EXPECT_THAT(take_sent(), ElementsAre("Event(4)", "Undeclare(10)"));
    complete(2);
    EXPECT_THAT(changes.back(), Ids{});
}

TEST_F(ProducerReturnTest, DoNotWaitWhenTheProducerLeaves)
{
    restart();
    make_known(1);
    subscribe(1, subscription(3, 4));
    send(1, "last");
    take_sent();
    producer_send_disconnect(producer);
    EXPECT_THAT(take_sent(), ElementsAre("Event(4)", "Disconnect()"));
}

TEST_F(ProducerReturnTest, NeverWaitAtTheFirstDeclaration)
{
    declare(3);
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", 3u, 30u, 1u);
    subscribe(3, subscription(3, 4));
    take_sent();
    send(3, "on");
    EXPECT_THAT(take_states(), ElementsAre("4:on"));
}

TEST_F(ProducerReturnTest, PropertiesDoNotWait)
{
    declare_known(3, true);
    restart();
    make_known(3);
    subscribe(3, subscription(3, 4));
    take_sent();
    send(3, "on");
    EXPECT_THAT(take_states(), ElementsAre("4:on"));
}

TEST_F(ProducerRestartTest, TellsOnceThatAllVisibleSubscribersAreGone)
{
    declare_known(1);
    declare_known(2);
    subscribe(1, subscription(7, 9));
    subscribe(2, subscription(8, 9));
    go();
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{1, 2}, Ids{}));
    come();
    make_known(1);
    EXPECT_EQ(changes.size(), 3u);
    subscribe(1, subscription(7, 9));
    EXPECT_THAT(changes, ElementsAre(Ids{1}, Ids{1, 2}, Ids{}, Ids{1}));
}

TEST_F(ProducerRestartTest, TellsNothingOfClandestineSubscribers)
{
    declare_known(1);
    go();
    come();
    subscribe_clandestinely(1, 7);
    go();
    come();
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(ProducerRestartTest, IsOfflineInAllRespectsWhenItTells)
{
    declare_known(1);
    declare_known(2);
    subscribe(2, subscription(8, 9));
    bool complete = true;
    on_change = [&] {
        complete = is_known(1) || is_known(2);
        send(2, "nobody there");
    };
    go();
    EXPECT_FALSE(complete);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ProducerRestartTest, TheApplicationMayUndeclareAllAsTheSwitchGoes)
{
    declare_known(1);
    declare_known(2);
    subscribe(1, subscription(7, 9));
    on_change = [&] {
        release(1);
        release(2);
    };
    go();
    come();
    EXPECT_THAT(take_sent(), IsEmpty());
    EXPECT_EQ(producer_prepare_event(producer, 1), nullptr);
}

TEST_F(ProducerRestartTest, WhatIsUndeclaredMeanwhileIsGoneForGood)
{
    declare_known(1);
    declare_known(2);
    go();
    release(1);
    EXPECT_THAT(take_sent(), IsEmpty()) << "the id was the former switch's";
    come();
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Declare()"));
    EXPECT_EQ(calls[0].bytes, declaration_bytes("Device", 2));
}

void count(guint32, gpointer calls)
{
    ++*static_cast<int *>(calls);
}

TEST_F(ProducerRestartTest, ACompletionThatIsStillDueComesFromTheNewSwitch)
{
    int told = 0, late = 0;
    auto complete = [&](guint32 id) {
        event_switch.call(producer.address(), "com.vemo.Event.Producer.DeclarationComplete", id,
                          10 * id);
    };
    producer_allocate_decl_data(producer, 1, new_declaration("Device").release(), count, &told);
    producer_allocate_decl_data(producer, 2, new_declaration("Device").release(), count, &late);
    producer_send_declare(producer, 1);
    producer_send_declare(producer, 2);
    complete(1);
    go();
    come();
    complete(1);
    complete(2);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(late, 1);
}

TEST_F(ProducerRestartTest, APropertysStateSurvivesAndIsToldWithTheNewIds)
{
    declare_known(1, true);
    subscribe(1, subscription(7, 9));
    send(1, "on");
    go();
    come();
    take_sent();
    subscribe(1, subscription(3, 4));
    EXPECT_THAT(take_sent(), IsEmpty()) << "there is no id yet";
    event_switch.call(producer.address(), "com.vemo.Event.Producer.GlobalDeclareId", 1u, 77u, 78u);
    refresh(1, 3);
    subscribe(1, subscription(5, 6));
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Event(4)", "Event(6)"));
    for (const SwitchCall &call : calls) {
        Owned<event> state = read_event(call.bytes);
        EXPECT_EQ(event_get_global_id(state.get()), 77u);
        EXPECT_EQ(event_get_producer_id(state.get()), 78u);
        EXPECT_STREQ(event_get_value(state.get(), "state"), "on");
    }
}

TEST_F(ProducerRestartTest, AStateSentMeanwhileIsToldOnceTheSwitchIsBack)
{
    declare_known(1, true);
    go();
    send(1, "meanwhile");
    come();
    make_known(1);
    subscribe(1, subscription(3, 4));
    EXPECT_THAT(take_states(), ElementsAre("4:meanwhile"));
}

// Without a switch to begin with.

class ProducerWithoutSwitchTest : public ProducerRestartTest {
protected:
    ProducerWithoutSwitchTest() { go(); }
};

TEST_F(ProducerWithoutSwitchTest, IsDeclaredWhenThereIsOne)
{
    declare(1);
    EXPECT_THAT(take_sent(), IsEmpty());
    come();
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Declare") == 1; }));
    settle(event_switch, producer);
    EXPECT_EQ(event_switch.count("Declare"), 1u);
}

TEST_F(ProducerWithoutSwitchTest, TheAnswerOfAnEarlierSwitchSaysNothingAboutTheLaterOne)
{
    auto former = std::make_unique<FakeSwitch>();
    former->answer("Declare", {.withheld = true});
    declare(1);
    EXPECT_TRUE(wait_until([&] { return former->count("Declare") == 1; }));
    former->leave();
    come();
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Declare") == 1; }));
    // The bus answers in the place of one who has left.
    std::string name = former->unique_name();
    former.reset();
    wait_until_left(name);
    settle(event_switch, producer);
    producer_send_declare(producer, 1);
    settle(event_switch, producer);
    EXPECT_EQ(event_switch.count("Declare"), 1u);
}

// Consumers.

void append_state(event *received, gpointer states)
{
    Owned<event> owner(received);
    static_cast<std::vector<std::string> *>(states)->emplace_back(
        event_get_value(received, "state"));
}

class ConsumerRestartTest : public testing::Test {
protected:
    ConsumerRestartTest() { consumer.connect(consumer_init_dbus); }

    void subscribe(guint32 token, const char *topic = "Device")
    {
        consumer_prepare_subscribe(consumer, token, new_expression(topic).get(),
                                   G_CALLBACK(append_state), nullptr, &states,
                                   SUBSCRIPTION_TYPE_NORMAL);
        consumer_send_subscribe(consumer, token);
    }
    void unsubscribe(guint32 token)
    {
        consumer_send_unsubscribe(consumer, consumer_send_unsubscribe_prepare(consumer, token));
    }
    std::vector<SwitchCall> take_calls()
    {
        settle(event_switch, consumer);
        return event_switch.take();
    }
    std::vector<std::string> take_sent() { return texts_of(take_calls()); }
    void go()
    {
        event_switch.leave();
        settle(event_switch, consumer);
    }
    void come()
    {
        event_switch.come();
        settle(event_switch, consumer);
    }

    PrivateBus private_bus;
    FakeSwitch event_switch;
    std::vector<std::string> states;
    BusObject<Consumer> consumer{consumer_new("consumer")};
};

TEST_F(ConsumerRestartTest, SubscribesEverythingAgainWithTheSameTokensAndBytes)
{
    subscribe(1, "Device");
    subscribe(2, "Other");
    take_sent();
    go();
    EXPECT_THAT(take_sent(), IsEmpty());
    come();
    std::vector<std::pair<guint32, std::string>> subscribed;
    for (const SwitchCall &call : take_calls()) {
        EXPECT_EQ(call.member, "Subscribe");
        EXPECT_THAT(call.texts, ElementsAre(consumer.address().path, "consumer"));
        subscribed.emplace_back(call.numbers.at(0), call.bytes);
    }
    EXPECT_THAT(subscribed, UnorderedElementsAre(std::pair(1u, expression_bytes("Device")),
                                                 std::pair(2u, expression_bytes("Other"))));
    consumer_send_subscribe(consumer, 1);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ConsumerRestartTest, GetsEventsAlsoWhileTheSwitchIsAway)
{
    subscribe(1);
    go();
    event_switch.call(consumer.address(), "com.vemo.Event.Consumer.Event",
                      Blob{event_bytes("Device", "meanwhile")}, 1u);
    EXPECT_THAT(states, ElementsAre("meanwhile"));
}

TEST_F(ConsumerRestartTest, WhatIsUnsubscribedMeanwhileIsGoneForGood)
{
    subscribe(1);
    subscribe(2);
    go();
    unsubscribe(1);
    take_sent();
    come();
    EXPECT_THAT(take_sent(), ElementsAre("Subscribe(2)"));
}

TEST_F(ConsumerRestartTest, ASubscriptionMadeWithoutASwitchIsSentWhenThereIsOne)
{
    go();
    subscribe(1);
    EXPECT_THAT(take_sent(), ElementsAre());
    come();
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Subscribe") == 1; }));
    settle(event_switch, consumer);
    EXPECT_EQ(event_switch.count("Subscribe"), 1u);
}

TEST_F(ConsumerRestartTest, TheAnswerOfAnEarlierSwitchSaysNothingAboutTheLaterOne)
{
    go();
    auto former = std::make_unique<FakeSwitch>();
    former->answer("Subscribe", {.withheld = true});
    subscribe(1);
    EXPECT_TRUE(wait_until([&] { return former->count("Subscribe") == 1; }));
    former->leave();
    come();
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Subscribe") == 1; }));
    std::string name = former->unique_name();
    former.reset();
    wait_until_left(name);
    settle(event_switch, consumer);
    consumer_send_subscribe(consumer, 1);
    settle(event_switch, consumer);
    EXPECT_EQ(event_switch.count("Subscribe"), 1u);
}

TEST_F(ConsumerRestartTest, AnAnswerToASubscriptionThatWasReplacedSaysNothingAboutTheNewOne)
{
    event_switch.answer("Subscribe", {.error = SD_BUS_ERROR_NO_REPLY, .text = "nobody there"});
    subscribe(1);
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Subscribe") == 1; }));
    event_switch.answer("Subscribe", {});
    subscribe(1);
    settle(event_switch, consumer);
    consumer_send_subscribe(consumer, 1);
    settle(event_switch, consumer);
    EXPECT_EQ(event_switch.count("Subscribe"), 2u);
}

} // namespace
