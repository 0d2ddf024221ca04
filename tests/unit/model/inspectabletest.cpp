// SPDX-License-Identifier: LGPL-2.1-or-later

// Building, editing and reading inspectables.

#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr guint32 all_types[] = {IT_EVENT_DECLARATION, IT_EVENT, IT_SUBSCRIBE_EXPRESSION,
                                 IT_PROPERTY_STATE};

Owned<inspectable> make(guint32 type)
{
    return Owned<inspectable>(inspectable_new(type));
}

void add(inspectable *inspect, const char *key, const char *value)
{
    EXPECT_TRUE(inspectable_add_key_value(inspect, key, FALSE, value, value ? FALSE : TRUE, FALSE));
}

std::vector<std::string> lines_of(const inspectable *inspect)
{
    LogCapture log;
    inspectable_print(inspect);
    return log.messages();
}

TEST(Inspectable, ANewOneIsEmpty)
{
    for (guint32 type : all_types) {
        auto made = make(type);
        EXPECT_FALSE(inspectable_get_internal(made.get()));
        EXPECT_EQ(inspectable_get_tags(made.get()), nullptr);
        EXPECT_EQ(inspectable_get_value(made.get(), "k"), nullptr);
        EXPECT_EQ(inspectable_get_key_value(made.get(), "k"), nullptr);
        Owned<GArray> bytes(serialize_create_array());
        inspectable_serialize_internal(made.get(), bytes.get());
        EXPECT_EQ(bytes_of(bytes.get()),
                  (Bytes{0xF2, 1, 0, static_cast<int>(type), 0, 0xF3, 0, 0, 0, 0, 0, 0}));
    }
    inspectable_free(nullptr);
}

TEST(Inspectable, OrBeginsAnAlternativeInWhichKeysAreLookedUpFromThenOn)
{
    auto expression = make(IT_SUBSCRIBE_EXPRESSION);
    add(expression.get(), "a", "1");
    EXPECT_STREQ(inspectable_get_value(expression.get(), "a"), "1");
    EXPECT_TRUE(inspectable_or(expression.get()));
    EXPECT_EQ(inspectable_get_value(expression.get(), "a"), nullptr);
    add(expression.get(), "b", "2");
    EXPECT_THAT(lines_of(expression.get()), ElementsAre("[a = '1']", "OR", "[b = '2']"));
    EXPECT_FALSE(inspectable_set_name_space(expression.get(), "a", "n"));
    EXPECT_TRUE(inspectable_set_name_space(expression.get(), "b", "n"));
}

TEST(Inspectable, OnlyExpressionsHaveAlternatives)
{
    for (guint32 type : {IT_EVENT, IT_EVENT_DECLARATION, IT_PROPERTY_STATE}) {
        LogCapture log;
        auto made = make(type);
        add(made.get(), "a", "1");
        EXPECT_FALSE(inspectable_or(made.get()));
        EXPECT_THAT(log.warnings(),
                    ElementsAre("Only subscribe expressions support the OR statement."));
        EXPECT_STREQ(inspectable_get_value(made.get(), "a"), "1");
    }
}

TEST(Inspectable, ConditionsOnOneKeyOrOfOneValueShareABucket)
{
    auto expression = make(IT_SUBSCRIBE_EXPRESSION);
    add(expression.get(), "a", "1");
    add(expression.get(), "a", "2");
    inspectable_add_key_value(expression.get(), nullptr, TRUE, "x", FALSE, FALSE);
    inspectable_add_key_value(expression.get(), "ignored", TRUE, "x", FALSE, TRUE);
    EXPECT_THAT(lines_of(expression.get()),
                ElementsAre("[a = '1']", "[a = '2']", "[* = 'x']", "[* != 'x']"));
    EXPECT_STREQ(inspectable_get_value(expression.get(), "a"), "1") << "the first of the bucket";
    EXPECT_EQ(inspectable_get_value(expression.get(), ""), nullptr);
    EXPECT_EQ(inspectable_get_value(expression.get(), "ignored"), nullptr);

    Owned<GArray> bytes(serialize_create_array());
    inspectable_serialize_internal(expression.get(), bytes.get());
    Bytes written = bytes_of(bytes.get());
    Bytes head(written.begin(), written.begin() + 11);
    EXPECT_EQ(head, (Bytes{0xF2, 1, 0, 2, 0, 0xF3, 1, 0, 0xF4, 2, 0}));
}

TEST(Inspectable, ADeclarationKeepsTheLatestOfAKey)
{
    auto declaration = make(IT_EVENT_DECLARATION);
    add(declaration.get(), "a", "1");
    inspectable_add_key_tag(declaration.get(), "a", "t");
    inspectable_set_name_space(declaration.get(), "a", "n");
    add(declaration.get(), "b", "2");
    add(declaration.get(), "a", "3");
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "a"), "3");
    EXPECT_STREQ(inspectable_get_name_space(declaration.get(), "a"), "");
    EXPECT_FALSE(inspectable_has_keyvalue_with_tag(declaration.get(), "t"));
    EXPECT_EQ(lines_of(declaration.get()).size(), 2u);
}

TEST(Inspectable, OnlyKeysThatWereLeftOpenAreFilled)
{
    for (guint32 type : {IT_EVENT, IT_EVENT_DECLARATION}) {
        auto made = make(type);
        add(made.get(), "fixed", "1");
        add(made.get(), "open", nullptr);
        EXPECT_FALSE(inspectable_set_value(made.get(), "fixed", "2"));
        EXPECT_FALSE(inspectable_set_value_as_string(made.get(), "fixed", "2"));
        EXPECT_FALSE(inspectable_set_value(made.get(), "missing", "2"));
        EXPECT_FALSE(inspectable_set_value_as_string(made.get(), "missing", "2"));
        EXPECT_STREQ(inspectable_get_value(made.get(), "fixed"), "1");
        EXPECT_STREQ(inspectable_get_value(made.get(), "open"), "");
        EXPECT_TRUE(inspectable_set_value(made.get(), "open", "2"));
        EXPECT_STREQ(inspectable_get_value(made.get(), "open"), "2");
        EXPECT_TRUE(inspectable_set_value_as_string(made.get(), "open", "3")) << "once more";
        EXPECT_STREQ(inspectable_get_value(made.get(), "open"), "3");
        EXPECT_TRUE(inspectable_is_complete(made.get()));
    }
}

TEST(Inspectable, AValueMaySetItselfAnew)
{
    auto event = make(IT_EVENT);
    add(event.get(), "k", nullptr);
    inspectable_set_value_as_string(event.get(), "k", "a text that is too long to be held inline");
    EXPECT_TRUE(inspectable_set_value(event.get(), "k", inspectable_get_value(event.get(), "k")));
    EXPECT_STREQ(inspectable_get_value(event.get(), "k"),
                 "a text that is too long to be held inline");
}

TEST(Inspectable, TypedValuesAreStoredAsTheirText)
{
    auto declaration = make(IT_EVENT_DECLARATION);
    gint number = -7;
    gboolean truth = 3;
    gdouble fraction = 0.5;
    auto stored = [&](guint32 type, gconstpointer value) -> std::string {
        add(declaration.get(), "k", nullptr);
        EXPECT_TRUE(inspectable_set_value_type(declaration.get(), "k", type));
        EXPECT_TRUE(inspectable_set_value(declaration.get(), "k", value));
        return inspectable_get_value(declaration.get(), "k");
    };
    EXPECT_EQ(stored(VALUE_TYPE_INT, &number), "-7");
    EXPECT_EQ(stored(VALUE_TYPE_BOOL, &truth), "1");
    EXPECT_EQ(stored(VALUE_TYPE_DOUBLE, &fraction), "0.500000");
    EXPECT_EQ(stored(VALUE_TYPE_STRING, "text"), "text");
    add(declaration.get(), "k", nullptr);
    inspectable_set_value_type(declaration.get(), "k", VALUE_TYPE_INT);
    EXPECT_TRUE(inspectable_set_value_as_string(declaration.get(), "k", "no number"));
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "k"), "no number");
}

TEST(Inspectable, AttributesAreReplacedAndNullMeansNoneOrLeavesAsItIs)
{
    auto declaration = make(IT_EVENT_DECLARATION);
    add(declaration.get(), "k", "v");
    inspectable *inspect = declaration.get();
    EXPECT_TRUE(inspectable_set_name_space(inspect, "k", "ns"));
    EXPECT_TRUE(inspectable_set_complex_type_name(inspect, "k", "ct"));
    EXPECT_TRUE(inspectable_set_value_user_string(inspect, "k", "us"));
    EXPECT_TRUE(inspectable_set_nice_names(inspect, "k", "kn", "vn"));
    EXPECT_TRUE(inspectable_set_nice_names(inspect, "k", nullptr, "vn2"));
    EXPECT_TRUE(inspectable_set_nice_names(inspect, "k", nullptr, nullptr));
    EXPECT_STREQ(inspectable_get_name_space(inspect, "k"), "ns");
    EXPECT_STREQ(inspectable_get_complex_type_name(inspect, "k"), "ct");
    EXPECT_STREQ(inspectable_get_value_user_string(inspect, "k"), "us");
    EXPECT_THAT(lines_of(inspect), ElementsAre("[ns:k (kn) {ct} = 'v' (vn2)]"));

    Owned<inspectable> event(inspectable_copy(inspect, IT_EVENT));
    EXPECT_STREQ(inspectable_get_key_nice_name(event.get(), "k"), "kn");
    EXPECT_STREQ(inspectable_get_value_nice_name(event.get(), "k"), "vn2");

    EXPECT_TRUE(inspectable_set_name_space(inspect, "k", nullptr));
    EXPECT_TRUE(inspectable_set_complex_type_name(inspect, "k", nullptr));
    EXPECT_STREQ(inspectable_get_name_space(inspect, "k"), "");
    EXPECT_STREQ(inspectable_get_complex_type_name(inspect, "k"), "");
    EXPECT_STREQ(inspectable_get_name_space(event.get(), "k"), "ns") << "a copy of its own";
}

TEST(Inspectable, AMissingKeyIsNothingOrFalse)
{
    auto declaration = make(IT_EVENT_DECLARATION), event = make(IT_EVENT);
    inspectable *inspect = declaration.get();
    EXPECT_FALSE(inspectable_set_name_space(inspect, "k", "x"));
    EXPECT_FALSE(inspectable_set_complex_type_name(inspect, "k", "x"));
    EXPECT_FALSE(inspectable_set_value_user_string(inspect, "k", "x"));
    EXPECT_FALSE(inspectable_set_nice_names(inspect, "k", "x", "x"));
    EXPECT_FALSE(inspectable_add_key_tag(inspect, "k", "x"));
    EXPECT_EQ(inspectable_get_name_space(inspect, "k"), nullptr);
    EXPECT_EQ(inspectable_get_complex_type_name(inspect, "k"), nullptr);
    EXPECT_EQ(inspectable_get_value_user_string(inspect, "k"), nullptr);
    EXPECT_EQ(inspectable_get_key_nice_name(event.get(), "k"), nullptr);
    EXPECT_EQ(inspectable_get_value_nice_name(event.get(), "k"), nullptr);
}

TEST(Inspectable, TagsOfTheObjectMayRepeatAndComeBackReversed)
{
    auto event = make(IT_EVENT);
    for (const char *tag : {"a", "b", "a"})
        EXPECT_TRUE(inspectable_add_tag(event.get(), tag));
    EXPECT_THAT(take_strings(inspectable_get_tags(event.get())), ElementsAre("a", "b", "a"));
    inspectable_add_tag(event.get(), "c");
    EXPECT_THAT(take_strings(inspectable_get_tags(event.get())), ElementsAre("c", "a", "b", "a"));
    EXPECT_TRUE(inspectable_has_tag(event.get(), "b"));
    EXPECT_FALSE(inspectable_has_tag(event.get(), "B"));
}

TEST(Inspectable, PositionsShowTheKeys)
{
    auto event = make(IT_EVENT);
    EXPECT_EQ(inspectable_get_index(event.get(), "a"), -1);
    EXPECT_EQ(inspectable_get_key_count(event.get()), 0u);
    add(event.get(), "a", "1");
    add(event.get(), "b", nullptr);
    inspectable_add_key_tag(event.get(), "b", "s");
    inspectable_add_key_tag(event.get(), "b", "t");
    inspectable_add_key_tag(event.get(), "b", "s");
    EXPECT_EQ(inspectable_get_key_count(event.get()), 2u);
    auto at = [&](const char *key) {
        return static_cast<guint>(inspectable_get_index(event.get(), key));
    };
    EXPECT_STREQ(inspectable_get_key_at(event.get(), at("a")), "a");
    EXPECT_STREQ(inspectable_get_value_at(event.get(), at("a")), "1");
    EXPECT_STREQ(inspectable_get_value_at(event.get(), at("b")), "");
    EXPECT_STREQ(inspectable_get_name_space_at(event.get(), at("a")), "");
    EXPECT_STREQ(inspectable_get_complex_type_name_at(event.get(), at("a")), "");
    EXPECT_EQ(inspectable_get_type_at(event.get(), at("a")), 4u);
    EXPECT_TRUE(inspectable_has_value_at(event.get(), at("a")));
    EXPECT_FALSE(inspectable_has_value_at(event.get(), at("b")));
    inspectable_set_value(event.get(), "b", "");
    EXPECT_TRUE(inspectable_has_value_at(event.get(), at("b"))) << "an empty text is a value";
    EXPECT_THAT(take_strings(inspectable_get_tags_at(event.get(), at("b"))), ElementsAre("t", "s"));
    EXPECT_THAT(take_strings(inspectable_get_tags_at(event.get(), at("a"))), IsEmpty());
    EXPECT_TRUE(inspectable_has_tag_at(event.get(), at("b"), "s"));
    EXPECT_FALSE(inspectable_has_tag_at(event.get(), at("a"), "s"));
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(event.get(), "t"));
}

TEST(Inspectable, PastTheEndThereIsNothing)
{
    auto event = make(IT_EVENT);
    add(event.get(), "a", "1");
    gint number = 7;
    for (guint position : {1u, 2u, G_MAXUINT32}) {
        EXPECT_EQ(inspectable_get_key_at(event.get(), position), nullptr);
        EXPECT_EQ(inspectable_get_value_at(event.get(), position), nullptr);
        EXPECT_EQ(inspectable_get_name_space_at(event.get(), position), nullptr);
        EXPECT_EQ(inspectable_get_complex_type_name_at(event.get(), position), nullptr);
        EXPECT_EQ(inspectable_get_tags_at(event.get(), position), nullptr);
        EXPECT_FALSE(inspectable_has_tag_at(event.get(), position, "t"));
        EXPECT_FALSE(inspectable_has_value_at(event.get(), position));
        EXPECT_EQ(inspectable_get_type_at(event.get(), position), 0u);
        EXPECT_FALSE(inspectable_get_typed_value_at(event.get(), position, &number));
    }
    EXPECT_EQ(number, 7);
}

TEST(Inspectable, APropertyStateIsReadByPositionToo)
{
    auto state = make(IT_PROPERTY_STATE);
    add(state.get(), "a", "1");
    EXPECT_TRUE(inspectable_set_name_space(state.get(), "a", "n"));
    EXPECT_TRUE(inspectable_set_complex_type_name(state.get(), "a", "c"));
    EXPECT_TRUE(inspectable_add_key_tag(state.get(), "a", "t"));
    EXPECT_EQ(inspectable_get_key_count(state.get()), 1u);
    EXPECT_STREQ(inspectable_get_key_at(state.get(), 0), "a");
    EXPECT_STREQ(inspectable_get_value_at(state.get(), 0), "1");
    EXPECT_STREQ(inspectable_get_name_space_at(state.get(), 0), "n");
    EXPECT_STREQ(inspectable_get_complex_type_name_at(state.get(), 0), "c");
    EXPECT_TRUE(inspectable_has_tag_at(state.get(), 0, "t"));
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(state.get(), "t"));
}

TEST(Inspectable, ManyKeysAreAddedFoundAndCopiedInLinearTime)
{
    auto event = make(IT_EVENT);
    constexpr int count = 20000;
    for (int i = 0; i < count; ++i)
        add(event.get(), std::to_string(i).c_str(), std::to_string(i).c_str());
    Owned<inspectable> copy(inspectable_copy(event.get(), IT_EVENT));
    EXPECT_EQ(inspectable_get_key_count(copy.get()), static_cast<guint>(count));
    EXPECT_STREQ(inspectable_get_value(copy.get(), "19999"), "19999");
    EXPECT_TRUE(inspectable_is_equal(event.get(), copy.get()));
}

TEST(Inspectable, ACopyAsAnEventKeepsWhatMayBeFilled)
{
    auto declaration = make(IT_EVENT_DECLARATION);
    add(declaration.get(), "open", nullptr);
    add(declaration.get(), "filled", nullptr);
    inspectable_set_value(declaration.get(), "filled", "1");
    inspectable_set_internal(declaration.get(), TRUE);
    inspectable_add_tag(declaration.get(), "t");
    Owned<inspectable> event(inspectable_copy(declaration.get(), IT_EVENT));
    EXPECT_TRUE(inspectable_get_internal(event.get()));
    EXPECT_TRUE(inspectable_has_tag(event.get(), "t"));
    EXPECT_FALSE(inspectable_is_complete(event.get()));
    EXPECT_TRUE(inspectable_set_value(event.get(), "open", "2"));
    EXPECT_TRUE(inspectable_set_value(event.get(), "filled", "3"));
    EXPECT_TRUE(inspectable_is_complete(event.get()));
    EXPECT_FALSE(inspectable_is_complete(declaration.get()));
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "filled"), "1");
}

TEST(Inspectable, AnExpressionCopiedAsAnEventHasPositions)
{
    auto expression = make(IT_SUBSCRIBE_EXPRESSION);
    add(expression.get(), "a", "1");
    inspectable_or(expression.get());
    add(expression.get(), "b", "2");
    Owned<inspectable> event(inspectable_copy(expression.get(), IT_EVENT));
    EXPECT_EQ(inspectable_get_key_count(event.get()), 1u);
    EXPECT_STREQ(inspectable_get_key_at(event.get(), 0), "b") << "the last one is the current one";
}

using InspectableDeathTest = testing::Test;

TEST_F(InspectableDeathTest, NullEndsTheProcess)
{
    auto event = make(IT_EVENT);
    EXPECT_DEATH(inspectable_copy(nullptr, IT_EVENT), "inspectable_copy: .*inspect != NULL");
    EXPECT_DEATH(inspectable_or(nullptr), "inspect != NULL");
    EXPECT_DEATH(inspectable_add_key_value(nullptr, "a", FALSE, "1", FALSE, FALSE),
                 "inspect != NULL");
    EXPECT_DEATH(inspectable_get_value(nullptr, "a"), "inspect != NULL");
    EXPECT_DEATH(inspectable_get_value(event.get(), nullptr), "key != NULL");
    EXPECT_DEATH(inspectable_set_value(event.get(), nullptr, "x"), "key != NULL");
    EXPECT_DEATH(inspectable_add_tag(event.get(), nullptr), "tag != NULL");
    EXPECT_DEATH(inspectable_has_tag(nullptr, "t"), "inspect != NULL");
    EXPECT_DEATH(inspectable_get_tags(nullptr), "inspect != NULL");
    EXPECT_DEATH(inspectable_set_internal(nullptr, TRUE), "inspect != NULL");
    EXPECT_DEATH(inspectable_is_equal(nullptr, event.get()), "inspect1 != NULL");
    EXPECT_DEATH(inspectable_is_equal(event.get(), nullptr), "inspect2 != NULL");
    EXPECT_DEATH(inspectable_print(nullptr), "inspect != NULL");
    EXPECT_DEATH(inspectable_get_raw(nullptr), "inspect != NULL");
    EXPECT_DEATH(inspectable_serialize_xml(nullptr), "insp != NULL");
}

TEST_F(InspectableDeathTest, AnUnknownTypeEndsTheProcess)
{
    auto event = make(IT_EVENT);
    EXPECT_DEATH(inspectable_new(4), "type == IT_EVENT_DECLARATION");
    EXPECT_DEATH(inspectable_copy(event.get(), 4), "type == IT_EVENT_DECLARATION");
}

TEST_F(InspectableDeathTest, WhatCannotBeAddedEndsTheProcess)
{
    auto event = make(IT_EVENT), expression = make(IT_SUBSCRIBE_EXPRESSION);
    auto state = make(IT_PROPERTY_STATE);
    add(event.get(), "a", "1");
    add(state.get(), "a", "1");
    EXPECT_DEATH(add(event.get(), "a", "2"), "inspectable_get_value\\(inspect, key\\) == NULL");
    EXPECT_DEATH(add(state.get(), "a", "2"), "inspectable_get_value\\(inspect, key\\) == NULL");
    EXPECT_DEATH(inspectable_add_key_value(event.get(), nullptr, TRUE, "1", FALSE, FALSE),
                 "inspectable_add_key_value: .*key_wildcard == FALSE");
    EXPECT_DEATH(inspectable_add_key_value(expression.get(), "a", TRUE, "1", TRUE, FALSE),
                 "key_wildcard == FALSE \\|\\| value_wildcard == FALSE");
    EXPECT_DEATH(inspectable_add_key_value(expression.get(), nullptr, FALSE, "1", FALSE, FALSE),
                 "key != NULL \\|\\| key_wildcard == TRUE");
    EXPECT_DEATH(inspectable_add_key_value(expression.get(), "a", FALSE, nullptr, FALSE, FALSE),
                 "value != NULL \\|\\| value_wildcard == TRUE");
}

TEST_F(InspectableDeathTest, WhatATypeDoesNotAllowEndsTheProcess)
{
    auto event = make(IT_EVENT), expression = make(IT_SUBSCRIBE_EXPRESSION);
    auto state = make(IT_PROPERTY_STATE), declaration = make(IT_EVENT_DECLARATION);
    gint number;
    EXPECT_DEATH(inspectable_set_value(state.get(), "a", "1"), "inspect->type == IT_EVENT");
    EXPECT_DEATH(inspectable_set_value_as_string(expression.get(), "a", "1"), "inspect->type");
    EXPECT_DEATH(inspectable_set_value_user_string(event.get(), "a", "1"), "inspect->type");
    EXPECT_DEATH(inspectable_set_nice_names(event.get(), "a", "1", "1"), "inspect->type");
    EXPECT_DEATH(inspectable_set_name_space(event.get(), "a", "1"), "inspect->type");
    EXPECT_DEATH(inspectable_set_complex_type_name(event.get(), "a", "1"), "inspect->type");
    EXPECT_DEATH(inspectable_set_value_type(event.get(), "a", 1), "inspect->type");
    EXPECT_DEATH(inspectable_add_key_tag(expression.get(), "a", "t"), "inspect->type");
    EXPECT_DEATH(inspectable_add_tag(state.get(), "t"), "inspect->type");
    EXPECT_DEATH(inspectable_add_tag(expression.get(), "t"), "inspect->type");
    EXPECT_DEATH(inspectable_get_key_nice_name(declaration.get(), "a"), "inspect->type");
    EXPECT_DEATH(inspectable_get_value_nice_name(state.get(), "a"), "inspect->type");
    EXPECT_DEATH(inspectable_get_index(declaration.get(), "a"), "inspect->type");
    EXPECT_DEATH(inspectable_get_key_count(declaration.get()), "inspect->type");
    EXPECT_DEATH(inspectable_get_key_at(expression.get(), 0), "inspect->type");
    EXPECT_DEATH(inspectable_has_value_at(state.get(), 0), "inspect->type");
    EXPECT_DEATH(inspectable_get_type_at(state.get(), 0), "inspect->type");
    EXPECT_DEATH(inspectable_get_typed_value_at(state.get(), 0, &number), "inspect->type");
    EXPECT_DEATH(inspectable_has_keyvalue_with_tag(expression.get(), "t"), "inspect->type");
}

TEST_F(InspectableDeathTest, AValueTypeIsOneOfFourAndItsKeyIsThere)
{
    auto declaration = make(IT_EVENT_DECLARATION);
    add(declaration.get(), "a", "1");
    EXPECT_DEATH(inspectable_set_value_type(declaration.get(), "a", 0), "value_type");
    EXPECT_DEATH(inspectable_set_value_type(declaration.get(), "a", 5), "value_type");
    EXPECT_DEATH(inspectable_set_value_type(declaration.get(), "b", 1), "key_value != NULL");
}

} // namespace
