// SPDX-License-Identifier: LGPL-2.1-or-later

// The checker of foreign bytes: it accepts all that is written, refuses all that is cut short, and
// whatever it accepts after a mutation can be used without ending the process.

#include "model/checker.hpp"

#include "support/logcapture.hpp"
#include "support/records.hpp"
#include "unit/model/plainrecords.hpp"

#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;

namespace {

bool is_accepted(RecordKind kind, const PlainBytes &bytes)
{
    return !check_record(kind, bytes.data(), bytes.size()).has_value();
}

Owned<GArray> to_array(const PlainBytes &bytes)
{
    Owned<GArray> array(serialize_create_array());
    serialize_blob(array.get(), bytes.data(), static_cast<guint32>(bytes.size()));
    return array;
}

void use(Owned<event> record)
{
    Owned<event> copy(event_copy(record.get()));
    Owned<GArray> bytes(event_serialize(copy.get()));
    event_print(copy.get());
    event_is_complete(copy.get());
    set_event_time_now(copy.get());
    Owned<subscribe_expression> everything(subscribe_expression_new());
    EXPECT_TRUE(event_contains(copy.get(), everything.get()));
    for (guint i = 0; i < event_get_key_count(copy.get()); ++i) {
        event_get_type_at(copy.get(), i);
        take_strings(event_get_tags_at(copy.get(), i));
        EXPECT_EQ(event_get_index(copy.get(), event_get_key_at(copy.get(), i)),
                  static_cast<gint>(i));
    }
}

void use(Owned<event_declaration> record)
{
    Owned<event_declaration> copy(event_declaration_copy(record.get()));
    Owned<GArray> bytes(event_declaration_serialize(copy.get()));
    event_declaration_print(copy.get());
    Owned<event> event(event_declaration_generate_event(copy.get()));
    event_is_complete(event.get());
    Owned<gchar> xml(event_declaration_serialize_xml(copy.get()));
    Owned<event_declaration> again(event_declaration_deserialize_xml(xml.get()));
}

void use(Owned<subscribe_expression> record)
{
    Owned<subscribe_expression> copy(subscribe_expression_copy(record.get()));
    Owned<GArray> bytes(subscribe_expression_serialize(copy.get()));
    subscribe_expression_print(copy.get());
    subscribe_expression_free_raw(subscribe_expression_get_raw(copy.get()));
    inspectable *content = subscribe_expression_get_inspectable(copy.get());
    inspectable_contains(content, content);
    EXPECT_TRUE(inspectable_is_equal(content, content));
    Owned<gchar> xml(subscribe_expression_serialize_xml(copy.get()));
    Owned<subscribe_expression> again(subscribe_expression_deserialize_xml(xml.get()));
}

void use(Owned<property_state> record)
{
    Owned<GArray> bytes(property_state_serialize(record.get()));
    property_state_print(record.get());
    Owned<subscribe_expression> plain(
        subscribe_expression_copy(property_state_get_subscribe_expression(record.get())));
    use(std::move(plain));
    Owned<gchar> xml(property_state_serialize_xml(record.get()));
    Owned<property_state> again(property_state_deserialize_xml(xml.get()));
}

void use(Owned<notification> record)
{
    Owned<notification> copy(notification_copy(record.get()));
    Owned<GArray> bytes(notification_serialize(copy.get()));
    notification_print(copy.get());
    notification_get_value(copy.get(), "a");
    notification_is_internal(copy.get());
}

void read_and_use(RecordKind kind, const PlainBytes &bytes)
{
    Owned<GArray> array = to_array(bytes);
    switch (kind) {
    case RecordKind::Event:
        return use(Owned<event>(event_deserialize(array.get())));
    case RecordKind::EventDeclaration:
        return use(Owned<event_declaration>(event_declaration_deserialize(array.get())));
    case RecordKind::SubscribeExpression:
        return use(Owned<subscribe_expression>(subscribe_expression_deserialize(array.get())));
    case RecordKind::PropertyState:
        return use(Owned<property_state>(property_state_deserialize(array.get())));
    case RecordKind::Notification:
        return use(Owned<notification>(notification_deserialize(array.get())));
    }
}

constexpr RecordKind kinds[] = {RecordKind::Event, RecordKind::EventDeclaration,
                                RecordKind::SubscribeExpression, RecordKind::PropertyState,
                                RecordKind::Notification};

PlainBytes random_bytes(RecordKind kind, RandomRecords &random)
{
    switch (kind) {
    case RecordKind::Event:
        return to_bytes(random.event());
    case RecordKind::EventDeclaration:
        return to_bytes(random.declaration());
    case RecordKind::SubscribeExpression:
        return to_bytes(random.expression());
    case RecordKind::PropertyState:
        return to_bytes(random.state());
    case RecordKind::Notification:
        return to_bytes(random.notification());
    }
    return {};
}

TEST(CheckerProperty, EveryKindOfRecordIsAcceptedWholeAndRefusedCutShortOrLengthened)
{
    RandomRecords random(1);
    for (int round = 0; round < 150; ++round) {
        for (RecordKind kind : kinds) {
            PlainBytes bytes = random_bytes(kind, random);
            auto fault = check_record(kind, bytes.data(), bytes.size());
            ASSERT_FALSE(fault) << fault->what << " at " << fault->offset;
            for (std::size_t length = 0; length < bytes.size(); ++length) {
                // A block of its own, so that a read past the end is noticed.
                PlainBytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
                ASSERT_FALSE(is_accepted(kind, cut)) << length;
            }
            bytes.push_back(0);
            ASSERT_FALSE(is_accepted(kind, bytes));
            bytes.pop_back();
            for (RecordKind other : kinds)
                ASSERT_EQ(is_accepted(other, bytes), other == kind);
        }
    }
}

void mutate(PlainBytes &bytes, RandomRecords &random)
{
    auto size = static_cast<unsigned>(bytes.size());
    auto at = bytes.begin() + static_cast<std::ptrdiff_t>(random.number(size));
    switch (random.number(6)) {
    case 0:
        *at = static_cast<std::uint8_t>(random.number(256));
        break;
    case 1:
        *at ^= static_cast<std::uint8_t>(1U << random.number(8));
        break;
    case 2:
        *at = static_cast<std::uint8_t>(*at + 1);
        break;
    case 3:
        bytes.erase(at);
        break;
    case 4:
        bytes.insert(at, static_cast<std::uint8_t>(random.number(3)));
        break;
    default:
        // Some piece of the record once more, somewhere else.
        PlainBytes piece(at, at + std::min<std::ptrdiff_t>(bytes.end() - at, random.number(40)));
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(random.number(size)),
                     piece.begin(), piece.end());
        break;
    }
}

TEST(CheckerProperty, WhatItAcceptsOfMutatedRecordsCanBeUsed)
{
    LogCapture quiet;
    constexpr unsigned seed = 20261122;
    RandomRecords random(seed);
    int accepted = 0, refused = 0;
    for (int round = 0; round < 1500; ++round) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
        for (RecordKind kind : kinds) {
            const PlainBytes whole = random_bytes(kind, random);
            for (int i = 0; i < 6; ++i) {
                PlainBytes bytes = whole;
                for (unsigned left = 1 + random.number(2); left > 0 && !bytes.empty(); --left)
                    mutate(bytes, random);
                if (is_accepted(kind, bytes)) {
                    ++accepted;
                    read_and_use(kind, bytes);
                } else {
                    ++refused;
                }
            }
        }
    }
    EXPECT_GT(accepted, 2000);
    EXPECT_GT(refused, 2000);
}

TEST(CheckerProperty, PureNoiseIsRefused)
{
    RandomRecords random(3);
    for (int round = 0; round < 20000; ++round) {
        PlainBytes noise(random.number(64));
        for (auto &byte : noise)
            byte = static_cast<std::uint8_t>(random.number(256));
        for (RecordKind kind : kinds)
            ASSERT_FALSE(is_accepted(kind, noise));
    }
}

TEST(Checker, SaysWhatIsWrongAndWhere)
{
    PlainBytes bytes = to_bytes(PlainEvent{{1, 0, {{}}, {}}, "", 0, 0, 0, 0, 0, 0});
    ASSERT_TRUE(is_accepted(RecordKind::Event, bytes));
    auto fault = check_record(RecordKind::EventDeclaration, bytes.data(), bytes.size());
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->offset, 0u);
    EXPECT_EQ(fault->what, "no event declaration begins here");
    bytes[1] = 0xF3;
    fault = check_record(RecordKind::Event, bytes.data(), bytes.size());
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->offset, 1u);
    EXPECT_EQ(fault->what, "no inspectable begins here");
    fault = check_record(RecordKind::Event, nullptr, 0);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->offset, 0u);
}

TEST(Checker, TellsWhatARecordConsistsOf)
{
    PlainKeyValue keyed, wildcard;
    keyed.key = "a";
    keyed.name_space = "n";
    keyed.value_nice_name = "nice";
    keyed.tags = {"", "t"};
    wildcard.key_wildcard = 1;
    wildcard.value = "v";
    PlainExpression expression;
    expression.content.type = IT_SUBSCRIBE_EXPRESSION;
    expression.content.and_lists = {{}, {}, {}};
    PlainAndList &list = expression.content.and_lists[1];
    list.keyed["a"] = {keyed, keyed, keyed};
    list.wildcards["v"] = {wildcard, wildcard};
    PlainBytes bytes = to_bytes(expression);

    RecordShape shape;
    ASSERT_FALSE(
        check_record(RecordKind::SubscribeExpression, bytes.data(), bytes.size(), nullptr, &shape));
    EXPECT_EQ(shape.alternatives, 3u);
    EXPECT_EQ(shape.empty_alternatives, 2u);
    EXPECT_EQ(shape.buckets, 2u);
    EXPECT_EQ(shape.longest_bucket, 3u);
    EXPECT_EQ(shape.key_values, 5u);
    EXPECT_EQ(shape.key_wildcards, 2u);
    EXPECT_EQ(shape.tags, 6u);
    EXPECT_EQ(shape.attributes, 6u);

    PlainDeclaration declaration;
    declaration.content.type = IT_EVENT_DECLARATION;
    declaration.content.tags = {"", ""};
    bytes = to_bytes(declaration);
    ASSERT_FALSE(
        check_record(RecordKind::EventDeclaration, bytes.data(), bytes.size(), nullptr, &shape));
    EXPECT_EQ(shape.tags, 8u) << "what was there is added to";
    EXPECT_EQ(shape.alternatives, 4u);
}

PlainExpression expression_of(const PlainKeyValue &record)
{
    PlainExpression expression;
    expression.content.type = IT_SUBSCRIBE_EXPRESSION;
    auto &list = expression.content.and_lists[0];
    (record.key_wildcard ? list.wildcards[record.value] : list.keyed[record.key]).push_back(record);
    return expression;
}

TEST(Checker, RefusesKeyValuesThatTheReaderWouldEndTheProcessFor)
{
    auto accepts = [](const PlainKeyValue &record) {
        return is_accepted(RecordKind::SubscribeExpression, to_bytes(expression_of(record)));
    };
    PlainKeyValue sound;
    sound.key = "k";
    sound.value = "v";
    EXPECT_TRUE(accepts(sound));
    PlainKeyValue record = sound;
    record.key_wildcard = record.value_wildcard = 1;
    EXPECT_FALSE(accepts(record));
    record = sound;
    record.key_wildcard = 2;
    EXPECT_FALSE(accepts(record));
    record = sound;
    record.value_type = 0;
    EXPECT_FALSE(accepts(record));
    record.value_type = 5;
    EXPECT_FALSE(accepts(record));
    record = sound;
    record.value = std::string("a\0b", 3);
    EXPECT_FALSE(accepts(record));
    record.value = "\xFF";
    EXPECT_FALSE(accepts(record));
}

TEST(Checker, RefusesBucketsThatMakeNoSense)
{
    PlainKeyValue one, other;
    one.key = "a";
    other.key = "b";
    PlainExpression expression = expression_of(one);
    expression.content.and_lists[0].keyed["a"].push_back(other);
    EXPECT_FALSE(is_accepted(RecordKind::SubscribeExpression, to_bytes(expression)));
    expression.content.and_lists[0].keyed["a"].clear();
    EXPECT_FALSE(is_accepted(RecordKind::SubscribeExpression, to_bytes(expression)));
    PlainExpression misplaced;
    misplaced.content.type = IT_SUBSCRIBE_EXPRESSION;
    misplaced.content.and_lists[0].wildcards[""].push_back(one);
    EXPECT_FALSE(is_accepted(RecordKind::SubscribeExpression, to_bytes(misplaced)));
}

// The second would take the place of the first when it is read.
TEST(Checker, RefusesASecondBucketOfAKeyOrAValueInAnAndList)
{
    PlainKeyValue keyed, wildcard;
    keyed.key = "a";
    wildcard.key_wildcard = 1;
    wildcard.value = "v";
    for (const PlainKeyValue &record : {keyed, wildcard}) {
        PlainExpression expression = expression_of(record);
        PlainAndList &list = expression.content.and_lists[0];
        (record.key_wildcard ? list.wildcards : list.keyed)["again"] = {record};
        EXPECT_FALSE(is_accepted(RecordKind::SubscribeExpression, to_bytes(expression)));
        expression.content.and_lists = {expression_of(record).content.and_lists[0],
                                        expression_of(record).content.and_lists[0]};
        EXPECT_TRUE(is_accepted(RecordKind::SubscribeExpression, to_bytes(expression)))
            << "alternatives may have the same keys";
    }
    PlainExpression both = expression_of(keyed);
    keyed.key = "";
    both.content.and_lists[0].keyed[""] = {keyed};
    wildcard.value = "";
    both.content.and_lists[0].wildcards[""] = {wildcard};
    EXPECT_TRUE(is_accepted(RecordKind::SubscribeExpression, to_bytes(both)))
        << "a key and a value may be the same text";
}

TEST(Checker, WantsTheInspectableOfTheRecordsOwnType)
{
    for (int type : {0, 1, 2, 3, 4}) {
        PlainEvent event;
        event.content.type = type;
        EXPECT_EQ(is_accepted(RecordKind::Event, to_bytes(event)), type == IT_EVENT);
        PlainDeclaration declaration;
        declaration.content.type = type;
        EXPECT_EQ(is_accepted(RecordKind::EventDeclaration, to_bytes(declaration)),
                  type == IT_EVENT_DECLARATION);
    }
}

} // namespace
