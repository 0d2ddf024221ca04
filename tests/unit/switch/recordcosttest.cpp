// SPDX-License-Identifier: LGPL-2.1-or-later

// What records of strangers may consist of, and that what they are held to cost is never too
// little.

#include "switch/recordcost.hpp"

#include "model/footprint.hpp"
#include "switch/records.hpp"

#include <gtest/gtest.h>

using namespace qandor;

namespace {

RecordShape shape_with(guint32 RecordShape::*count, guint32 number)
{
    RecordShape shape;
    shape.*count = number;
    return shape;
}

TEST(RecordBounds, EachMayBeReachedAndNotPassed)
{
    const std::tuple<guint32 RecordShape::*, guint32, const char *> bounds[] = {
        {&RecordShape::alternatives, 1024, "A record may have 1024 alternatives"},
        {&RecordShape::empty_alternatives, 1,
         "A record may have 1 alternative without a condition"},
        {&RecordShape::key_values, 4096, "A record may have 4096 key-values"},
        {&RecordShape::longest_bucket, 1024, "A record may have 1024 key-values of one key"},
        {&RecordShape::tags, 1024, "A record may have 1024 tags"},
    };
    for (const auto &[count, most, text] : bounds) {
        EXPECT_EQ(bound_passed_by(shape_with(count, most), {}), std::nullopt);
        EXPECT_EQ(bound_passed_by(shape_with(count, most + 1), {}), text);
    }
    const std::string name(255, 'k'), longer(256, 'k');
    EXPECT_EQ(bound_passed_by({}, {"a", name}), std::nullopt);
    EXPECT_EQ(bound_passed_by({}, {"a", longer}), "The name of a key may have 255 bytes");
}

// What a record is held to cost from its bytes, and what it takes once it is read.
template <class Owner, class Read, class Content>
void expect_enough(RecordKind kind, GArray *serialized, Read read, Content content,
                   const std::string &what)
{
    ArrayOwner bytes(serialized);
    RecordShape shape;
    auto fault = check_record(kind, reinterpret_cast<const guint8 *>(bytes->data), bytes->len,
                              nullptr, &shape);
    ASSERT_FALSE(fault) << what << ": " << fault->what;
    Owner record(read(bytes.get()));
    std::size_t taken = memory_of(*content(record.get()));
    std::size_t held = cost_of(shape, bytes->len).memory;
    EXPECT_GE(held, taken) << what;
    EXPECT_LE(held, 16 * taken) << what; // nobody is refused who has much room left
}

void expect_enough(const ExpressionOwner &expression, const std::string &what)
{
    expect_enough<ExpressionOwner>(
        RecordKind::SubscribeExpression, subscribe_expression_serialize(expression.get()),
        subscribe_expression_deserialize, subscribe_expression_get_inspectable, what);
}

void expect_enough(const DeclarationOwner &declaration, const std::string &what)
{
    expect_enough<DeclarationOwner>(
        RecordKind::EventDeclaration, event_declaration_serialize(declaration.get()),
        event_declaration_deserialize, event_declaration_get_inspectable, what);
}

std::string numbered(const std::string &text, int number)
{
    return text + std::to_string(number);
}

class RecordCostTest : public testing::TestWithParam<std::tuple<int, std::string>> {
protected:
    const int count = std::get<0>(GetParam());
    const std::string text = std::get<1>(GetParam());
};

TEST_P(RecordCostTest, CoversExpressions)
{
    ExpressionOwner keys(subscribe_expression_new()), values(subscribe_expression_new()),
        wildcards(subscribe_expression_new()), alternatives(subscribe_expression_new());
    for (int i = 0; i < count; ++i) {
        subscribe_expression_add_key_value(keys.get(), numbered("key", i).c_str(), text.c_str());
        subscribe_expression_add_key_value(values.get(), "key", numbered(text, i).c_str());
        subscribe_expression_add_value(wildcards.get(), numbered(text, i).c_str());
        if (i > 0)
            subscribe_expression_or(alternatives.get());
        subscribe_expression_add_key_not_value(alternatives.get(), "key",
                                               numbered(text, i).c_str());
    }
    expect_enough(keys, "keys");
    expect_enough(values, "values");
    expect_enough(wildcards, "wildcards");
    expect_enough(alternatives, "alternatives");
}

TEST_P(RecordCostTest, CoversDeclarations)
{
    DeclarationOwner keys(event_declaration_new(FALSE)), tags(event_declaration_new(FALSE));
    inspectable *content = event_declaration_get_inspectable(keys.get());
    inspectable *tagged = event_declaration_get_inspectable(tags.get());
    event_declaration_add_key(tags.get(), "key", VALUE_TYPE_STRING);
    for (int i = 0; i < count; ++i) {
        std::string key = numbered("key", i);
        event_declaration_add_key_value(keys.get(), key.c_str(), text.c_str(), VALUE_TYPE_STRING);
        inspectable_set_name_space(content, key.c_str(), numbered(text, i).c_str());
        inspectable_add_tag(tagged, numbered(text, i).c_str());
        inspectable_add_key_tag(tagged, "key", numbered(text, i).c_str());
    }
    expect_enough(keys, "keys");
    expect_enough(tags, "tags");
}

INSTANTIATE_TEST_SUITE_P(Counts, RecordCostTest,
                         testing::Combine(testing::Values(1, 3, 17, 65, 129, 513, 1025),
                                          testing::Values("", "v", "a value of some length",
                                                          std::string(200, 'v'))));

} // namespace
