// SPDX-License-Identifier: LGPL-2.1-or-later

// Events: their fields, values, stamp, bytes and print.

#include "support/logcapture.hpp"
#include "support/records.hpp"
#include "unit/messages/sampledeclaration.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

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

} // namespace
