// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

Owned<event_declaration> new_declaration()
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "load", VALUE_TYPE_DOUBLE);
    event_declaration_add_key(declaration.get(), "count", VALUE_TYPE_INT);
    event_declaration_add_key(declaration.get(), "active", VALUE_TYPE_BOOL);
    return declaration;
}

TEST(Event, ANewOneSerializesAsThePlainestOfRecords)
{
    Owned<event> event(event_new());
    Owned<GArray> bytes(event_serialize(event.get()));
    EXPECT_EQ(bytes_of(bytes.get()),
              (Bytes{0xF1, 0xF2, 1, 0, 1, 0, 0xF3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                     0,    0,    0, 0, 0, 0, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Event, EveryFieldTravels)
{
    Owned<event> event(event_new());
    event_set_user_data_string(event.get(), "abc");
    event_set_timestamp(event.get(), -1, 50);
    event_set_global_id(event.get(), 7);
    event_set_local_id(event.get(), 8);
    event_set_producer_id(event.get(), 9);
    event_set_property(event.get(), TRUE);
    event_add_tag(event.get(), "t");
    inspectable_set_internal(event_get_inspectable(event.get()), TRUE);
    Owned<GArray> bytes(event_serialize(event.get()));
    Owned<struct event> read(event_deserialize(bytes.get()));
    Owned<struct event> copy(event_copy(read.get()));
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_EQ(event_get_timestamp(copy.get()).tv_sec, -1);
    EXPECT_EQ(event_get_timestamp(copy.get()).tv_usec, 50);
    G_GNUC_END_IGNORE_DEPRECATIONS
    EXPECT_EQ(event_get_global_id(copy.get()), 7u);
    EXPECT_EQ(event_get_local_id(copy.get()), 8u);
    EXPECT_EQ(event_get_producer_id(copy.get()), 9u);
    EXPECT_TRUE(event_is_property(copy.get()));
    EXPECT_TRUE(event_is_internal(copy.get()));
    EXPECT_TRUE(event_has_tag(copy.get(), "t"));
    Owned<gchar> data(event_get_user_data_string(copy.get()));
    EXPECT_EQ(std::string(data.get(), 4), std::string("abc\0", 4));
    Owned<GArray> again(event_serialize(copy.get()));
    EXPECT_EQ(bytes_of(bytes.get()), bytes_of(again.get()));
}

TEST(Event, ValuesAreFilledInTheirTypeAndReadBack)
{
    auto declaration = new_declaration();
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    EXPECT_FALSE(event_is_complete(event.get()));
    gdouble load = 2.5;
    gint count = -3;
    gboolean active = 7;
    EXPECT_TRUE(event_set_value(event.get(), "load", &load));
    EXPECT_TRUE(event_set_value(event.get(), "count", &count));
    EXPECT_TRUE(event_set_value(event.get(), "active", &active));
    EXPECT_TRUE(event_set_value(event.get(), "topic0", "Other")) << "declared with a value only";
    EXPECT_TRUE(event_set_value(event.get(), "topic0", "Device"));
    EXPECT_FALSE(event_set_value(event.get(), "missing", "x"));
    EXPECT_TRUE(event_is_complete(event.get()));
    EXPECT_STREQ(event_get_value(event.get(), "load"), "2.500000");
    EXPECT_STREQ(event_get_value(event.get(), "active"), "1");
    gint read_count = 0;
    gboolean read_active = FALSE;
    gdouble read_load = 0;
    const gchar *topic = nullptr;
    EXPECT_TRUE(event_get_typed_value(event.get(), "count", &read_count));
    EXPECT_TRUE(event_get_typed_value(event.get(), "active", &read_active));
    EXPECT_TRUE(event_get_typed_value(event.get(), "load", &read_load));
    EXPECT_TRUE(event_get_typed_value(event.get(), "topic0", &topic));
    EXPECT_FALSE(event_get_typed_value(event.get(), "missing", &read_count));
    EXPECT_EQ(read_count, -3);
    EXPECT_EQ(read_active, TRUE);
    EXPECT_EQ(read_load, 2.5);
    EXPECT_STREQ(topic, "Device");
    EXPECT_TRUE(event_set_value(event.get(), "load", &read_load)) << "a second time";
}

TEST(Event, AnIntIsTruncatedTowardZeroAndClamped)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    auto read = [&](const char *text) {
        inspectable_set_value_as_string(event_get_inspectable(event.get()), "n", text);
        gint number = 77;
        event_get_typed_value(event.get(), "n", &number);
        return number;
    };
    EXPECT_EQ(read("3.9"), 3);
    EXPECT_EQ(read("-3.9"), -3);
    EXPECT_EQ(read("1e12"), G_MAXINT32);
    EXPECT_EQ(read("-1e12"), G_MININT32);
    EXPECT_EQ(read("nan"), 0);
    EXPECT_EQ(read("word"), 0);
}

TEST(EventDeathTest, ABooleanOtherThanZeroOrOneEndsTheProcess)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key(declaration.get(), "b", VALUE_TYPE_BOOL);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    inspectable_set_value_as_string(event_get_inspectable(event.get()), "b", "yes");
    gboolean value;
    EXPECT_DEATH(event_get_typed_value(event.get(), "b", &value), "assertion failed: .FALSE");
    EXPECT_DEATH(event_deserialize(array_of({0xF0}).get()), "type == SERIALIZE_ID_EVENT");
    EXPECT_DEATH(event_serialize_internal(event.get(), nullptr), "array != NULL");
    EXPECT_DEATH(inspectable_add_key_value(event_get_inspectable(event.get()), "b", FALSE, "1",
                                           FALSE, FALSE),
                 "inspectable_get_value\\(inspect, key\\) == NULL");
    EXPECT_DEATH(inspectable_add_key_value(event_get_inspectable(event.get()), nullptr, TRUE, "1",
                                           FALSE, FALSE),
                 "key_wildcard == FALSE");
}

TEST(Event, PayloadIsKeptWhenTheNewOneIsNone)
{
    LogCapture log;
    Owned<event> event(event_new());
    event_set_user_data(event.get(), "abc", 3);
    event_set_user_data(event.get(), "abc", 0);
    event_set_user_data(event.get(), nullptr, 3);
    Owned<gchar> data(static_cast<gchar *>(event_get_user_data(event.get())));
    EXPECT_EQ(std::string(data.get(), 3), "abc");
    EXPECT_THAT(log.criticals(),
                ElementsAre("event_set_user_data: assertion 'size != 0' failed",
                            "event_set_user_data: assertion 'user_data != NULL' failed"));
}

TEST(Event, ANullIsACriticalThatNamesTheFunctionAsItIsWritten)
{
    LogCapture log;
    Owned<event> event(event_new());
    EXPECT_EQ(event_copy(nullptr), nullptr);
    EXPECT_FALSE(event_add_tag(event.get(), nullptr));
    EXPECT_EQ(event_get_index(nullptr, "k"), -1);
    EXPECT_FALSE(event_contains(event.get(), nullptr));
    EXPECT_EQ(event_deserialize(nullptr), nullptr);
    EXPECT_THAT(log.criticals(),
                ElementsAre("event_copy: assertion 'event_src != NULL' failed",
                            "event_add_tag: assertion 'tag != NULL' failed",
                            "event_get_index: assertion 'event != NULL' failed",
                            "event_contains: assertion 'containee != NULL' failed",
                            "event_deserialize: assertion 'array != NULL' failed"));
}

TEST(Event, IsStampedOnce)
{
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    Owned<event> event(event_new());
    set_event_time_now(event.get());
    EXPECT_GT(event_get_timestamp(event.get()).tv_sec, 0);
    event_set_timestamp(event.get(), 0, 1);
    set_event_time_now(event.get());
    EXPECT_EQ(event_get_timestamp(event.get()).tv_sec, 0);
    EXPECT_EQ(event_get_timestamp(event.get()).tv_usec, 1);
    G_GNUC_END_IGNORE_DEPRECATIONS
}

TEST(Event, PrintsItsLines)
{
    Owned<event> event(event_new());
    event_set_property(event.get(), TRUE);
    inspectable_set_internal(event_get_inspectable(event.get()), TRUE);
    event_set_timestamp(event.get(), 10, 50);
    event_add_tag(event.get(), "t");
    LogCapture log;
    event_print(event.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("---- Event ------------------------", "< Property >", "< Internal >",
                            "Global Declaration Id: 0", "Local Declaration Id: 0", "Producer Id: 0",
                            "Timestamp: 10.50", "{t}", "-----------------------------------"));
}

TEST(EventDeclaration, RefusesTypesThatAreNone)
{
    LogCapture log;
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    EXPECT_FALSE(event_declaration_add_key(declaration.get(), "k", 0));
    EXPECT_FALSE(event_declaration_add_key_value(declaration.get(), "k", "v", 5));
    EXPECT_EQ(inspectable_get_value(event_declaration_get_inspectable(declaration.get()), "k"),
              nullptr);
    EXPECT_THAT(log.criticals(), ElementsAre("Invalid ValueType: 0", "Invalid ValueType: 5"));
}

TEST(EventDeclaration, KeepsTheLatestOfAKey)
{
    auto declaration = new_declaration();
    event_declaration_add_key_value(declaration.get(), "load", "x", VALUE_TYPE_STRING);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    EXPECT_EQ(event_get_key_count(event.get()), 4u);
    EXPECT_STREQ(event_get_value(event.get(), "load"), "x");
}

TEST(EventDeclaration, BytesKeepItsIdsAndXmlItsKeys)
{
    auto declaration = new_declaration();
    event_declaration_set_property(declaration.get(), "count", nullptr, nullptr);
    event_declaration_set_global_id(declaration.get(), 3);
    event_declaration_set_nice_names(declaration.get(), "load", "Load <&\"'>\t", nullptr);
    Owned<GArray> bytes(event_declaration_serialize(declaration.get()));
    Owned<event_declaration> read(event_declaration_deserialize(bytes.get()));
    EXPECT_EQ(event_declaration_get_global_id(read.get()), 3u);
    EXPECT_TRUE(event_declaration_is_property(read.get()));
    // After reading bytes a declaration is not read by position until a key is added.
    inspectable *content = event_declaration_get_inspectable(read.get());
    EXPECT_FALSE(inspectable_has_keyvalue_with_tag(content, "property-state"));

    Owned<gchar> xml(event_declaration_serialize_xml(declaration.get()));
    Owned<event_declaration> from_xml(event_declaration_deserialize_xml(xml.get()));
    ASSERT_NE(from_xml, nullptr);
    EXPECT_TRUE(event_declaration_is_property(from_xml.get()));
    EXPECT_EQ(event_declaration_get_global_id(from_xml.get()), 0u);
    EXPECT_TRUE(inspectable_is_equal(event_declaration_get_inspectable(from_xml.get()),
                                     event_declaration_get_inspectable(declaration.get())));
}

TEST(EventDeclaration, APropertysEventIsThereWhenItIsComplete)
{
    auto declaration = new_declaration();
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr);
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    event_declaration_set_property(
        declaration.get(), nullptr,
        [](event *event, gpointer) -> gboolean {
            gdouble load = 1;
            gint count = 2;
            gboolean active = TRUE;
            event_set_timestamp(event, 5, 6);
            return event_set_value(event, "load", &load) &&
                   event_set_value(event, "count", &count) &&
                   event_set_value(event, "active", &active);
        },
        nullptr);
    Owned<event> event(event_declaration_get_property_event(declaration.get()));
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(event_is_property(event.get()));
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_EQ(event_get_timestamp(event.get()).tv_sec, 5);
    G_GNUC_END_IGNORE_DEPRECATIONS
}

TEST(Xml, WrongTextsAreWarnedAboutAndGiveNothing)
{
    auto warnings = [](const char *xml, guint32 type) {
        LogCapture log;
        EXPECT_EQ(event_utils_deserialize_xml(xml, type), nullptr);
        return log.warnings();
    };
    EXPECT_THAT(warnings("<broken", IT_EVENT_DECLARATION),
                ElementsAre("Could not parse XML '<broken'"));
    EXPECT_THAT(warnings("<subscribe><tag/></subscribe>", IT_EVENT_DECLARATION),
                ElementsAre("Expected tag 'declare' and got 'subscribe'",
                            HasSubstr("Failed when deserializing '<subscribe>")));
    EXPECT_THAT(warnings("<declare/>", IT_EVENT_DECLARATION),
                ElementsAre("There are no expressions in the xml", testing::_));
    EXPECT_THAT(
        warnings("<declare><other/></declare>", IT_EVENT_DECLARATION),
        ElementsAre("Expected xml tag 'expression' or 'tag' and got 'declare'", testing::_));
    EXPECT_THAT(warnings("<declare><expression><x/></expression></declare>", IT_EVENT_DECLARATION),
                ElementsAre("Expected xml tag 'keyvalue' but got 'x'",
                            "Could not deserialize expression", testing::_));
    EXPECT_THAT(warnings("<declare><expression/><expression/></declare>", IT_EVENT_DECLARATION),
                ElementsAre("Only subscribe expressions support the OR statement.", testing::_));
    EXPECT_THAT(warnings("<property><expression><keyvalue key='a'/></expression></property>",
                         IT_PROPERTY_STATE),
                ElementsAre("Expected to find 1 keyvalue tagged with 'property-state' but found 0",
                            testing::_));
    LogCapture log;
    Owned<event_declaration> tagged(
        event_declaration_deserialize_xml("<declare><tag tag='t'/></declare>"));
    EXPECT_NE(tagged, nullptr);
    EXPECT_TRUE(log.warnings().empty());
}

TEST(XmlDeathTest, AnEventHasNoXmlForm)
{
    EXPECT_DEATH(event_utils_deserialize_xml("<event/>", IT_EVENT), "FALSE");
}

TEST(SubscribeExpression, BytesKeepItsRoutingDataAndXmlItsConditions)
{
    Owned<subscribe_expression> expression(subscribe_expression_new_full(TRUE));
    subscribe_expression_set_id(expression.get(), 1);
    subscribe_expression_set_dbus_service(expression.get(), ":1.2");
    subscribe_expression_set_dbus_object(expression.get(), "/o");
    subscribe_expression_set_consumer_token(expression.get(), 4);
    subscribe_expression_add_not_value(expression.get(), "v");
    Owned<GArray> bytes(subscribe_expression_serialize(expression.get()));
    Owned<subscribe_expression> read(subscribe_expression_deserialize(bytes.get()));
    Owned<subscribe_expression> copy(subscribe_expression_copy(read.get()));
    EXPECT_EQ(subscribe_expression_get_id(copy.get()), 1u);
    EXPECT_STREQ(subscribe_expression_get_dbus_service(copy.get()), ":1.2");
    EXPECT_STREQ(subscribe_expression_get_dbus_object(copy.get()), "/o");
    EXPECT_EQ(subscribe_expression_get_consumer_token(copy.get()), 4u);
    EXPECT_TRUE(subscribe_expression_get_clandestine(copy.get()));
    Owned<gchar> xml(subscribe_expression_serialize_xml(copy.get()));
    Owned<subscribe_expression> from_xml(subscribe_expression_deserialize_xml(xml.get()));
    EXPECT_EQ(subscribe_expression_get_id(from_xml.get()), 0u);
    LogCapture log;
    subscribe_expression_print(read.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("---- Subscribe Expression (id:  1) ----", "[* != 'v']",
                            "DBus Service: :1.2", "DBus Object: /o", "Consumer Token: 4",
                            "Clandestine: true", "---------------------------------------"));
}

TEST(SubscribeExpression, ANullValueChangesNothing)
{
    LogCapture log;
    Owned<subscribe_expression> expression(subscribe_expression_new());
    EXPECT_FALSE(subscribe_expression_add_value(expression.get(), nullptr));
    EXPECT_THAT(log.criticals(),
                ElementsAre("subscribe_expression_add_value: assertion 'value != NULL' failed"));
}

TEST(SubscribeExpression, ItsPlainViewIsInReverseOrder)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "a", "1");
    subscribe_expression_or(expression.get());
    subscribe_expression_add_key_value(expression.get(), "b", "2");
    GList *raw = subscribe_expression_get_raw(expression.get());
    auto *first = static_cast<key_value_raw *>(static_cast<GList *>(raw->data)->data);
    EXPECT_STREQ(first->key, "b");
    EXPECT_EQ(g_list_length(raw), 2u);
    subscribe_expression_free_raw(raw);
}

TEST(PropertyState, IsLockedOnceItsExpressionsWereAskedFor)
{
    LogCapture log;
    Owned<property_state> state(property_state_new());
    EXPECT_TRUE(property_state_add_key_value(state.get(), "mode", "day", TRUE));
    EXPECT_TRUE(property_state_add_key_value(state.get(), "zone", "1", FALSE));
    EXPECT_FALSE(property_state_add_key_value(state.get(), "zone", "2", FALSE));
    EXPECT_FALSE(property_state_add_key_value(state.get(), "other", "2", TRUE));
    EXPECT_TRUE(log.criticals().empty());
    subscribe_expression *plain = property_state_get_subscribe_expression(state.get());
    subscribe_expression *inverted = property_state_get_inverted_subscribe_expression(state.get());
    EXPECT_FALSE(property_state_add_key_value(state.get(), "more", "2", FALSE));
    EXPECT_THAT(log.criticals(),
                ElementsAre("property_state_add_key_value: assertion '!self->locked' failed"));

    auto matches = [](const char *mode, const char *zone, subscribe_expression *expression) {
        Owned<event> event(event_new());
        inspectable *content = event_get_inspectable(event.get());
        if (mode)
            inspectable_add_key_value(content, "mode", FALSE, mode, FALSE, FALSE);
        inspectable_add_key_value(content, "zone", FALSE, zone, FALSE, FALSE);
        return event_contains(event.get(), expression) == TRUE;
    };
    EXPECT_TRUE(matches("day", "1", plain));
    EXPECT_FALSE(matches("night", "1", plain));
    EXPECT_TRUE(matches("night", "1", inverted));
    EXPECT_FALSE(matches("day", "1", inverted));
    EXPECT_FALSE(matches("night", "2", inverted));
    EXPECT_FALSE(matches(nullptr, "1", inverted));

    Owned<GArray> bytes(property_state_serialize(state.get()));
    Owned<property_state> read(property_state_deserialize(bytes.get()));
    EXPECT_FALSE(property_state_add_key_value(read.get(), "more", "2", FALSE));
}

TEST(Notification, CarriesItsObjectsAndItsKind)
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

TEST(Notification, ANestedRecordThatIsShorterThanItsSizeDoesNotMoveTheNext)
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

TEST(ValueTypes, HaveTheirTextsWithAPointInEveryLocale)
{
    gdouble number = 2.5;
    gboolean truth = 7;
    Owned<gchar> text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE));
    EXPECT_STREQ(text.get(), "2.500000");
    text.reset(event_utils_value_type_to_string(&truth, VALUE_TYPE_BOOL));
    EXPECT_STREQ(text.get(), "1");
    EXPECT_EQ(event_utils_value_type_to_string(&truth, 9), nullptr);
}

TEST(ValueTypes, ADoubleIsWrittenAsPrintfWritesIt)
{
    const gdouble numbers[] = {
        0.0,      -0.0,   1.0,     0.1,    1.0000005,      0.0000005,  2.0000005,
        123456.7, -1e-9,  4e12,    9e12,   1e300,          -1e18,      0.5e-6,
        1.5e-6,   2.5e-6, 1 / 3.0, 1e-320, 999999.9999999, G_MAXDOUBLE};
    for (gdouble number : numbers) {
        gchar expected[512];
        g_ascii_formatd(expected, sizeof expected, "%f", number);
        Owned<gchar> text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE));
        EXPECT_STREQ(text.get(), expected);
    }
}

TEST(ValueTypes, TagListsAreComparedAsMultisets)
{
    auto list = [](std::initializer_list<const char *> texts) {
        GList *made = nullptr;
        for (const char *text : texts)
            made = g_list_append(made, const_cast<char *>(text));
        return made;
    };
    GList *aba = list({"a", "b", "a"}), *aab = list({"a", "a", "b"}), *abb = list({"a", "b", "b"});
    EXPECT_TRUE(event_utils_tag_list_is_equal(aba, aab));
    EXPECT_FALSE(event_utils_tag_list_is_equal(abb, aab));
    EXPECT_FALSE(event_utils_tag_list_is_equal(nullptr, aab));
    EXPECT_TRUE(event_utils_tag_list_is_equal(nullptr, nullptr));
    g_list_free(aba);
    g_list_free(aab);
    g_list_free(abb);
}

} // namespace
