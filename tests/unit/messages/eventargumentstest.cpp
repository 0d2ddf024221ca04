// SPDX-License-Identifier: LGPL-2.1-or-later

// Events given wrong arguments: one critical that names function and condition, a result that says
// nothing, and the event as it was. And what the forwarding accessors forward.

#include "support/records.hpp"
#include "unit/messages/criticals.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

TEST(EventArguments, ANullEventIsRefusedByItsOwnFields)
{
    Owned<inspectable> content(inspectable_new(IT_EVENT));
    EXPECT_REFUSAL(event_copy, (nullptr), nullptr, "event_src != NULL");
    EXPECT_REFUSAL(event_get_inspectable, (nullptr), nullptr, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_inspectable, (nullptr, content.get()), "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_user_data, (nullptr, "a", 1), "event != NULL");
    EXPECT_REFUSAL(event_get_user_data, (nullptr), nullptr, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_user_data_string, (nullptr, "a"), "event != NULL");
    EXPECT_REFUSAL(event_get_user_data_string, (nullptr), nullptr, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_timestamp, (nullptr, 1, 2), "event != NULL");
    EXPECT_REFUSAL(event_get_timestamp, (nullptr).tv_sec, 0, "event != NULL");
    EXPECT_VOID_REFUSAL(set_event_time_now, (nullptr), "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_producer_id, (nullptr, 1), "event != NULL");
    EXPECT_REFUSAL(event_get_producer_id, (nullptr), 0u, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_global_id, (nullptr, 1), "event != NULL");
    EXPECT_REFUSAL(event_get_global_id, (nullptr), 0u, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_local_id, (nullptr, 1), "event != NULL");
    EXPECT_REFUSAL(event_get_local_id, (nullptr), 0u, "event != NULL");
    EXPECT_VOID_REFUSAL(event_set_property, (nullptr, TRUE), "event != NULL");
    EXPECT_REFUSAL(event_is_property, (nullptr), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_is_internal, (nullptr), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_is_complete, (nullptr), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_serialize, (nullptr), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_deserialize, (nullptr), nullptr, "array != NULL");
    EXPECT_VOID_REFUSAL(event_print, (nullptr), "event != NULL");
    event_free(nullptr);
}

TEST(EventArguments, ANullEventIsRefusedByItsKeys)
{
    gint value = 0;
    EXPECT_REFUSAL(event_set_value, (nullptr, "k", "v"), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_get_value, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_name_space, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_complex_type_name, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_value_user_string, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_key_nice_name, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_value_nice_name, (nullptr, "k"), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_index, (nullptr, "k"), -1, "event != NULL");
    EXPECT_REFUSAL(event_get_key_count, (nullptr), 0u, "event != NULL");
    EXPECT_REFUSAL(event_get_key_at, (nullptr, 0), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_name_space_at, (nullptr, 0), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_complex_type_name_at, (nullptr, 0), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_value_at, (nullptr, 0), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_type_at, (nullptr, 0), 0u, "event != NULL");
    EXPECT_REFUSAL(event_get_typed_value_at, (nullptr, 0, &value), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_get_typed_value, (nullptr, "k", &value), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_get_tags_at, (nullptr, 0), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_get_tags, (nullptr), nullptr, "event != NULL");
    EXPECT_REFUSAL(event_has_value_at, (nullptr, 0), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_has_tag_at, (nullptr, 0, "t"), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_has_tag, (nullptr, "t"), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_add_tag, (nullptr, "t"), FALSE, "event != NULL");
    EXPECT_REFUSAL(event_add_key_tag, (nullptr, "k", "t"), FALSE, "event != NULL");
}

TEST(EventArguments, EveryOtherPointerIsCheckedToo)
{
    Owned<event> made(event_new());
    event *event = made.get();
    gint value = 0;
    EXPECT_VOID_REFUSAL(event_set_inspectable, (event, nullptr), "inspectable != NULL");
    EXPECT_VOID_REFUSAL(event_set_user_data, (event, nullptr, 0), "user_data != NULL");
    EXPECT_VOID_REFUSAL(event_set_user_data, (event, "a", 0), "size != 0");
    EXPECT_VOID_REFUSAL(event_set_user_data_string, (event, nullptr), "user_data != NULL");
    EXPECT_REFUSAL(event_contains, (event, nullptr), FALSE, "containee != NULL");
    Owned<subscribe_expression> expression(subscribe_expression_new());
    EXPECT_REFUSAL(event_contains, (nullptr, expression.get()), FALSE, "container != NULL");
    EXPECT_REFUSAL(event_set_value, (event, nullptr, "v"), FALSE, "key != NULL");
    EXPECT_REFUSAL(event_set_value, (event, "k", nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(event_get_value, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_name_space, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_complex_type_name, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_value_user_string, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_key_nice_name, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_value_nice_name, (event, nullptr), nullptr, "key != NULL");
    EXPECT_REFUSAL(event_get_index, (event, nullptr), -1, "key != NULL");
    EXPECT_REFUSAL(event_get_typed_value_at, (event, 0, nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(event_get_typed_value, (event, nullptr, &value), FALSE, "key != NULL");
    EXPECT_REFUSAL(event_get_typed_value, (event, "k", nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(event_has_tag_at, (event, 0, nullptr), FALSE, "tag != NULL");
    EXPECT_REFUSAL(event_has_tag, (event, nullptr), FALSE, "tag != NULL");
    EXPECT_REFUSAL(event_add_tag, (event, nullptr), FALSE, "tag != NULL");
    EXPECT_REFUSAL(event_add_key_tag, (event, nullptr, "t"), FALSE, "key != NULL");
    EXPECT_REFUSAL(event_add_key_tag, (event, "k", nullptr), FALSE, "tag != NULL");
    EXPECT_EQ(event_get_key_count(event), 0u);
    EXPECT_EQ(event_get_tags(event), nullptr);
}

using EventArgumentsDeathTest = testing::Test;

TEST_F(EventArgumentsDeathTest, TheInternalFunctionsEndTheProcess)
{
    Owned<event> event(event_new());
    Owned<GArray> array(serialize_create_array());
    guint indx = 0;
    EXPECT_DEATH(event_serialize_internal(nullptr, array.get()),
                 "event_serialize_internal: assertion failed: .event != NULL");
    EXPECT_DEATH(event_serialize_internal(event.get(), nullptr), "array != NULL");
    EXPECT_DEATH(event_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(event_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(event_deserialize(array.get()), "array->len >= \\*indx \\+ size");
}

TEST(EventFields, ANewOneHasNone)
{
    Owned<event> event(event_new());
    EXPECT_EQ(event_get_user_data(event.get()), nullptr);
    EXPECT_EQ(event_get_user_data_string(event.get()), nullptr);
    EXPECT_EQ(event_get_timestamp(event.get()).tv_sec, 0);
    EXPECT_EQ(event_get_timestamp(event.get()).tv_usec, 0);
    EXPECT_EQ(event_get_global_id(event.get()), 0u);
    EXPECT_EQ(event_get_local_id(event.get()), 0u);
    EXPECT_EQ(event_get_producer_id(event.get()), 0u);
    EXPECT_FALSE(event_is_property(event.get()));
    EXPECT_FALSE(event_is_internal(event.get()));
    EXPECT_TRUE(event_is_complete(event.get()));
    EXPECT_EQ(event_get_index(event.get(), "k"), -1);
}

TEST(EventFields, ADeclarationsContentBecomesAnEvents)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key(declaration.get(), "k", VALUE_TYPE_STRING);
    Owned<event> event(event_new());
    event_set_inspectable(event.get(), event_declaration_get_inspectable(declaration.get()));
    declaration.reset();
    EXPECT_TRUE(event_is_internal(event.get()));
    EXPECT_FALSE(event_is_complete(event.get()));
    EXPECT_TRUE(event_set_value(event.get(), "k", "v"));
    event_set_inspectable(event.get(), event_get_inspectable(event.get()));
    EXPECT_STREQ(event_get_value(event.get(), "k"), "v");
}

TEST(EventFields, AccessorsByKeyAndByPositionSayTheSame)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration.get(), "k", "ns");
    event_declaration_set_complex_type_name(declaration.get(), "k", "ct");
    event_declaration_set_nice_names(declaration.get(), "k", "kn", "vn");
    event_declaration_set_value_user_string(declaration.get(), "k", "us");
    Owned<event> made(event_declaration_generate_event(declaration.get()));
    event *event = made.get();
    EXPECT_TRUE(event_add_key_tag(event, "k", "t"));
    EXPECT_TRUE(event_add_key_tag(event, "k", "u"));
    EXPECT_FALSE(event_add_key_tag(event, "missing", "u"));
    EXPECT_TRUE(event_add_tag(event, "w"));
    EXPECT_STREQ(event_get_value(event, "k"), "v");
    EXPECT_STREQ(event_get_name_space(event, "k"), "ns");
    EXPECT_STREQ(event_get_complex_type_name(event, "k"), "ct");
    EXPECT_STREQ(event_get_value_user_string(event, "k"), "us");
    EXPECT_STREQ(event_get_key_nice_name(event, "k"), "kn");
    EXPECT_STREQ(event_get_value_nice_name(event, "k"), "vn");
    EXPECT_EQ(event_get_index(event, "k"), 0);
    EXPECT_EQ(event_get_key_count(event), 1u);
    EXPECT_STREQ(event_get_key_at(event, 0), "k");
    EXPECT_STREQ(event_get_value_at(event, 0), "v");
    EXPECT_STREQ(event_get_name_space_at(event, 0), "ns");
    EXPECT_STREQ(event_get_complex_type_name_at(event, 0), "ct");
    EXPECT_EQ(event_get_type_at(event, 0), 4u);
    EXPECT_TRUE(event_has_value_at(event, 0));
    EXPECT_TRUE(event_has_tag_at(event, 0, "t"));
    EXPECT_FALSE(event_has_tag_at(event, 0, "w"));
    EXPECT_TRUE(event_has_tag(event, "w"));
    EXPECT_THAT(take_strings(event_get_tags_at(event, 0)), ElementsAre("u", "t"));
    EXPECT_THAT(take_strings(event_get_tags(event)), ElementsAre("w"));
    const gchar *value = nullptr;
    EXPECT_TRUE(event_get_typed_value_at(event, 0, &value));
    EXPECT_EQ(value, event_get_value(event, "k")) << "borrowed from the event";
}

TEST(EventFields, APayloadIsCopiedInAndOut)
{
    Owned<event> event(event_new());
    char bytes[] = {'a', '\0', 'b'};
    event_set_user_data(event.get(), bytes, 3);
    bytes[0] = 'x';
    Owned<gchar> copy(static_cast<gchar *>(event_get_user_data(event.get())));
    EXPECT_EQ(std::string(copy.get(), 3), std::string("a\0b", 3));
    event_set_user_data_string(event.get(), "longer than before");
    copy.reset(event_get_user_data_string(event.get()));
    EXPECT_STREQ(copy.get(), "longer than before");
    event_set_user_data_string(event.get(), "");
    copy.reset(event_get_user_data_string(event.get()));
    EXPECT_STREQ(copy.get(), "");
}

TEST(EventFields, ACopyIsDeep)
{
    Owned<event> event(event_new());
    inspectable_add_key_value(event_get_inspectable(event.get()), "k", FALSE, nullptr, TRUE, FALSE);
    event_set_user_data_string(event.get(), "data");
    Owned<struct event> copy(event_copy(event.get()));
    EXPECT_TRUE(event_set_value(copy.get(), "k", "v"));
    event_add_tag(copy.get(), "t");
    event_set_user_data_string(copy.get(), "other");
    EXPECT_FALSE(event_is_complete(event.get()));
    EXPECT_FALSE(event_has_tag(event.get(), "t"));
    Owned<gchar> data(event_get_user_data_string(event.get()));
    EXPECT_STREQ(data.get(), "data");
}

TEST(EventFields, OfAPayloadOfMoreThan65535BytesTheSizeIsReducedButNotTheBytes)
{
    Owned<event> event(event_new());
    std::string data(65536, 'x');
    event_set_user_data(event.get(), data.data(), static_cast<guint32>(data.size()));
    Owned<GArray> bytes(event_serialize(event.get()));
    EXPECT_EQ(bytes->len, 36u + 65536u);
    EXPECT_EQ(bytes_of(bytes.get())[13], 0);
    EXPECT_EQ(bytes_of(bytes.get())[14], 0);
    EXPECT_EQ(bytes_of(bytes.get())[15], 'x');
}

G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace
