// SPDX-License-Identifier: LGPL-2.1-or-later

// The consumer object: how it comes to the bus, its subscriptions and what they are told.

#include "bus/busobjects.hpp"
#include "bus/switch/rawpeer.hpp"
#include "support/busseam.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

// What a subscription's functions were told, in order: the states of events, "+" for a declaration.
struct Told {
    static void event(::event *received, gpointer self)
    {
        Owned<::event> owner(received);
        static_cast<Told *>(self)->add(event_get_value(received, "state"));
    }
    static void notification(::notification *received, gpointer self)
    {
        Owned<::notification> owner(received);
        bool removed = notification_is_type_deleted(received);
        static_cast<Told *>(self)->add((removed ? "-" : "+") +
                                       std::to_string(notification_get_declaration_id(received)));
    }
    void add(const std::string &text)
    {
        texts.push_back(text);
        if (on_told)
            on_told();
    }

    std::vector<std::string> texts;
    std::function<void()> on_told;
};

class ConsumerTest : public testing::Test {
protected:
    void prepare(guint32 token, Told &told, const char *topic = "Device")
    {
        consumer_prepare_subscribe(consumer, token, new_expression(topic).get(),
                                   G_CALLBACK(Told::event), G_CALLBACK(Told::notification), &told,
                                   SUBSCRIPTION_TYPE_NORMAL);
    }
    void subscribe(guint32 token, Told &told)
    {
        prepare(token, told);
        consumer_send_subscribe(consumer, token);
    }
    void unsubscribe(guint32 token)
    {
        if (subscription_data *record = consumer_send_unsubscribe_prepare(consumer, token))
            consumer_send_unsubscribe(consumer, record);
    }
    void deliver(guint32 token, const char *state)
    {
        deliver_bytes(token, event_bytes("Device", state));
    }
    void deliver_bytes(guint32 token, const std::string &bytes)
    {
        ObjectAnswer answer = event_switch.call(consumer.address(), "com.vemo.Event.Consumer.Event",
                                                Blob{bytes}, token);
        EXPECT_EQ(answer.error, "");
    }
    void notify(guint32 token, const std::string &bytes = notification_bytes())
    {
        ObjectAnswer answer = event_switch.call(
            consumer.address(), "com.vemo.Event.Consumer.Notification", Blob{bytes}, token);
        EXPECT_EQ(answer.error, "");
    }
    std::vector<SwitchCall> take_calls()
    {
        settle(event_switch, consumer);
        return event_switch.take();
    }
    std::vector<std::string> take_sent() { return texts_of(take_calls()); }

    PrivateBus private_bus;
    FakeSwitch event_switch;
    BusObject<Consumer> consumer{consumer_new("consumer")};
};

class ConnectedConsumerTest : public ConsumerTest {
protected:
    ConnectedConsumerTest() { consumer.connect(consumer_init_dbus); }
};

using ConsumerSubscriptionTest = ConnectedConsumerTest;
using ConsumerDeliveryTest = ConnectedConsumerTest;

// Setting up.

TEST_F(ConsumerTest, AFailedConnectionLeavesNothingToDisconnect)
{
    private_bus.kill();
    GError *error = nullptr;
    EXPECT_FALSE(consumer_init_dbus(consumer, &error));
    EXPECT_THAT(take_text(error),
                testing::MatchesRegex("libqandor -[0-9]+ Failed to connect to bus"));
    BusSeam seam;
    consumer.free();
    EXPECT_THAT(seam.calls, IsEmpty());
}

TEST_F(ConsumerTest, AConnectionThatFailsHalfwayLeavesNothingToDisconnectEither)
{
    BusSeam seam;
    seam.fail("sd_event_new", -EMFILE);
    GError *error = nullptr;
    EXPECT_FALSE(consumer_init_dbus(consumer, &error));
    EXPECT_EQ(take_text(error), "libqandor -24 Failed to get the default sd_event");
    seam.calls.clear();
    consumer.free();
    EXPECT_THAT(seam.calls, IsEmpty());
}

TEST_F(ConsumerTest, AnObjectThatCannotBeServedIsAnErrorAndTheConnectionIsClosedAtLast)
{
    BusSeam seam;
    seam.fail("sd_bus_add_object_vtable", -EEXIST);
    GError *error = nullptr;
    EXPECT_FALSE(consumer_init_dbus(consumer, &error));
    EXPECT_EQ(take_text(error),
              "libqandor -17 Failed to register consumer server: Unknown error -17");
    EXPECT_EQ(seam.count("sd_bus_add_match"), 0u);
    consumer.free();
    EXPECT_EQ(seam.count("sd_bus_close"), 1u);
}

// What was subscribed over a connection that is not whole would not be subscribed over the next
// one.
TEST_F(ConsumerTest, AWatchThatCannotBeKeptIsAnErrorAndWhatIsSubscribedGoesOverTheNextConnection)
{
    Told told;
    prepare(1, told);
    BusSeam seam;
    seam.fail("sd_bus_add_match", -ENOMEM);
    GError *error = nullptr;
    EXPECT_FALSE(consumer_init_dbus(consumer, &error));
    EXPECT_EQ(take_text(error),
              "libqandor -12 Consumer failed to watch bus driver: Unknown error -12");
    EXPECT_EQ(seam.count("sd_bus_close"), 1u);
    {
        LogCapture log;
        consumer_send_subscribe(consumer, 1);
        EXPECT_EQ(log.criticals().size(), 1u);
    }
    EXPECT_TRUE(wait_until([this] { return event_switch.count("Subscribe") > 0; }));
    EXPECT_THAT(take_sent(), ElementsAre("Subscribe(1)"));
}

TEST_F(ConsumerTest, WhatWasFiledBeforeIsSubscribedAsItConnects)
{
    Told told;
    prepare(3, told, "Device");
    prepare(4, told, "Other");
    consumer.connect(consumer_init_dbus);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_EQ(calls.size(), 2u);
    std::vector<std::pair<guint32, std::string>> subscribed;
    for (const SwitchCall &call : calls) {
        EXPECT_EQ(call.interface, "com.vemo.Event.Switch.Consumer");
        EXPECT_EQ(call.member, "Subscribe");
        EXPECT_THAT(call.texts, ElementsAre(consumer.address().path, "consumer"));
        subscribed.emplace_back(call.numbers.at(0), call.bytes);
    }
    EXPECT_THAT(subscribed, UnorderedElementsAre(std::pair(3u, expression_bytes("Device")),
                                                 std::pair(4u, expression_bytes("Other"))));
}

TEST(ConsumerDeathTest, IsSetUpWithAnErrorThatIsNotSet)
{
    BusObject<Consumer> consumer(consumer_new("c"));
    EXPECT_DEATH(consumer_init_dbus(consumer, nullptr), "error != NULL && \\*error == NULL");
    GError *error = g_error_new_literal(g_quark_from_string("d"), 1, "set");
    EXPECT_DEATH(consumer_init_dbus(consumer, &error), "error != NULL && \\*error == NULL");
    g_error_free(error);
}

TEST_F(ConsumerSubscriptionTest, SaysFarewellWithItsPath)
{
    consumer_send_disconnect(consumer);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].interface, "com.vemo.Event.Switch.Consumer");
    EXPECT_EQ(calls[0].member, "Disconnect");
    EXPECT_THAT(calls[0].texts, ElementsAre(consumer.address().path));
}

TEST_F(ConsumerSubscriptionTest, MayEndWhileCallsAreUnanswered)
{
    event_switch.answer("Subscribe", {.withheld = true});
    Told told;
    subscribe(1, told);
    take_sent();
    consumer.free();
    run_pending();
    EXPECT_EQ(event_switch.count("Subscribe"), 1u);
}

// Subscriptions.

TEST_F(ConsumerSubscriptionTest, AreSubscribedOnce)
{
    Told told;
    prepare(1, told);
    EXPECT_THAT(take_sent(), IsEmpty());
    consumer_send_subscribe(consumer, 1);
    consumer_send_subscribe(consumer, 1);
    consumer_send_subscribe(consumer, 99);
    EXPECT_THAT(take_sent(), ElementsAre("Subscribe(1)"));
    consumer_send_subscribe(consumer, 1);
    EXPECT_THAT(take_sent(), IsEmpty());
}

TEST_F(ConsumerSubscriptionTest, ARefusalByTheSwitchIsFinalAndToldOnce)
{
    event_switch.answer("Subscribe", {.error = SD_BUS_ERROR_LIMITS_EXCEEDED, .text = "too many"});
    LogCapture log;
    Told told;
    subscribe(1, told);
    EXPECT_THAT(take_sent(), ElementsAre("Subscribe(1)"));
    EXPECT_TRUE(wait_until([&] { return !log.warnings().empty(); }));
    consumer_send_subscribe(consumer, 1);
    EXPECT_THAT(take_sent(), IsEmpty()) << "it counts as sent";
    EXPECT_THAT(log.warnings(), ElementsAre("The event switch refuses the subscription 1 "
                                            "(topic0=Device): too many"));
    EXPECT_TRUE(consumer_token_exists(consumer, 1));
}

TEST_F(ConsumerSubscriptionTest, KeepTheExpressionAsItWasWhenTheyWereFiled)
{
    Owned<subscribe_expression> expression = new_expression("Device");
    consumer_prepare_subscribe(consumer, 1, expression.get(), G_CALLBACK(Told::event), nullptr,
                               nullptr, SUBSCRIPTION_TYPE_NORMAL);
    subscribe_expression_add_key(expression.get(), "another");
    expression.reset();
    consumer_send_subscribe(consumer, 1);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].bytes, expression_bytes("Device"));
}

TEST_F(ConsumerSubscriptionTest, AreKnownByTheirTokens)
{
    Told told;
    EXPECT_FALSE(consumer_token_exists(consumer, 1));
    prepare(1, told);
    EXPECT_TRUE(consumer_token_exists(consumer, 1));
    unsubscribe(1);
    EXPECT_FALSE(consumer_token_exists(consumer, 1));
}

TEST_F(ConsumerSubscriptionTest, ASecondUnderTheSameTokenTakesThePlaceOfTheFirst)
{
    Told first, second;
    subscribe(1, first);
    take_sent();
    prepare(1, second, "Other");
    deliver(1, "on");
    EXPECT_THAT(first.texts, IsEmpty());
    EXPECT_THAT(second.texts, ElementsAre("on"));
    EXPECT_THAT(take_sent(), IsEmpty());
    consumer_send_subscribe(consumer, 1);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Subscribe(1)"));
    EXPECT_EQ(calls[0].bytes, expression_bytes("Other"));
}

TEST_F(ConsumerSubscriptionTest, ARefreshIsAskedForWithoutLookingTheTokenUp)
{
    consumer_send_refresh(consumer, 99);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("RefreshProperty(99)"));
    EXPECT_EQ(calls[0].interface, "com.vemo.Event.Switch.Consumer");
    EXPECT_THAT(calls[0].texts, ElementsAre(consumer.address().path));
}

TEST_F(ConsumerSubscriptionTest, NothingReachesTheApplicationOnceItIsAboutToBeUnsubscribed)
{
    Told told;
    subscribe(1, told);
    take_sent();
    subscription_data *record = consumer_send_unsubscribe_prepare(consumer, 1);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->event_cb, nullptr);
    EXPECT_EQ(consumer_send_unsubscribe_prepare(consumer, 1), nullptr);
    deliver(1, "on");
    notify(1);
    EXPECT_THAT(told.texts, IsEmpty());
    EXPECT_THAT(take_sent(), IsEmpty());
    consumer_send_unsubscribe(consumer, record);
    std::vector<SwitchCall> calls = take_calls();
    ASSERT_THAT(texts_of(calls), ElementsAre("Unsubscribe(1)"));
    EXPECT_EQ(calls[0].interface, "com.vemo.Event.Switch.Consumer");
    EXPECT_THAT(calls[0].texts, ElementsAre(consumer.address().path));
}

TEST_F(ConsumerSubscriptionTest, AllAreGoneOnceTheConsumerIsAboutToBeFreed)
{
    Told told;
    subscribe(1, told);
    subscribe(2, told);
    take_sent();
    consumer_prepare_free(consumer);
    EXPECT_FALSE(consumer_token_exists(consumer, 1));
    deliver(1, "on");
    deliver(2, "on");
    EXPECT_THAT(told.texts, IsEmpty());
    EXPECT_THAT(take_sent(), IsEmpty());
}

// Deliveries.

TEST_F(ConsumerDeliveryTest, GoToTheSubscriptionWithTheToken)
{
    Told one, other;
    prepare(1, one);
    prepare(2, other);
    deliver(1, "a");
    deliver(2, "b");
    notify(1);
    deliver(1, "c");
    EXPECT_THAT(one.texts, ElementsAre("a", "+77", "c"));
    EXPECT_THAT(other.texts, ElementsAre("b"));
}

TEST_F(ConsumerDeliveryTest, ComeAlsoBeforeTheSwitchWasAsked)
{
    Told told;
    prepare(1, told);
    deliver(1, "early");
    EXPECT_THAT(told.texts, ElementsAre("early"));
}

TEST_F(ConsumerDeliveryTest, WhatNobodyWantsIsDroppedUnread)
{
    deliver_bytes(99, "\x01rubbish");
    notify(99, "\x01rubbish");
    Told told;
    consumer_prepare_subscribe(consumer, 1, new_expression("Device").get(), G_CALLBACK(Told::event),
                               nullptr, &told, SUBSCRIPTION_TYPE_NORMAL);
    notify(1);
    notify(1, "\x01rubbish");
    EXPECT_THAT(told.texts, IsEmpty());
    deliver(1, "on");
    EXPECT_THAT(told.texts, ElementsAre("on"));
}

TEST_F(ConsumerDeliveryTest, AFunctionMayUnsubscribeItsOwnToken)
{
    Told told;
    told.on_told = [&] { unsubscribe(1); };
    subscribe(1, told);
    take_sent();
    deliver(1, "first");
    deliver(1, "second");
    EXPECT_THAT(told.texts, ElementsAre("first"));
    EXPECT_THAT(take_sent(), ElementsAre("Unsubscribe(1)"));
}

TEST_F(ConsumerDeliveryTest, ANotificationsFunctionMayUnsubscribeItsOwnToken)
{
    Told told;
    told.on_told = [&] { unsubscribe(1); };
    subscribe(1, told);
    take_sent();
    notify(1);
    notify(1);
    EXPECT_THAT(told.texts, ElementsAre("+77"));
    EXPECT_THAT(take_sent(), ElementsAre("Unsubscribe(1)"));
}

TEST_F(ConsumerDeliveryTest, AFunctionMayReplaceItsOwnSubscription)
{
    Told first, second;
    first.on_told = [&] { subscribe(1, second); };
    subscribe(1, first);
    deliver(1, "first");
    deliver(1, "second");
    EXPECT_THAT(first.texts, ElementsAre("first"));
    EXPECT_THAT(second.texts, ElementsAre("second"));
}

TEST_F(ConsumerDeliveryTest, AFunctionMayEndAllSubscriptions)
{
    Told told;
    told.on_told = [&] { consumer_prepare_free(consumer); };
    prepare(1, told);
    prepare(2, told);
    deliver(1, "last");
    deliver(2, "too late");
    EXPECT_THAT(told.texts, ElementsAre("last"));
}

// A handle that is freed inside of its own event function: the rest of its work is queued.
struct Freeing {
    static void receive(event *received, gpointer self)
    {
        auto *freeing = static_cast<Freeing *>(self);
        event_free(received);
        ++freeing->events;
        event_consumer_int_free(
            freeing->consumer,
            [](event_consumer *, gpointer data) { static_cast<Freeing *>(data)->freed = true; },
            freeing);
    }
    event_consumer *consumer = event_consumer_new("freeing");
    int events = 0;
    bool freed = false;
};

TEST_F(ConsumerDeliveryTest, AFunctionMayFreeItsOwnHandle)
{
    Freeing freeing;
    guint32 token = event_consumer_subscribe(freeing.consumer, new_expression("Device").get(),
                                             Freeing::receive, &freeing);
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Subscribe") == 1; }));
    SwitchCall subscribed = event_switch.calls().back();
    ObjectAddress address{subscribed.sender, subscribed.texts.at(0)};
    RawPeer producer;
    for (int i = 0; i < 3; ++i)
        producer.send_event(address.name.c_str(), address.path.c_str(), event_bytes("Device", "on"),
                            token);
    EXPECT_TRUE(wait_until([&] { return freeing.freed; }));
    EXPECT_EQ(freeing.events, 1);
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Disconnect") == 1; }));
}

// Asking for a state.

class ConsumerPropertyStateTest : public ConnectedConsumerTest {
protected:
    std::string ask()
    {
        Owned<property_state> state(
            consumer_send_get_property_state(consumer, new_expression("Power").get(), &error));
        if (!state)
            return take_text(error);
        return inspectable_get_value(property_state_get_inspectable(state.get()), "state");
    }
    static std::string state_bytes()
    {
        Owned<property_state> state(property_state_new());
        property_state_add_key_value(state.get(), "topic0", "Power", FALSE);
        property_state_add_key_value(state.get(), "state", "saving", TRUE);
        return take_bytes(property_state_serialize(state.get()));
    }

    GError *error = nullptr;
};

TEST_F(ConsumerPropertyStateTest, IsWhatTheSwitchAnswers)
{
    event_switch.answer("GetPropertyState", {.bytes = state_bytes()});
    EXPECT_EQ(ask(), "saving");
    SwitchCall call = event_switch.calls().at(0);
    EXPECT_EQ(call.member, "GetPropertyState");
    EXPECT_EQ(call.bytes, expression_bytes("Power"));
}

TEST_F(ConsumerPropertyStateTest, ThatCannotBeHadIsTheSwitchsErrorInItsOwnWords)
{
    event_switch.answer("GetPropertyState", {.error = "com.vemo.Refused", .text = "100%s unknown"});
    EXPECT_EQ(ask(), "event-error-quark 7 100%s unknown");
    EXPECT_EQ(consumer_send_get_property_state(consumer, new_expression("Power").get(), nullptr),
              nullptr);
}

TEST_F(ConsumerPropertyStateTest, CannotBeHadWithoutASwitch)
{
    event_switch.leave();
    EXPECT_THAT(ask(), testing::StartsWith("event-error-quark 7 "));
}

TEST_F(ConsumerTest, APropertysStateCannotBeHadWithoutABus)
{
    LogCapture log;
    GError *error = nullptr;
    EXPECT_EQ(consumer_send_get_property_state(consumer, new_expression("Power").get(), &error),
              nullptr);
    EXPECT_EQ(take_text(error), "event-error-quark 7 ");
    EXPECT_THAT(log.criticals(),
                ElementsAre("Assertion failed 'bus == NULL || subscribe_expression_data == NULL'"));
}

TEST_F(ConsumerPropertyStateTest, EventsThatComeMeanwhileAreDeliveredAfterwardsInOrder)
{
    Told told;
    prepare(1, told);
    event_switch.answer("GetPropertyState", {.bytes = state_bytes()});
    ObjectAddress address = consumer.address();
    RawPeer producer;
    for (const char *state : {"a", "b", "c"})
        producer.send_event(address.name.c_str(), address.path.c_str(),
                            event_bytes("Device", state), 1);
    producer.call("Query.GetAllDeclarations"); // answered behind the events
    EXPECT_EQ(ask(), "saving");
    EXPECT_THAT(told.texts, IsEmpty()) << "not inside of the question";
    EXPECT_TRUE(wait_until([&] { return told.texts.size() == 3; }));
    EXPECT_THAT(told.texts, ElementsAre("a", "b", "c"));
}

void ask_in_a_child(FakeSwitch &event_switch, const ScriptedAnswer &answer)
{
    event_switch.answer("GetPropertyState", answer);
    BusObject<Consumer> consumer(consumer_new("c"));
    consumer.connect(consumer_init_dbus);
    property_state_free(
        consumer_send_get_property_state(consumer, new_expression("Power").get(), nullptr));
}

TEST(ConsumerPropertyStateDeathTest, RubbishAndNothingEndTheProcess)
{
    PrivateBus private_bus;
    auto ask = [](const ScriptedAnswer &answer) {
        FakeSwitch event_switch;
        ask_in_a_child(event_switch, answer);
    };
    EXPECT_DEATH(ask({.bytes = "\x01"}), "type == SERIALIZE_ID_PROPERTY_STATE");
    EXPECT_DEATH(ask({.bytes = ""}), "'dest' should not be NULL");
    EXPECT_DEATH(ask({}), "assertion failed: \\(r >= 0\\)");
}

} // namespace
