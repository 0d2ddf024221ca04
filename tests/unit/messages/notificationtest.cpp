// SPDX-License-Identifier: LGPL-2.1-or-later

// Notifications: fields, nested records, bytes and wrong arguments.

#include "support/records.hpp"
#include "unit/messages/criticals.hpp"
#include "unit/messages/sampledeclaration.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

Owned<notification> make()
{
    Owned<notification> made(notification_new());
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration.get(), "k", "n");
    Owned<subscribe_expression> expression(subscribe_expression_new());
    notification_set_declaration(made.get(), declaration.get());
    notification_set_subscribe_expression(made.get(), expression.get());
    return made;
}

TEST(NotificationArguments, AreChecked)
{
    auto made = make();
    EXPECT_VOID_REFUSAL(notification_set_user_data, (nullptr, "a", 1), "notification != NULL");
    EXPECT_VOID_REFUSAL(notification_set_user_data, (made.get(), nullptr, 1), "user_data != NULL");
    EXPECT_VOID_REFUSAL(notification_set_user_data, (made.get(), "a", 0), "size != 0");
    EXPECT_REFUSAL(notification_get_user_data, (nullptr), nullptr, "notification != NULL");
    EXPECT_VOID_REFUSAL(notification_set_user_data_string, (nullptr, "a"), "notification != NULL");
    EXPECT_REFUSAL(notification_get_user_data_string, (nullptr), nullptr, "notification != NULL");
    EXPECT_VOID_REFUSAL(notification_set_timestamp, (nullptr, 1, 2), "notification != NULL");
    EXPECT_REFUSAL(notification_get_timestamp, (nullptr).tv_usec, 0, "notification != NULL");
    EXPECT_REFUSAL(notification_get_value, (nullptr, "k"), nullptr, "notification != NULL");
    EXPECT_REFUSAL(notification_get_value, (made.get(), nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(notification_get_name_space, (nullptr, "k"), nullptr, "notification != NULL");
    EXPECT_REFUSAL(notification_get_name_space, (made.get(), nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(notification_is_internal, (nullptr), FALSE, "notification != NULL");
    EXPECT_REFUSAL(notification_is_type_deleted, (nullptr), FALSE, "notification != NULL");
    EXPECT_REFUSAL(notification_serialize, (nullptr), nullptr, "notification != NULL");
    EXPECT_REFUSAL(notification_deserialize, (nullptr), nullptr, "array != NULL");
    EXPECT_VOID_REFUSAL(notification_print, (nullptr), "notification != NULL");
    EXPECT_EQ(notification_get_user_data(made.get()), nullptr);
    notification_free(nullptr);
}

using NotificationDeathTest = testing::Test;

TEST_F(NotificationDeathTest, TheInternalFunctionsEndTheProcess)
{
    auto made = make();
    Owned<GArray> array(serialize_create_array());
    guint indx = 0;
    EXPECT_DEATH(notification_serialize_internal(made.get(), nullptr), "array != NULL");
    EXPECT_DEATH(notification_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(notification_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(notification_deserialize(array_of({0xF9}).get()),
                 "type == SERIALIZE_ID_NOTIFICATION");
}

TEST_F(NotificationDeathTest, ANestedRecordCannotBeLeftOut)
{
    Owned<notification> empty(notification_new());
    EXPECT_DEATH(g_array_unref(notification_serialize(empty.get())), "assertion");
}

TEST(NotificationFields, ANewOneHasNone)
{
    Owned<notification> made(notification_new());
    EXPECT_EQ(notification_get_subscription_id(made.get()), 0u);
    EXPECT_EQ(notification_get_declaration_id(made.get()), 0u);
    EXPECT_EQ(notification_get_type(made.get()), 0u);
    EXPECT_FALSE(notification_is_type_deleted(made.get()));
    EXPECT_EQ(notification_get_declaration(made.get()), nullptr);
    EXPECT_EQ(notification_get_subscribe_expression(made.get()), nullptr);
    EXPECT_EQ(notification_get_user_data_string(made.get()), nullptr);
    EXPECT_EQ(notification_get_timestamp(made.get()).tv_sec, 0);
    Owned<notification> copy(notification_copy(made.get()));
    EXPECT_EQ(notification_get_declaration(copy.get()), nullptr);
}

TEST(NotificationFields, OnlyARemovalIsADeletion)
{
    auto made = make();
    notification_set_type(made.get(), NOTIFY_DECLARATION_REMOVED);
    EXPECT_TRUE(notification_is_type_deleted(made.get()));
    notification_set_type(made.get(), 7);
    EXPECT_FALSE(notification_is_type_deleted(made.get()));
    EXPECT_EQ(notification_get_type(made.get()), 7u);
}

TEST(NotificationFields, ReachIntoTheDeclaration)
{
    auto made = make();
    EXPECT_STREQ(notification_get_value(made.get(), "k"), "v");
    EXPECT_STREQ(notification_get_name_space(made.get(), "k"), "n");
    EXPECT_EQ(notification_get_value(made.get(), "missing"), nullptr);
    EXPECT_TRUE(notification_is_internal(made.get()));
}

TEST(NotificationFields, ACopyIsDeep)
{
    auto made = make();
    notification_set_user_data_string(made.get(), "data");
    notification_set_timestamp(made.get(), 3, 4);
    notification_set_subscription_id(made.get(), 5);
    notification_set_declaration_id(made.get(), 6);
    notification_set_type(made.get(), 1);
    Owned<notification> copy(notification_copy(made.get()));
    EXPECT_NE(notification_get_declaration(copy.get()), notification_get_declaration(made.get()));
    made.reset();
    EXPECT_EQ(notification_get_timestamp(copy.get()).tv_sec, 3);
    EXPECT_EQ(notification_get_timestamp(copy.get()).tv_usec, 4);
    EXPECT_EQ(notification_get_subscription_id(copy.get()), 5u);
    EXPECT_EQ(notification_get_declaration_id(copy.get()), 6u);
    EXPECT_TRUE(notification_is_type_deleted(copy.get()));
    EXPECT_STREQ(notification_get_value(copy.get(), "k"), "v");
    Owned<gchar> data(notification_get_user_data_string(copy.get()));
    EXPECT_STREQ(data.get(), "data");
}

TEST(NotificationFields, ASecondDeclarationLeavesTheFirstToItsHolder)
{
    auto made = make();
    Owned<event_declaration> first(notification_get_declaration(made.get()));
    Owned<subscribe_expression> first_expression(notification_get_subscribe_expression(made.get()));
    Owned<event_declaration> second(event_declaration_new(FALSE));
    Owned<subscribe_expression> second_expression(subscribe_expression_new_full(TRUE));
    notification_set_declaration(made.get(), second.get());
    notification_set_subscribe_expression(made.get(), second_expression.get());
    EXPECT_TRUE(event_declaration_is_internal(first.get())) << "still there";
    EXPECT_FALSE(subscribe_expression_get_clandestine(first_expression.get()));
    EXPECT_FALSE(notification_is_internal(made.get()));
}

TEST(NotificationBytes, StandWhereTheyBelong)
{
    Owned<notification> made(notification_new());
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    Owned<subscribe_expression> expression(subscribe_expression_new());
    notification_set_declaration(made.get(), declaration.get());
    notification_set_subscribe_expression(made.get(), expression.get());
    notification_set_user_data(made.get(), "xy", 2);
    notification_set_timestamp(made.get(), -1, 2);
    notification_set_subscription_id(made.get(), 3);
    notification_set_declaration_id(made.get(), 4);
    notification_set_type(made.get(), 7);
    Bytes expected{0xFA, 2, 0, 'x', 'y', 0xFF, 0xFF, 0xFF, 0xFF, 2, 0,
                   0,    0, 3, 0,   0,   0,    4,    0,    0,    0, 1};
    auto append = [&](GArray *nested) {
        Owned<GArray> owned(nested);
        for (guint shift : {0u, 8u, 16u, 24u})
            expected.push_back(static_cast<int>(nested->len >> shift & 0xFF));
        Bytes bytes = bytes_of(nested);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
    };
    append(subscribe_expression_serialize(expression.get()));
    append(event_declaration_serialize(declaration.get()));
    Owned<GArray> bytes(notification_serialize(made.get()));
    EXPECT_EQ(bytes_of(bytes.get()), expected);
    Owned<notification> read(notification_deserialize(bytes.get()));
    EXPECT_EQ(notification_get_timestamp(read.get()).tv_sec, -1);
    EXPECT_EQ(notification_get_type(read.get()), 1u);
}

TEST(NotificationPrint, HasItsNestedRecordsInFull)
{
    auto made = make();
    notification_set_subscription_id(made.get(), 5);
    notification_set_declaration_id(made.get(), 6);
    LogCapture log;
    notification_print(made.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("---- Notification ------------------------", "Subscription Id: 5",
                            "Declaration Id: 6", "Declaration Type: NOTIFY_DECLARATION_ADDED",
                            "Subscribe expression:", "---- Subscribe Expression (id:  0) ----",
                            "DBus Service: ", "DBus Object: ", "Consumer Token: 0",
                            "Clandestine: false", "---------------------------------------",
                            "Event declaration:", "--- Event Declaration -----------------",
                            "< Internal >", "Global Declaration Id: 0", "Local Declaration Id: 0",
                            "Producer Id: 0", "[n:k = 'v']",
                            "---------------------------------------",
                            "-----------------------------------"));
}

G_GNUC_END_IGNORE_DEPRECATIONS

TEST(NotificationFields, ItCarriesItsObjectsAndItsKind)
{
    Owned<notification> notification(notification_new());
    EXPECT_FALSE(notification_is_type_deleted(notification.get()));
    auto declaration = new_declaration();
    Owned<subscribe_expression> expression(subscribe_expression_new());
    notification_set_declaration(notification.get(), declaration.get());
    notification_set_subscribe_expression(notification.get(), expression.get());
    notification_set_type(notification.get(), 7);
    notification_set_subscription_id(notification.get(), 2);
    notification_set_declaration_id(notification.get(), 3);
    declaration.reset();
    EXPECT_STREQ(notification_get_value(notification.get(), "topic0"), "Device");

    Owned<GArray> bytes(notification_serialize(notification.get()));
    Owned<struct notification> read(notification_deserialize(bytes.get()));
    EXPECT_EQ(notification_get_type(read.get()), static_cast<guint32>(NOTIFY_DECLARATION_REMOVED));
    EXPECT_TRUE(notification_is_type_deleted(read.get()));
    Owned<struct notification> copy(notification_copy(read.get()));
    LogCapture log;
    notification_print(copy.get());
    std::vector<std::string> lines = log.messages();
    ASSERT_GT(lines.size(), 5u);
    EXPECT_EQ(lines[0], "---- Notification ------------------------");
    EXPECT_EQ(lines[3], "Declaration Type: NOTIFY_DECLARATION_REMOVED");
    EXPECT_EQ(lines[4], "Subscribe expression:");
    EXPECT_EQ(lines.back(), "-----------------------------------");
}

TEST(NotificationBytes, ANestedRecordThatIsShorterThanItsSizeDoesNotMoveTheNext)
{
    auto declaration = new_declaration();
    Owned<subscribe_expression> expression(subscribe_expression_new());
    Owned<GArray> inner(subscribe_expression_serialize(expression.get()));
    Owned<GArray> outer(event_declaration_serialize(declaration.get()));
    Owned<GArray> bytes = array_of({0xFA, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    serialize_32bit(bytes.get(), inner->len + 3);
    serialize_blob(bytes.get(), inner->data, inner->len);
    serialize_blob(bytes.get(), "xyz", 3);
    serialize_32bit(bytes.get(), outer->len);
    serialize_blob(bytes.get(), outer->data, outer->len);
    Owned<notification> read(notification_deserialize(bytes.get()));
    EXPECT_STREQ(notification_get_value(read.get(), "topic0"), "Device");
}

} // namespace
