// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's bookkeeping calls, spoken without the library's bus objects: what each says to whom,
// in which order, and that nobody speaks for another.

#include "rawpeer.hpp"
#include "rawrecords.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char *invalid_args = "org.freedesktop.DBus.Error.InvalidArgs";

class BookkeepingTest : public testing::Test {
protected:
    static std::string declare(RawPeer &peer, const char *topic, guint32 local_id,
                               bool property = false, const char *path = "/p")
    {
        return peer
            .call("Producer.Declare", path, "name",
                  Octets{declaration_bytes(topic, local_id, property)})
            .error;
    }
    static std::string subscribe(RawPeer &peer, guint32 token, const char *topic,
                                 const char *path = "/c")
    {
        return peer.call("Consumer.Subscribe", path, "name", token, Octets{expression_bytes(topic)})
            .error;
    }
    std::size_t declaration_count()
    {
        return read_list(onlooker.call("Query.GetAllDeclarations").bytes).size();
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer producer, consumer, onlooker;
};

TEST_F(BookkeepingTest, WithoutDeclarationsTheListIsFourZeroBytes)
{
    EXPECT_EQ(onlooker.call("Query.GetAllDeclarations").bytes, std::string(4, '\0'));
    EXPECT_EQ(onlooker.call("Query.GetDeclarationTypes").bytes, std::string(4, '\0'));
}

TEST_F(BookkeepingTest, AProducerHearsItsIdsThenItsSubscribersThenTheEnd)
{
    EXPECT_EQ(subscribe(consumer, 7, "Device"), "");
    EXPECT_EQ(subscribe(consumer, 6, "Elsewhere"), "");
    EXPECT_EQ(subscribe(consumer, 5, "Device"), "");
    EXPECT_THAT(consumer.take_members(), IsEmpty());

    EXPECT_EQ(declare(producer, "Device", 40), "");
    EXPECT_THAT(producer.take_members(), ElementsAre("GlobalDeclareId(40,1,1)", "Subscribe(40)",
                                                     "Subscribe(40)", "DeclarationComplete(40,1)"));
    EXPECT_THAT(consumer.take_members(), ElementsAre("Notification(7)", "Notification(5)"));
}

TEST_F(BookkeepingTest, TheAnswerComesBeforeWhatItCauses)
{
    subscribe(producer, 5, "Device");
    for (int i = 0; i < 2; ++i) { // the second time it replaces the first
        producer.take();
        std::optional<Answer> answer;
        bool was_answered_first = true;
        producer.on_call = [&](const Received &) {
            was_answered_first = was_answered_first && answer;
            return true;
        };
        producer.call_later(answer, "Producer.Declare", "/p", "name",
                            Octets{declaration_bytes("Device", 1)});
        ASSERT_TRUE(run_until([&] { return answer.has_value(); }));
        EXPECT_FALSE(producer.take().empty());
        EXPECT_TRUE(was_answered_first);

        answer.reset();
        producer.call_later(answer, "Consumer.Subscribe", "/c", "name", guint32(5),
                            Octets{expression_bytes("Device")});
        ASSERT_TRUE(run_until([&] { return answer.has_value(); }));
        EXPECT_FALSE(producer.take().empty());
        EXPECT_TRUE(was_answered_first);
        producer.on_call = nullptr;
    }
}

TEST_F(BookkeepingTest, WhatPeersAreToldAsksForNoAnswer)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 1, true);
    consumer.call("Consumer.RefreshProperty", "/c", guint32(5));
    consumer.call("Consumer.Unsubscribe", "/c", guint32(5));
    std::vector<Received> told = producer.take();
    EXPECT_EQ(told.size(), 5u);
    for (const Received &one : told) {
        EXPECT_FALSE(one.wants_answer) << one.member;
        EXPECT_EQ(one.path, "/p");
    }
    for (const Received &one : consumer.take()) {
        EXPECT_FALSE(one.wants_answer);
        EXPECT_EQ(one.path, "/c");
    }
}

TEST_F(BookkeepingTest, AForwardedExpressionSaysHowItsConsumerIsReached)
{
    declare(producer, "Device", 1);
    producer.take();
    subscribe(consumer, 5, "Device");
    std::vector<Received> told = producer.take();
    ASSERT_EQ(told.size(), 1u);
    Owned<subscribe_expression> expression(
        subscribe_expression_deserialize(array_from(told[0].bytes).get()));
    EXPECT_EQ(subscribe_expression_get_id(expression.get()), 1u);
    EXPECT_EQ(subscribe_expression_get_dbus_service(expression.get()), consumer.name());
    EXPECT_STREQ(subscribe_expression_get_dbus_object(expression.get()), "/c");
    EXPECT_EQ(subscribe_expression_get_consumer_token(expression.get()), 5u);
    EXPECT_FALSE(subscribe_expression_get_clandestine(expression.get()));
}

TEST_F(BookkeepingTest, ANotificationCarriesEverythingButUserData)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 40);
    producer.call("Producer.Undeclare", "/p", guint32(1));
    producer.take();
    std::vector<Received> told = consumer.take();
    ASSERT_EQ(told.size(), 2u);
    for (bool removed : {false, true}) {
        Owned<notification> read(notification_deserialize(array_from(told[removed].bytes).get()));
        EXPECT_EQ(notification_is_type_deleted(read.get()), removed);
        EXPECT_EQ(notification_get_subscription_id(read.get()), 1u);
        EXPECT_EQ(notification_get_declaration_id(read.get()), 1u);
        EXPECT_EQ(notification_get_user_data_string(read.get()), nullptr);
        EXPECT_GT(notification_get_timestamp(read.get()).tv_sec, 1500000000);
        EXPECT_STREQ(notification_get_value(read.get(), "topic0"), "Device");
        event_declaration *declaration = notification_get_declaration(read.get());
        EXPECT_EQ(event_declaration_get_global_id(declaration), 1u);
        EXPECT_EQ(event_declaration_get_local_id(declaration), 40u);
        EXPECT_EQ(event_declaration_get_producer_id(declaration), 1u);
        subscribe_expression *expression = notification_get_subscribe_expression(read.get());
        EXPECT_EQ(subscribe_expression_get_consumer_token(expression), 5u);
    }
}

TEST_F(BookkeepingTest, DeclaringAndSubscribingAgainReplaces)
{
    declare(producer, "Device", 40);
    subscribe(consumer, 5, "Device");
    producer.take();
    consumer.take();
    declare(producer, "Device", 40);
    EXPECT_THAT(producer.take_members(), ElementsAre("Unsubscribe(1,40)", "GlobalDeclareId(40,2,1)",
                                                     "Subscribe(40)", "DeclarationComplete(40,2)"));
    EXPECT_THAT(consumer.take_members(), ElementsAre("Notification(5)", "Notification(5)"));
    EXPECT_EQ(declaration_count(), 1u);
    subscribe(consumer, 5, "Device");
    consumer.take();
    EXPECT_THAT(producer.take_members(), ElementsAre("Unsubscribe(1,40)", "Subscribe(40)"));
}

TEST_F(BookkeepingTest, AnExternalDeclarationWithoutTopicIsRefused)
{
    for (bool internal : {false, true}) {
        Owned<event_declaration> declaration(event_declaration_new(internal));
        event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
        Answer answer =
            producer.call("Producer.Declare", "/p", "name",
                          Octets{take_bytes(event_declaration_serialize(declaration.get()))});
        EXPECT_EQ(answer.error, internal ? "" : invalid_args);
        EXPECT_THAT(answer.text, HasSubstr(internal ? "" : "topic0"));
        EXPECT_EQ(declaration_count(), internal ? 1u : 0u);
    }
}

TEST_F(BookkeepingTest, NobodySpeaksForAnother)
{
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 1);
    producer.take();
    consumer.take();
    RawPeer stranger;
    for (const char *path : {"/p", "/c"}) {
        EXPECT_EQ(stranger.call("Producer.Undeclare", path, guint32(1)).error, "");
        EXPECT_EQ(stranger.call("Producer.Disconnect", path).error, "");
        EXPECT_EQ(stranger.call("Consumer.Unsubscribe", path, guint32(5)).error, "");
        EXPECT_EQ(stranger.call("Consumer.RefreshProperty", path, guint32(5)).error, "");
        EXPECT_EQ(stranger.call("Consumer.Disconnect", path).error, "");
    }
    EXPECT_EQ(producer.call("Producer.Undeclare", "/other", guint32(1)).error, "");
    EXPECT_EQ(producer.call("Producer.Undeclare", "/p", guint32(2)).error, "");
    stranger.take();
    EXPECT_THAT(producer.take_members(), IsEmpty());
    EXPECT_THAT(consumer.take_members(), IsEmpty());
    EXPECT_EQ(declaration_count(), 1u);
}

TEST_F(BookkeepingTest, CallsInTheWrongOrderChangeNothing)
{
    EXPECT_EQ(producer.call("Producer.Undeclare", "/p", guint32(1)).error, "");
    EXPECT_EQ(producer.call("Producer.Disconnect", "/p").error, "");
    EXPECT_EQ(consumer.call("Consumer.Unsubscribe", "/c", guint32(1)).error, "");
    EXPECT_EQ(consumer.call("Consumer.RefreshProperty", "/c", guint32(1)).error, "");
    EXPECT_EQ(consumer.call("Consumer.Disconnect", "/c").error, "");
    declare(producer, "Device", 1);
    EXPECT_EQ(producer.call("Producer.Disconnect", "/p").error, "");
    EXPECT_EQ(producer.call("Producer.Disconnect", "/p").error, "");
    EXPECT_EQ(producer.call("Producer.Undeclare", "/p", guint32(1)).error, "");
    EXPECT_EQ(declaration_count(), 0u);
}

TEST_F(BookkeepingTest, OnlyMatchingPropertiesAreRefreshed)
{
    declare(producer, "Device", 1);
    declare(producer, "Device", 2, true);
    declare(producer, "Elsewhere", 3, true);
    subscribe(consumer, 5, "Device");
    producer.take();
    consumer.call("Consumer.RefreshProperty", "/c", guint32(5));
    consumer.take();
    EXPECT_THAT(producer.take_members(), ElementsAre("RefreshProperty(1,2)"));
}

TEST_F(BookkeepingTest, WhatAPeerDisconnectsIsGone)
{
    declare(producer, "Device", 1);
    declare(producer, "Device", 1, false, "/q");
    subscribe(consumer, 5, "Device");
    producer.take();
    consumer.take();
    producer.call("Producer.Disconnect", "/p");
    producer.take();
    EXPECT_THAT(consumer.take_members(), ElementsAre("Notification(5)"));
    consumer.call("Consumer.Disconnect", "/c");
    consumer.take();
    EXPECT_THAT(producer.take_members(), ElementsAre("Unsubscribe(1,1)"));
    EXPECT_EQ(declaration_count(), 1u);
}

TEST_F(BookkeepingTest, APeerThatDiesLeavesNothingBehind)
{
    RawPeer mortal;
    declare(mortal, "Device", 1);
    declare(mortal, "Device", 2, false, "/q");
    subscribe(mortal, 5, "Device");
    subscribe(mortal, 6, "Device", "/d");
    subscribe(consumer, 5, "Device");
    declare(producer, "Device", 1);
    mortal.take();
    producer.take();
    consumer.take();

    mortal.leave();
    ASSERT_TRUE(run_until([&] { return declaration_count() == 1; }));
    EXPECT_THAT(producer.take_members(), ElementsAre("Unsubscribe(1,1)", "Unsubscribe(2,1)"));
    EXPECT_THAT(consumer.take_members(), ElementsAre("Notification(5)", "Notification(5)"));
}

TEST_F(BookkeepingTest, MalformedCallsAreRefusedWithAReasonAndChangeNothing)
{
    declare(producer, "Device", 1);
    subscribe(consumer, 5, "Device");
    producer.take();
    consumer.take();
    const std::string declaration = declaration_bytes("Device", 1);
    const std::string expression = expression_bytes("Device");
    for (const std::string &bytes :
         {std::string(), declaration.substr(0, declaration.size() - 1), declaration + '\0',
          expression, std::string("\xf0"), std::string(100, '\xff')}) {
        for (const Answer &answer :
             {producer.call("Producer.Declare", "/p", "name", Octets{bytes}),
              producer.call("Producer.AddDeclaration", "Type", Octets{bytes}),
              consumer.call("Consumer.Subscribe", "/c", "name", guint32(5),
                            Octets{bytes == expression ? declaration : bytes}),
              consumer.call("Consumer.GetPropertyState",
                            Octets{bytes == expression ? declaration : bytes})}) {
            EXPECT_EQ(answer.error, invalid_args);
            EXPECT_THAT(answer.text, HasSubstr("Malformed record at byte"));
        }
    }
    EXPECT_THAT(producer.take_members(), IsEmpty());
    EXPECT_THAT(consumer.take_members(), IsEmpty());
    EXPECT_EQ(read_list(onlooker.call("Query.GetDeclarationTypes").bytes).size(), 0u);
}

TEST_F(BookkeepingTest, AnObjectThatCannotBeCalledIsRefused)
{
    for (const std::string &path :
         {std::string(), std::string("p"), std::string("/p/"), std::string("/p p"),
          "/" + std::string(65535, 'a'), "/" + std::string(1 << 20, 'a')}) {
        for (const Answer &answer : {producer.call("Producer.Declare", path, "name",
                                                   Octets{declaration_bytes("Device", 1)}),
                                     producer.call("Producer.Undeclare", path, guint32(1)),
                                     producer.call("Producer.Disconnect", path),
                                     consumer.call("Consumer.Subscribe", path, "name", guint32(1),
                                                   Octets{expression_bytes("Device")}),
                                     consumer.call("Consumer.Unsubscribe", path, guint32(1)),
                                     consumer.call("Consumer.RefreshProperty", path, guint32(1)),
                                     consumer.call("Consumer.Disconnect", path)})
            EXPECT_EQ(answer.error, invalid_args);
    }
    EXPECT_EQ(declaration_count(), 0u);
}

TEST_F(BookkeepingTest, TheLongestObjectStillTravelsWhole)
{
    const std::string path = "/" + std::string(65534, 'a');
    declare(producer, "Device", 1);
    producer.take();
    EXPECT_EQ(subscribe(consumer, 5, "Device", path.c_str()), "");
    std::vector<Received> told = producer.take();
    ASSERT_EQ(told.size(), 1u);
    Owned<subscribe_expression> expression(
        subscribe_expression_deserialize(array_from(told[0].bytes).get()));
    EXPECT_EQ(subscribe_expression_get_dbus_object(expression.get()), path);
}

TEST_F(BookkeepingTest, OtherSignaturesAreRefused)
{
    for (const Answer &answer :
         {producer.call("Producer.Declare", "/p", Octets{declaration_bytes("Device", 1)}),
          producer.call("Producer.Undeclare", "/p", "1"), producer.call("Producer.Disconnect"),
          consumer.call("Consumer.Subscribe", "/c", "name", Octets{expression_bytes("Device")}),
          consumer.call("Consumer.Unsubscribe", guint32(1), "/c"),
          onlooker.call("Query.GetAllDeclarations", guint32(1))})
        EXPECT_EQ(answer.error, invalid_args);
    EXPECT_EQ(onlooker.call("Query.Unheard").error, "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST_F(BookkeepingTest, RecordsAndDeclarationsAreBounded)
{
    Owned<event_declaration> large(event_declaration_new(TRUE));
    std::string text(60000, 'a');
    for (int i = 0; i < 4; ++i)
        event_declaration_add_key_value(large.get(), ("key" + std::to_string(i)).c_str(),
                                        text.c_str(), VALUE_TYPE_STRING);
    constexpr const char *limits_exceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
    guint32 stored = 0;
    std::string error;
    while (error.empty() && stored < 1000) {
        event_declaration_set_local_id(large.get(), stored);
        error = producer
                    .call("Producer.Declare", "/p", "name",
                          Octets{take_bytes(event_declaration_serialize(large.get()))})
                    .error;
        stored += error.empty();
    }
    EXPECT_EQ(error, limits_exceeded);
    // Each is kept as a record and as its bytes; what would not fit for sure is refused already.
    EXPECT_LE(stored, (32u << 20) / (2 * 240000));
    EXPECT_GE(stored, (32u << 20) / (2 * 240000) - 2);
    EXPECT_EQ(declaration_count(), stored);
    event_declaration_add_key_value(large.get(), "key", text.c_str(), VALUE_TYPE_STRING);
    producer.call("Producer.Disconnect", "/p");
    EXPECT_EQ(producer
                  .call("Producer.Declare", "/p", "name",
                        Octets{take_bytes(event_declaration_serialize(large.get()))})
                  .error,
              limits_exceeded);
    EXPECT_EQ(declaration_count(), 0u);
}

// A stock bus lets anybody send a signal to the switch alone.
TEST_F(BookkeepingTest, OnlyTheBusSaysThatANameHasGone)
{
    EXPECT_EQ(declare(producer, "Device", 1), "");
    EXPECT_EQ(subscribe(consumer, 5, "Device"), "");
    for (const RawPeer *victim : {&producer, &consumer}) {
        sd_bus_message *made = nullptr;
        ASSERT_GE(sd_bus_message_new_signal(onlooker.bus(), &made, "/org/freedesktop/DBus",
                                            "org.freedesktop.DBus", "NameOwnerChanged"),
                  0);
        qandor::BusMessageOwner signal(made);
        ASSERT_GE(
            sd_bus_message_append(made, "sss", victim->name().c_str(), victim->name().c_str(), ""),
            0);
        ASSERT_GE(sd_bus_send_to(onlooker.bus(), made, "com.vemo.Event.Switch", nullptr), 0);
    }
    EXPECT_EQ(declaration_count(), 1u);
    producer.take();
    consumer.call("Consumer.Unsubscribe", "/c", guint32(5));
    EXPECT_THAT(producer.take_members(), ElementsAre("Unsubscribe(1,1)"));
}

} // namespace
