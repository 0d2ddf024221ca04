// SPDX-License-Identifier: LGPL-2.1-or-later

// Producers and consumers that never wait, over a real bus with the real switch.

#include "bus/asyncpeers.hpp"
#include "support/installedtypes.hpp"

using namespace qandor::test;
using testing::ElementsAre;

namespace {

TEST_F(AsyncTest, WhatIsAskedForRightAfterCreationComesAboutInOrder)
{
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    ASSERT_TRUE(sender.wait_for("complete"));
    guint32 token = receiver.subscribe("Device");
    ASSERT_TRUE(sender.wait_for("heard 1"));
    ASSERT_TRUE(receiver.wait_for("+"));
    sender.send(id, "on");
    ASSERT_TRUE(receiver.wait_for("= on"));
    sender.undeclare(id);
    ASSERT_TRUE(receiver.wait_for("-"));
    receiver.unsubscribe(token);
    receiver.free();
    ASSERT_TRUE(receiver.wait_for("freed"));

    EXPECT_THAT(sender.told, ElementsAre("setup", "declared", "complete", "heard 1", "sent",
                                         "unheard", "undeclared"));
    EXPECT_THAT(receiver.told,
                ElementsAre("setup", "subscribed", "+", "= on", "-", "unsubscribed", "freed"));
}

TEST_F(AsyncTest, ASecureSubscriptionIsToldTheSendersUser)
{
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    auto expression = new_expression("Device");
    async_consumer_subscribe(receiver.handle, expression.get(), nullptr,
                             G_CALLBACK(Receiver::receive_secure_event), nullptr, &receiver,
                             SUBSCRIPTION_TYPE_SECURE, nullptr);
    ASSERT_TRUE(sender.wait_for("heard 1"));
    sender.send(id, "on");
    EXPECT_TRUE(receiver.wait_for("= from this user"));
}

TEST_F(AsyncTest, APropertysStateCanBeSentFromTheDeclaredCallbackAndIsToldLateSubscribers)
{
    Sender sender;
    async_producer_declare(
        sender.handle, new_declaration("Power", true).get(),
        [](guint32 id, gpointer self) { static_cast<Sender *>(self)->send(id, "saving"); },
        Sender::complete, &sender, nullptr);
    ASSERT_TRUE(sender.wait_for("complete"));
    EXPECT_THAT(sender.told, ElementsAre("setup", "sent", "complete"));

    Receiver receiver;
    guint32 token = receiver.subscribe("Power");
    ASSERT_TRUE(receiver.wait_for("= saving"));
    receiver.refresh(token);
    EXPECT_TRUE(receiver.wait_for("= saving", 2));
    EXPECT_EQ(receiver.count("refreshed"), 1);
}

TEST_F(AsyncTest, ARegisteredPropertysStateIsToldSubscribers)
{
    InstalledTypes types;
    types.ship("power", "<declare><expression><keyvalue key=\"topic0\" value=\"Power\"/>"
                        "<keyvalue key=\"state\" value-wildcard=\"true\">"
                        "<tag tag=\"property-state\"/></keyvalue></expression></declare>");
    Sender sender;
    Receiver receiver;
    receiver.subscribe("Power");
    GError *error = nullptr;
    EXPECT_NE(async_producer_register(sender.handle, "power", Sender::declared, Sender::complete,
                                      &sender, &error, "state", "saving", VALUE_TYPE_STRING, NULL),
              0u);
    EXPECT_TRUE(receiver.wait_for("= saving"));
    EXPECT_TRUE(sender.wait_for("complete"));
}

TEST_F(AsyncTest, UnsubscribingAtOnceUnsubscribesCleanly)
{
    Sender sender;
    Receiver receiver;
    sender.declare("Device");
    sender.declare("Other");
    ASSERT_TRUE(sender.wait_for("complete", 2));
    receiver.unsubscribe(receiver.subscribe("Device"));
    receiver.subscribe("Other");
    ASSERT_TRUE(sender.wait_for("heard 2"));
    ASSERT_TRUE(receiver.wait_for("+"));
    EXPECT_THAT(sender.told,
                ElementsAre("setup", "declared", "declared", "complete", "complete", "heard 2"));
    EXPECT_THAT(receiver.told,
                ElementsAre("setup", "subscribed", "unsubscribed", "subscribed", "+"));
}

// The events of one sender come in the order of the subscriptions.
TEST_F(AsyncTest, NoEventComesAfterTheUnsubscribedCallback)
{
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    guint32 first = receiver.subscribe("Device");
    receiver.subscribe("Device");
    ASSERT_TRUE(receiver.wait_for("+", 2));
    ASSERT_TRUE(sender.wait_for("complete"));
    receiver.unsubscribe(first);
    ASSERT_TRUE(receiver.wait_for("unsubscribed"));
    ASSERT_TRUE(sender.wait_for("heard 1"));
    sender.send(id, "on");
    ASSERT_TRUE(receiver.wait_for("= on"));
    sender.undeclare(id);
    ASSERT_TRUE(receiver.wait_for("-"));
    EXPECT_EQ(receiver.count("= on"), 1);
    EXPECT_EQ(receiver.count("-"), 1);
}

TEST_F(AsyncTest, TheExpressionIsReadWhenTheSubscribingRunsAndNotAfterItsCallback)
{
    struct Subscription {
        Owned<subscribe_expression> expression = new_expression("Device");
        Receiver receiver;
    } subscription;
    Sender sender;
    guint32 id = sender.declare("Device");
    async_consumer_subscribe(
        subscription.receiver.handle, subscription.expression.get(),
        [](guint32, gpointer self) { static_cast<Subscription *>(self)->expression.reset(); },
        G_CALLBACK(+[](event *event, gpointer self) {
            Receiver::receive_event(event, &static_cast<Subscription *>(self)->receiver);
        }),
        nullptr, &subscription, SUBSCRIPTION_TYPE_NORMAL, nullptr);
    subscribe_expression_add_key_value(subscription.expression.get(), "state", "on");
    ASSERT_TRUE(sender.wait_for("heard 1"));
    EXPECT_EQ(subscription.expression, nullptr);
    sender.send(id, "off");
    sender.send(id, "on");
    ASSERT_TRUE(subscription.receiver.wait_for("= on"));
    EXPECT_EQ(subscription.receiver.count("= off"), 0);
}

TEST_F(AsyncTest, AnEventFunctionMayFreeItsConsumer)
{
    struct Reader {
        event_consumer *handle;
        bool freed = false;
    } reader{async_consumer_new("consumer", nullptr, nullptr)};
    Sender sender;
    guint32 id = sender.declare("Device");
    auto expression = new_expression("Device");
    async_consumer_subscribe(
        reader.handle, expression.get(), nullptr, G_CALLBACK(+[](event *event, gpointer data) {
            event_free(event);
            async_consumer_free(
                static_cast<Reader *>(data)->handle,
                [](event_consumer *, gpointer data) { static_cast<Reader *>(data)->freed = true; },
                data);
        }),
        nullptr, &reader, SUBSCRIPTION_TYPE_NORMAL, nullptr);
    ASSERT_TRUE(sender.wait_for("heard 1"));
    sender.send(id, "on");
    EXPECT_TRUE(wait_until([&] { return reader.freed; }));
    EXPECT_TRUE(sender.wait_for("unheard"));
}

TEST_F(AsyncTest, NobodyHasToNoticeARestartOfTheSwitch)
{
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    receiver.subscribe("Device");
    ASSERT_TRUE(receiver.wait_for("+"));
    ASSERT_TRUE(sender.wait_for("heard 1"));
    event_switch.kill();
    ASSERT_TRUE(sender.wait_for("unheard"));
    event_switch.start();
    ASSERT_TRUE(sender.wait_for("heard 1", 2));
    sender.send(id, "on");
    EXPECT_TRUE(receiver.wait_for("= on"));
    EXPECT_EQ(sender.count("declared"), 1);
    EXPECT_EQ(sender.count("complete"), 1);
    EXPECT_EQ(receiver.count("subscribed"), 1);
}

TEST_F(AsyncTest, WhatIsAskedForWithoutASwitchIsKnownOnceThereIsOne)
{
    event_switch.kill();
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    receiver.subscribe("Device");
    ASSERT_TRUE(sender.wait_for("declared"));
    ASSERT_TRUE(receiver.wait_for("subscribed"));
    event_switch.start();
    ASSERT_TRUE(sender.wait_for("heard 1"));
    sender.send(id, "on");
    EXPECT_TRUE(receiver.wait_for("= on"));
}

TEST_F(AsyncTest, AllOfABurstArrivesAlthoughTheProducerIsFreedAtOnce)
{
    constexpr int burst = 1000;
    Sender sender;
    Receiver receiver;
    guint32 id = sender.declare("Device");
    receiver.subscribe("Device");
    ASSERT_TRUE(sender.wait_for("heard 1"));
    ASSERT_TRUE(receiver.wait_for("+"));
    receiver.told.clear();
    for (int i = 0; i < burst; ++i)
        sender.send(id, std::to_string(i));
    sender.free();
    // The farewell may overtake the events: it goes to somebody else.
    ASSERT_TRUE(wait_until([&] { return receiver.told.size() == burst + 1u; }));
    EXPECT_EQ(sender.count("sent"), burst);
    EXPECT_EQ(sender.told.back(), "freed");
    EXPECT_EQ(std::erase(receiver.told, "-"), 1u);
    for (int i = 0; i < burst; ++i)
        EXPECT_EQ(receiver.told[i], "= " + std::to_string(i));
}

} // namespace
