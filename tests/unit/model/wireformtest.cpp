// SPDX-License-Identifier: LGPL-2.1-or-later

// The bytes of key-values and inspectables, written out by hand.

#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

Bytes operator+(Bytes one, const Bytes &other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

Bytes text(const std::string &text)
{
    Bytes bytes{static_cast<int>(text.size() & 0xFF), static_cast<int>(text.size() >> 8)};
    for (char character : text)
        bytes.push_back(static_cast<guint8>(character));
    return bytes;
}

// A key-value with nothing but key, value and flags.
Bytes key_value_bytes(const std::string &key, const std::string &value, int key_wildcard = 0,
                      int value_wildcard = 0, int negated = 0)
{
    return Bytes{0xF5} + text(key) + Bytes{key_wildcard, 0, 0, 0, 0} + text(value) +
           Bytes{value_wildcard, 0, 0, 0, 0, 0, 0, negated, 4, 0, 0};
}

Bytes written(const inspectable *inspect)
{
    Owned<GArray> bytes(serialize_create_array());
    inspectable_serialize_internal(inspect, bytes.get());
    return bytes_of(bytes.get());
}

Owned<inspectable> read(const Bytes &bytes)
{
    guint indx = 0;
    Owned<GArray> array = array_of(bytes);
    Owned<inspectable> inspect(inspectable_deserialize_internal(array.get(), &indx));
    EXPECT_EQ(indx, array->len);
    return inspect;
}

TEST(WireForm, AKeyValueHasEachFieldInItsPlace)
{
    Owned<key_value> record(key_value_new("key", FALSE, "space", "key name", "value", FALSE,
                                          "value name", "user", "complex", TRUE));
    key_value_add_tag(record.get(), "t");
    key_value_add_tag(record.get(), "uv");
    Owned<GArray> bytes(serialize_create_array());
    key_value_serialize(record.get(), bytes.get());
    Bytes expected = Bytes{0xF5} + text("key") + Bytes{0} + text("space") + text("key name") +
                     text("value") + Bytes{0} + text("value name") + text("user") +
                     text("complex") + Bytes{1, 4, 2, 0} + text("t") + text("uv");
    EXPECT_EQ(bytes_of(bytes.get()), expected);
}

TEST(WireForm, AnExpressionHasItsAlternativesOneAfterTheOther)
{
    Owned<inspectable> expression(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
    inspectable *inspect = expression.get();
    inspectable_add_key_value(inspect, "a", FALSE, "1", FALSE, FALSE);
    inspectable_add_key_value(inspect, "a", FALSE, "2", FALSE, TRUE);
    inspectable_or(inspect);
    inspectable_add_key_value(inspect, nullptr, TRUE, "x", FALSE, FALSE);
    Bytes expected = Bytes{0xF2, 2, 0, 2, 0} + Bytes{0xF3, 1, 0, 0xF4, 2, 0} +
                     key_value_bytes("a", "1") + key_value_bytes("a", "2", 0, 0, 1) + Bytes{0, 0} +
                     Bytes{0xF3, 0, 0, 1, 0, 0xF4, 1, 0} + key_value_bytes("", "x", 1) +
                     Bytes{0, 0};
    EXPECT_EQ(written(inspect), expected);

    Owned<inspectable> again = read(expected);
    EXPECT_TRUE(inspectable_is_equal(again.get(), inspect));
    EXPECT_EQ(inspectable_get_value(again.get(), "a"), nullptr) << "the second one is current";
    inspectable_add_key_value(again.get(), "b", FALSE, "3", FALSE, FALSE);
    EXPECT_STREQ(inspectable_get_value(again.get(), "b"), "3");
    LogCapture log;
    inspectable_print(again.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("[a = '1']", "[a != '2']", "OR", "[b = '3']", "[* = 'x']"));
}

TEST(WireForm, TagsOfTheObjectComeLastAndMayRepeat)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    inspectable_set_internal(event.get(), TRUE);
    inspectable_add_tag(event.get(), "t");
    inspectable_add_tag(event.get(), "t");
    Bytes expected = Bytes{0xF2, 1, 0, 1, 1, 0xF3, 0, 0, 0, 0, 2, 0} + text("t") + text("t");
    EXPECT_EQ(written(event.get()), expected);
    EXPECT_EQ(written(read(expected).get()), expected);
}

TEST(WireForm, TheSameObjectIsAlwaysWrittenTheSameWay)
{
    auto build = [] {
        Owned<inspectable> event(inspectable_new(IT_EVENT));
        for (int i = 0; i < 40; ++i)
            inspectable_add_key_value(event.get(), std::to_string(i * 7919).c_str(), FALSE, "v",
                                      FALSE, FALSE);
        return event;
    };
    auto one = build();
    Bytes bytes = written(one.get());
    EXPECT_EQ(written(one.get()), bytes);
    EXPECT_EQ(written(build().get()), bytes);
    EXPECT_EQ(written(read(bytes).get()), bytes);
}

TEST(WireForm, SeveralRecordsAreReadWithOneIndex)
{
    Owned<GArray> bytes(serialize_create_array());
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    serialize_8bit(bytes.get(), 7);
    inspectable_serialize_internal(event.get(), bytes.get());
    inspectable_add_tag(event.get(), "t");
    inspectable_serialize_internal(event.get(), bytes.get());
    guint indx = 1;
    Owned<inspectable> first(inspectable_deserialize_internal(bytes.get(), &indx));
    EXPECT_EQ(indx, 13u);
    Owned<inspectable> second(inspectable_deserialize_internal(bytes.get(), &indx));
    EXPECT_EQ(indx, bytes->len);
    EXPECT_FALSE(inspectable_has_tag(first.get(), "t"));
    EXPECT_TRUE(inspectable_has_tag(second.get(), "t"));
}

TEST(WireForm, WhatWasReadIsFilledWhereItWasOpen)
{
    Bytes bytes = Bytes{0xF2, 1, 0, 1, 0, 0xF3, 2, 0, 0xF4, 1, 0} + key_value_bytes("a", "1") +
                  Bytes{0xF4, 1, 0} + key_value_bytes("b", "", 0, 1) + Bytes{0, 0, 0, 0};
    Owned<inspectable> event = read(bytes);
    EXPECT_FALSE(inspectable_is_complete(event.get()));
    EXPECT_FALSE(inspectable_set_value(event.get(), "a", "2"));
    EXPECT_TRUE(inspectable_set_value(event.get(), "b", "2"));
    EXPECT_TRUE(inspectable_is_complete(event.get()));
    // Once written filled, nothing says that it ever was open.
    Owned<inspectable> again = read(written(event.get()));
    EXPECT_FALSE(inspectable_set_value(again.get(), "b", "3"));
    EXPECT_STREQ(inspectable_get_value(again.get(), "b"), "2");
}

TEST(WireForm, AWildcardForgetsWhatStoodInItsPlace)
{
    Bytes bytes = Bytes{0xF2, 1, 0, 2, 0, 0xF3, 1, 0, 0xF4, 1, 0} +
                  key_value_bytes("b", "left over", 0, 1) + Bytes{1, 0, 0xF4, 1, 0} +
                  key_value_bytes("left over", "x", 1) + Bytes{0, 0};
    Owned<inspectable> expression = read(bytes);
    EXPECT_STREQ(inspectable_get_value(expression.get(), "b"), "");
    Bytes expected = Bytes{0xF2, 1, 0, 2, 0, 0xF3, 1, 0, 0xF4, 1, 0} +
                     key_value_bytes("b", "", 0, 1) + Bytes{1, 0, 0xF4, 1, 0} +
                     key_value_bytes("", "x", 1) + Bytes{0, 0};
    EXPECT_EQ(written(expression.get()), expected);
}

TEST(WireForm, ADeclarationThatWasReadHasNoPositionsUntilItChangesOrIsCopied)
{
    Owned<inspectable> declaration(inspectable_new(IT_EVENT_DECLARATION));
    inspectable_add_key_value(declaration.get(), "a", FALSE, "1", FALSE, FALSE);
    inspectable_add_key_tag(declaration.get(), "a", "t");
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(declaration.get(), "t"));
    Owned<inspectable> again = read(written(declaration.get()));
    EXPECT_FALSE(inspectable_has_keyvalue_with_tag(again.get(), "t"));
    Owned<inspectable> copy(inspectable_copy(again.get(), IT_EVENT_DECLARATION));
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(copy.get(), "t"));
    inspectable_add_key_value(again.get(), "b", FALSE, "1", FALSE, FALSE);
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(again.get(), "t"));
}

TEST(WireForm, RecordsWithoutAndListsAreReadByEveryType)
{
    for (int type : {0, 1, 2, 3}) {
        Owned<inspectable> none = read({0xF2, 0, 0, type, 0, 0, 0});
        EXPECT_EQ(written(none.get()), (Bytes{0xF2, 0, 0, type, 0, 0, 0}));
        EXPECT_EQ(inspectable_get_value(none.get(), "a"), nullptr);
        EXPECT_TRUE(inspectable_is_equal(none.get(), none.get()));
    }
}

// The texts of a key-value in their order in the record: key, name space, two nice names around the
// value, user string, complex type name.
Bytes key_value_of(const std::vector<std::string> &texts)
{
    return Bytes{0xF5} + text(texts[0]) + Bytes{0} + text(texts[1]) + text(texts[2]) +
           text(texts[3]) + Bytes{0} + text(texts[4]) + text(texts[5]) + text(texts[6]) +
           Bytes{0, 4, 0, 0};
}

TEST(WireForm, ATextEndsAtItsFirstNul)
{
    for (std::size_t length : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 40}) {
        for (std::size_t nul = 0; nul < length; ++nul) {
            std::string cut(nul, 'x'), long_one(length, 'x');
            long_one[nul] = '\0';
            Owned<inspectable> event = read(Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0} +
                                            key_value_of(std::vector<std::string>(7, long_one)) +
                                            Bytes{0, 0, 1, 0} + text(long_one));
            Owned<inspectable> plain(read(Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0} +
                                          key_value_of(std::vector<std::string>(7, cut)) +
                                          Bytes{0, 0, 1, 0} + text(cut)));
            ASSERT_EQ(written(event.get()), written(plain.get())) << length << " " << nul;
            ASSERT_STREQ(inspectable_get_value(event.get(), cut.c_str()), cut.c_str());
        }
    }
}

using WireFormDeathTest = testing::Test;

void read_as_key_value(const Bytes &bytes)
{
    guint indx = 0;
    key_value_free(key_value_deserialize(array_of(bytes).get(), &indx));
}

TEST_F(WireFormDeathTest, TagAndCountAreBothReadBeforeTheTagIsLookedAt)
{
    EXPECT_DEATH(read({0xF1}), "array->len >= \\*indx \\+ size");
    EXPECT_DEATH(read({0xF1, 1, 0}), "type == SERIALIZE_ID_INSPECTABLE");
    EXPECT_DEATH(read({0xF2, 1, 0, 1, 0, 0xF5}), "array->len >= \\*indx \\+ size");
    EXPECT_DEATH(read({0xF2, 1, 0, 1, 0, 0xF5, 0, 0}), "type == SERIALIZE_ID_ANDLIST");
    EXPECT_DEATH(read({0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF5}), "array->len >= \\*indx \\+ size");
    EXPECT_DEATH(read({0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF5, 1, 0}), "type == SERIALIZE_ID_BUCKET");
    EXPECT_DEATH(read({0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0, 0xF4}),
                 "type == SERIALIZE_ID_KEYVALUE");
}

TEST_F(WireFormDeathTest, TheTypeIsOneOfFour)
{
    EXPECT_DEATH(read({0xF2, 1, 0, 4, 0, 0, 0}),
                 "itype == IT_EVENT_DECLARATION \\|\\| itype == IT_EVENT \\|\\| "
                 "itype == IT_PROPERTY_STATE \\|\\| itype == IT_SUBSCRIBE_EXPRESSION");
}

TEST_F(WireFormDeathTest, ATextThatIsLongerThanTheBufferIsNotRead)
{
    EXPECT_DEATH(read_as_key_value({0xF5, 0xFF, 0xFF, 'a'}), "array->len >= \\*indx \\+ length");
    EXPECT_DEATH(read_as_key_value({0xF5, 1}), "array->len >= \\*indx \\+ size");
}

TEST_F(WireFormDeathTest, BothWildcardsAtOnceAreRefused)
{
    EXPECT_DEATH(read_as_key_value(key_value_bytes("", "", 1, 1)), "key_value != NULL");
}

TEST_F(WireFormDeathTest, BucketsThatMakeNoSenseEndTheProcessOrderly)
{
    Bytes keyed = Bytes{0xF2, 1, 0, 2, 0, 0xF3, 1, 0, 0xF4};
    EXPECT_DEATH(read(keyed + Bytes{0, 0, 0, 0, 0, 0}), "assertion failed");
    EXPECT_DEATH(read(keyed + Bytes{2, 0} + key_value_bytes("a", "1") + key_value_bytes("b", "1") +
                      Bytes{0, 0, 0, 0}),
                 "bucket->key == key_value->key");
    EXPECT_DEATH(read(keyed + Bytes{1, 0} + key_value_bytes("", "1", 1) + Bytes{0, 0, 0, 0}),
                 "assertion failed");
    Bytes wildcards = Bytes{0xF2, 1, 0, 2, 0, 0xF3, 0, 0, 1, 0, 0xF4};
    EXPECT_DEATH(read(wildcards + Bytes{0, 0, 0, 0}), "assertion failed");
    EXPECT_DEATH(read(wildcards + Bytes{1, 0} + key_value_bytes("a", "1") + Bytes{0, 0}),
                 "assertion failed");
    EXPECT_DEATH(read(wildcards + Bytes{2, 0} + key_value_bytes("", "1", 1) +
                      key_value_bytes("", "2", 1) + Bytes{0, 0}),
                 "assertion failed");
}

TEST_F(WireFormDeathTest, NullEndsTheProcess)
{
    Owned<GArray> array(serialize_create_array());
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    guint indx = 0;
    EXPECT_DEATH(inspectable_serialize_internal(nullptr, array.get()), "inspect != NULL");
    EXPECT_DEATH(inspectable_serialize_internal(event.get(), nullptr), "array != NULL");
    EXPECT_DEATH(inspectable_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(inspectable_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(key_value_serialize(nullptr, array.get()), "key_value != NULL");
    EXPECT_DEATH(key_value_deserialize(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(key_value_deserialize(array.get(), nullptr), "indx != NULL");
}

} // namespace
