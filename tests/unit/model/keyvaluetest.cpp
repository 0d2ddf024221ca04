// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

struct Flags {
    gboolean key_wildcard = FALSE;
    gboolean value_wildcard = FALSE;
    gboolean negated = FALSE;
};

Owned<key_value> make(const char *key, const char *value, Flags flags = {}, const char *space = "")
{
    return Owned<key_value>(key_value_new(key, flags.key_wildcard, space, "", value,
                                          flags.value_wildcard, "", "", "", flags.negated));
}

Flags negated()
{
    return {FALSE, FALSE, TRUE};
}
Flags any_value(gboolean negated = FALSE)
{
    return {FALSE, TRUE, negated};
}
Flags any_key(gboolean negated = FALSE)
{
    return {TRUE, FALSE, negated};
}

std::string weigh(const key_value *container, const key_value *condition)
{
    gboolean excluded = FALSE, matched = FALSE;
    key_value_is_contained(container, condition, &excluded, &matched);
    return std::string(matched ? "matched" : "") + (excluded ? "excluded" : "");
}

std::string print(const key_value *record)
{
    LogCapture log;
    key_value_print(record);
    std::vector<std::string> lines = log.messages();
    return lines.size() == 1 ? lines.front() : "not one line";
}

TEST(KeyValue, ConstructionKeepsNoValueForAWildcardAndNoKeyForAKeyWildcard)
{
    EXPECT_EQ(make("k", "v", {TRUE, TRUE, FALSE}), nullptr);
    EXPECT_EQ(print(make("k", "abc", any_value()).get()), "[k = '*']");
    EXPECT_EQ(print(make("k", nullptr, any_value()).get()), "[k = '*']");
    EXPECT_EQ(print(make(nullptr, "v", any_key()).get()), "[* = 'v']");
    Owned<GArray> bytes(serialize_create_array());
    key_value_serialize(make("k", "v", any_key()).get(), bytes.get());
    EXPECT_EQ(bytes_of(bytes.get()),
              (Bytes{245, 0, 0, 1, 0, 0, 0, 0, 1, 0, 'v', 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0}));
}

TEST(KeyValue, AFlagOfTwoIsNoTrueToTheConstructorButCountsAsOneAfterwards)
{
    auto record = make("k", "v", {FALSE, FALSE, 2});
    EXPECT_EQ(print(record.get()), "[k != 'v']");
    auto wildcard = make("k", "v", {2, FALSE, FALSE});
    EXPECT_EQ(print(wildcard.get()), "[* = 'v']");
}

TEST(KeyValueDeathTest, WhatIsNeededMustBeThere)
{
    EXPECT_DEATH(make(nullptr, "v"), "key != NULL");
    EXPECT_DEATH(make("k", nullptr), "value != NULL");
    EXPECT_DEATH(make(nullptr, nullptr, any_value()), "key != NULL");
    EXPECT_DEATH(make(nullptr, nullptr, any_key()), "value != NULL");
    EXPECT_DEATH(key_value_copy(nullptr), "key_value != NULL");
    EXPECT_DEATH(key_value_is_equal(nullptr, make("k", "v").get()), "key_value1 != NULL");
    EXPECT_DEATH(key_value_is_equal(make("k", "v").get(), nullptr), "key_value2 != NULL");
    EXPECT_DEATH(key_value_deserialize_xml(nullptr), "node != NULL");
}

TEST(KeyValueDeathTest, ANullTextCannotBeWritten)
{
    Owned<key_value> record(key_value_new("k", FALSE, nullptr, "", "v", FALSE, "", "", "", FALSE));
    Owned<GArray> bytes(serialize_create_array());
    EXPECT_DEATH(key_value_serialize(record.get(), bytes.get()), "string != NULL");
}

TEST(KeyValueDeathTest, MalformedBytesEndTheProcess)
{
    guint indx = 0;
    EXPECT_DEATH(key_value_deserialize(array_of({241}).get(), &indx),
                 "type == SERIALIZE_ID_KEYVALUE");
    Bytes both{245, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0};
    EXPECT_DEATH(key_value_deserialize(array_of(both).get(), &indx), "key_value != NULL");
}

TEST(KeyValue, TagsAreAddedOnceAndGivenAsOftenAsTheyCome)
{
    auto record = make("k", "v");
    key_value_add_tag(record.get(), "a");
    key_value_add_tag(record.get(), "a");
    EXPECT_EQ(print(record.get()), "[k = 'v'] {a}");
    key_value_give_tag(record.get(), g_strdup("a"));
    EXPECT_EQ(print(record.get()), "[k = 'v'] {a} {a}");
    Owned<key_value> copy(key_value_copy(record.get()));
    EXPECT_EQ(print(copy.get()), "[k = 'v'] {a}");
    EXPECT_FALSE(key_value_is_equal(record.get(), copy.get()));
}

TEST(KeyValue, ManyTagsAreAddedInLinearTime)
{
    auto record = make("k", "v");
    for (int i = 0; i < 50000; ++i)
        key_value_add_tag(record.get(), std::to_string(i % 25000).c_str());
    key_value_raw *raw = key_value_get_raw(record.get());
    EXPECT_EQ(g_list_length(raw->tags), 25000u);
    key_value_free_raw(raw);
}

TEST(KeyValue, ACopyIsEqualAndKeepsItsOwnTags)
{
    auto record = make("k", "v", negated(), "space");
    key_value_add_tag(record.get(), "a");
    Owned<key_value> copy(key_value_copy(record.get()));
    EXPECT_TRUE(key_value_is_equal(record.get(), copy.get()));
    key_value_add_tag(copy.get(), "b");
    EXPECT_FALSE(key_value_is_equal(record.get(), copy.get()));
    EXPECT_EQ(print(record.get()), "[space:k != 'v'] {a}");
}

TEST(KeyValue, EqualityTellsNullFromEmptyAndIgnoresTheOrderOfTags)
{
    Owned<key_value> with_null(
        key_value_new("k", FALSE, nullptr, "", "v", FALSE, "", "", "", FALSE));
    EXPECT_FALSE(key_value_is_equal(with_null.get(), make("k", "v").get()));
    EXPECT_FALSE(key_value_is_equal(make("k", "v").get(), make("k", "w").get()));
    EXPECT_FALSE(key_value_is_equal(make("k", "v").get(), make("l", "v").get()));
    EXPECT_FALSE(key_value_is_equal(make("k", "v").get(), make("k", "v", negated()).get()));
    auto one = make("k", "v"), other = make("k", "v");
    key_value_add_tag(one.get(), "a");
    key_value_add_tag(one.get(), "b");
    key_value_add_tag(other.get(), "b");
    key_value_add_tag(other.get(), "a");
    EXPECT_TRUE(key_value_is_equal(one.get(), other.get()));
}

TEST(KeyValueContainment, FollowsValueWildcardAndNegation)
{
    auto one = make("k", "1");
    EXPECT_EQ(weigh(one.get(), make("k", "1").get()), "matched");
    EXPECT_EQ(weigh(one.get(), make("k", "2").get()), "excluded");
    EXPECT_EQ(weigh(one.get(), make("k", "1", negated()).get()), "excluded");
    EXPECT_EQ(weigh(one.get(), make("k", "2", negated()).get()), "");
    EXPECT_EQ(weigh(one.get(), make("k", "", any_value()).get()), "matched");
    EXPECT_EQ(weigh(one.get(), make("k", "", any_value(TRUE)).get()), "excluded");
    EXPECT_EQ(weigh(make("k", "", any_value()).get(), make("k", "1").get()), "matched");
    EXPECT_EQ(weigh(make("k", "", any_value()).get(), make("k", "1", negated()).get()), "");
    EXPECT_EQ(weigh(make("k", "1", negated()).get(), make("k", "1").get()), "excluded");
    EXPECT_EQ(weigh(make("k", "1", negated()).get(), make("k", "1", negated()).get()), "");
    EXPECT_EQ(weigh(nullptr, make("k", "1", negated()).get()), "");
    EXPECT_EQ(weigh(nullptr, make("k", "1").get()), "excluded");
}

TEST(KeyValueContainment, ANameSpaceIsTestedBeforeTheValuesAndOnlyWhenTheConditionHasOne)
{
    EXPECT_EQ(weigh(make("k", "1", {}, "b").get(), make("k", "1", {}, "a").get()), "excluded");
    EXPECT_EQ(weigh(make("k", "1", negated(), "b").get(), make("k", "1", negated(), "a").get()),
              "excluded");
    EXPECT_EQ(weigh(make("k", "1", {}, "b").get(), make("k", "1").get()), "matched");
    EXPECT_EQ(weigh(make("k", "1", {}, "a").get(), make("k", "1", {}, "a").get()), "matched");
}

TEST(KeyValueContainment, MarksAreOnlyEverSet)
{
    gboolean excluded = TRUE, matched = TRUE;
    key_value_is_contained(nullptr, make("k", "1", negated()).get(), &excluded, &matched);
    EXPECT_TRUE(excluded && matched);
}

TEST(KeyValueContainmentDeathTest, KeyWildcardsHaveNoPlaceHere)
{
    EXPECT_DEATH(weigh(make(nullptr, "v", any_key()).get(), make("k", "1").get()),
                 "key_value_container->key_wildcard == FALSE && "
                 "key_value_containee->key_wildcard == FALSE");
}

TEST(KeyValue, ThePlainViewHasNullForWhatIsNotThereAndReversedTags)
{
    auto record = make("k", "v", {}, "ns");
    key_value_add_tag(record.get(), "a");
    key_value_add_tag(record.get(), "b");
    key_value_raw *raw = key_value_get_raw(record.get());
    EXPECT_STREQ(raw->key, "k");
    EXPECT_STREQ(raw->value, "v");
    EXPECT_STREQ(raw->name_space, "ns");
    EXPECT_EQ(raw->complex_type_name, nullptr);
    EXPECT_STREQ(static_cast<char *>(raw->tags->data), "b");
    EXPECT_STREQ(static_cast<char *>(raw->tags->next->data), "a");
    key_value_free_raw(raw);
    raw = key_value_get_raw(make(nullptr, "v", any_key()).get());
    EXPECT_EQ(raw->key, nullptr);
    key_value_free_raw(raw);
    raw = key_value_get_raw(make("k", nullptr, any_value()).get());
    EXPECT_EQ(raw->value, nullptr);
    key_value_free_raw(raw);
    key_value_free_raw(nullptr);
}

TEST(KeyValue, PrintsEverythingItHasInOneLine)
{
    Owned<key_value> record(
        key_value_new("state", FALSE, "ns1", "Key", "on", FALSE, "Value", "u", "Type", TRUE));
    key_value_add_tag(record.get(), "x");
    EXPECT_EQ(print(record.get()), "[ns1:state (Key) {Type} != 'on' (Value)] {x}");
}

TEST(KeyValue, BytesReadBackAsTheyWereAndASettableOneForgetsThatItWas)
{
    Owned<key_value> record(
        key_value_new("state", FALSE, "ns1", "Key", "on", FALSE, "Value", "u", "Type", TRUE));
    key_value_give_tag(record.get(), g_strdup("x"));
    key_value_give_tag(record.get(), g_strdup("x"));
    Owned<GArray> bytes(serialize_create_array());
    key_value_serialize(record.get(), bytes.get());
    guint indx = 0;
    Owned<key_value> read(key_value_deserialize(bytes.get(), &indx));
    EXPECT_EQ(indx, bytes->len);
    EXPECT_TRUE(key_value_is_equal(record.get(), read.get()));
}

} // namespace
