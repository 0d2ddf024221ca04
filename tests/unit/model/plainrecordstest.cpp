// SPDX-License-Identifier: LGPL-2.1-or-later

// Random records of every kind through the library and through the plain second implementation.

#include "unit/model/plainrecords.hpp"

#include "support/recordkinds.hpp"

#include <gtest/gtest.h>

#include <algorithm>

using namespace qandor::test;

namespace {

constexpr unsigned seed = 20261121;
constexpr int rounds = 6000;

PlainBytes plain(const GArray *array)
{
    const auto *data = reinterpret_cast<const guint8 *>(array->data);
    return PlainBytes(data, data + array->len);
}

Owned<GArray> to_array(const PlainBytes &bytes)
{
    Owned<GArray> array(serialize_create_array());
    serialize_blob(array.get(), bytes.data(), static_cast<guint32>(bytes.size()));
    return array;
}

// What the library makes of a plain record.
template <class Record, class Plain> Owned<Record> read_as(const Plain &record)
{
    Owned<Record> made;
    qandor::test::read(to_array(to_bytes(record)).get(), made);
    return made;
}
Owned<event> read(const PlainEvent &record)
{
    return read_as<event>(record);
}
Owned<event_declaration> read(const PlainDeclaration &record)
{
    return read_as<event_declaration>(record);
}
Owned<subscribe_expression> read(const PlainExpression &record)
{
    return read_as<subscribe_expression>(record);
}
Owned<property_state> read(const PlainState &record)
{
    return read_as<property_state>(record);
}
Owned<notification> read(const PlainNotification &record)
{
    return read_as<notification>(record);
}
Owned<inspectable> read(const PlainInspectable &record)
{
    return read_as<inspectable>(record);
}

template <class Plain, class Made> Plain written(const Made &made)
{
    return from_bytes<Plain>(plain(write(made.get()).get()));
}

template <class Plain> void expect_round_trips(Plain (RandomRecords::*make)())
{
    RandomRecords random(seed);
    for (int round = 0; round < rounds; ++round) {
        Plain record = (random.*make)();
        auto made = read(record);
        ASSERT_TRUE(written<Plain>(made) == record) << "seed " << seed << ", round " << round;
    }
}

TEST(PlainRecords, EveryKindReadsAndWritesAsTheSecondImplementationDoes)
{
    expect_round_trips<PlainEvent>(&RandomRecords::event);
    expect_round_trips<PlainDeclaration>(&RandomRecords::declaration);
    expect_round_trips<PlainExpression>(&RandomRecords::expression);
    expect_round_trips<PlainState>(&RandomRecords::state);
    expect_round_trips<PlainNotification>(&RandomRecords::notification);
}

TEST(PlainRecords, CopiesKeepEverythingButRepeatedTagsOfAKey)
{
    RandomRecords random(seed + 1);
    for (int round = 0; round < rounds; ++round) {
        PlainEvent event_record = random.event();
        Owned<event> event_copied(event_copy(read(event_record).get()));
        event_record.content = with_distinct_tags(event_record.content);
        ASSERT_TRUE(written<PlainEvent>(event_copied) == event_record) << round;

        PlainDeclaration declaration = random.declaration();
        Owned<event_declaration> copied(event_declaration_copy(read(declaration).get()));
        declaration.content = with_distinct_tags(declaration.content);
        ASSERT_TRUE(written<PlainDeclaration>(copied) == declaration) << round;

        PlainNotification notice = random.notification();
        Owned<notification> notice_copied(notification_copy(read(notice).get()));
        notice.expression.content = with_distinct_tags(notice.expression.content);
        notice.declaration.content = with_distinct_tags(notice.declaration.content);
        ASSERT_TRUE(written<PlainNotification>(notice_copied) == notice) << round;
    }
}

TEST(PlainRecords, ACopyOfAnotherTypeKeepsTheContent)
{
    RandomRecords random(seed + 2);
    for (int round = 0; round < rounds; ++round) {
        PlainInspectable record = random.inspectable(static_cast<int>(random.number(4)));
        int type = static_cast<int>(random.number(4));
        Owned<inspectable> copied(inspectable_copy(read(record).get(), static_cast<guint32>(type)));
        record = with_distinct_tags(record);
        record.type = type;
        ASSERT_TRUE(written<PlainInspectable>(copied) == record) << round;
    }
}

TEST(PlainRecords, XmlThatTheSecondImplementationWritesIsRead)
{
    RandomRecords random(seed + 3);
    for (int round = 0; round < rounds; ++round) {
        PlainInspectable record = random.inspectable(IT_EVENT_DECLARATION);
        std::string xml = to_xml(record, "declare");
        Owned<event_declaration> declaration(event_declaration_deserialize_xml(xml.c_str()));
        ASSERT_NE(declaration, nullptr) << xml;
        PlainDeclaration expected;
        expected.content = with_distinct_tags(record);
        ASSERT_TRUE(written<PlainDeclaration>(declaration) == expected) << xml;

        record = random.inspectable(IT_SUBSCRIBE_EXPRESSION);
        record.internal = 0;
        xml = to_xml(record, "subscribe");
        Owned<subscribe_expression> expression(subscribe_expression_deserialize_xml(xml.c_str()));
        ASSERT_NE(expression, nullptr) << xml;
        PlainExpression expected_expression;
        expected_expression.content = with_distinct_tags(record);
        ASSERT_TRUE(written<PlainExpression>(expression) == expected_expression) << xml;
    }
}

TEST(PlainRecords, XmlThatTheLibraryWritesIsReadByTheSecondImplementation)
{
    RandomRecords random(seed + 4);
    for (int round = 0; round < rounds; ++round) {
        PlainDeclaration record = random.declaration();
        Owned<gchar> xml(event_declaration_serialize_xml(read(record).get()));
        qandor::XmlTreeOwner tree(xmlnode_parse_string(xml.get()));
        ASSERT_NE(tree, nullptr) << xml.get();
        ASSERT_TRUE(from_xml(tree.get(), "declare", IT_EVENT_DECLARATION) == record.content)
            << xml.get();

        PlainExpression expression = random.expression();
        xml.reset(subscribe_expression_serialize_xml(read(expression).get()));
        tree.reset(xmlnode_parse_string(xml.get()));
        ASSERT_NE(tree, nullptr) << xml.get();
        expression.content.internal = 0; // only a declaration's element has the attribute
        ASSERT_TRUE(from_xml(tree.get(), "subscribe", IT_SUBSCRIBE_EXPRESSION) ==
                    expression.content)
            << xml.get();
    }
}

// Some small change that may or may not make a difference.
void disturb(PlainInspectable &record, RandomRecords &random)
{
    PlainAndList &list =
        record.and_lists[random.number(static_cast<unsigned>(record.and_lists.size()))];
    if (list.keyed.empty()) {
        record.internal = static_cast<int>(random.number(2));
        return;
    }
    auto &bucket = list.keyed.begin()->second;
    PlainKeyValue &item = bucket[random.number(static_cast<unsigned>(bucket.size()))];
    switch (random.number(10)) {
    case 0:
        item.value_type = static_cast<int>(1 + random.number(4));
        break;
    case 1:
        item.key_nice_name = "disturbed";
        break;
    case 2:
        item.value_nice_name = "disturbed";
        break;
    case 3:
        item.value_user_string = "disturbed";
        break;
    case 4:
        item.complex_type_name = "disturbed";
        break;
    case 5:
        item.name_space = "disturbed";
        break;
    case 6:
        item.negated = !item.negated;
        break;
    case 7:
        std::reverse(item.tags.begin(), item.tags.end());
        break;
    case 8:
        std::reverse(bucket.begin(), bucket.end());
        break;
    default:
        std::reverse(record.and_lists.begin(), record.and_lists.end());
        break;
    }
}

TEST(PlainRecords, EqualitySeesEveryFieldThatIsWrittenAndNoOrder)
{
    RandomRecords random(seed + 5);
    int equal = 0, different = 0;
    for (int round = 0; round < rounds; ++round) {
        PlainInspectable one = random.inspectable(static_cast<int>(random.number(4)));
        PlainInspectable other = one;
        disturb(other, random);
        bool expected = are_equal(one, other);
        (expected ? equal : different) += 1;
        ASSERT_EQ(inspectable_is_equal(read(one).get(), read(other).get()), expected) << round;
        ASSERT_EQ(inspectable_is_equal(read(other).get(), read(one).get()), expected) << round;
    }
    EXPECT_GT(equal, 1000);
    EXPECT_GT(different, 1000);
}

TEST(PlainRecords, CompleteIsWhatHasNoOpenValueLeft)
{
    RandomRecords random(seed + 6);
    for (int round = 0; round < rounds; ++round) {
        PlainInspectable record = random.inspectable(static_cast<int>(random.number(2)));
        bool open = false;
        for (const auto &[key, bucket] : record.and_lists[0].keyed)
            open = open || bucket.front().value_wildcard;
        ASSERT_EQ(inspectable_is_complete(read(record).get()), !open) << round;
    }
}

TEST(PlainRecords, QuestionsChangeNothingThatIsWritten)
{
    RandomRecords random(seed + 7);
    for (int round = 0; round < rounds; ++round) {
        PlainInspectable container = random.inspectable(IT_EVENT);
        PlainInspectable conditions = random.inspectable(IT_SUBSCRIBE_EXPRESSION);
        auto made_container = read(container);
        auto made_conditions = read(conditions);
        gboolean first = inspectable_contains(made_container.get(), made_conditions.get());
        inspectable_is_equal(made_container.get(), made_conditions.get());
        ASSERT_EQ(inspectable_contains(made_container.get(), made_conditions.get()), first);
        ASSERT_TRUE(written<PlainInspectable>(made_container) == container);
        ASSERT_TRUE(written<PlainInspectable>(made_conditions) == conditions);
    }
}

} // namespace
