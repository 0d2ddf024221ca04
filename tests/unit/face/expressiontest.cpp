// SPDX-License-Identifier: LGPL-2.1-or-later

// Expressions said with operators are the ones that the C interface builds.

#include "support/records.hpp"

#include <qandor/qandor.hpp>

#include <gtest/gtest.h>

#include <functional>

using namespace qandor;
using qandor::test::bytes_of;
using qandor::test::Owned;

namespace {

test::Bytes bytes_of_expression(const ::subscribe_expression *expression)
{
    return bytes_of(Owned<GArray>(subscribe_expression_serialize(expression)).get());
}

void expect_same(const Expression &said, const std::function<void(::subscribe_expression *)> &build,
                 bool clandestine = false)
{
    Owned<::subscribe_expression> built(subscribe_expression_new_full(clandestine));
    build(built.get());
    EXPECT_EQ(bytes_of_expression(said.build().c()), bytes_of_expression(built.get()));
}

TEST(Expression, EachConditionIsTheOneOfTheCInterface)
{
    expect_same(Expression(), [](auto *) {});
    expect_same(key("a") == "1", [](auto *e) { subscribe_expression_add_key_value(e, "a", "1"); });
    expect_same(key("a") != "1",
                [](auto *e) { subscribe_expression_add_key_not_value(e, "a", "1"); });
    expect_same(key("a").exists(), [](auto *e) { subscribe_expression_add_key(e, "a"); });
    expect_same(key("a").is_absent(), [](auto *e) { subscribe_expression_add_not_key(e, "a"); });
    expect_same(any_key == "1", [](auto *e) { subscribe_expression_add_value(e, "1"); });
    expect_same(any_key != "1", [](auto *e) { subscribe_expression_add_not_value(e, "1"); });
}

TEST(Expression, ValuesAreWrittenAsEventsCarryThem)
{
    expect_same(key("a") == 5, [](auto *e) { subscribe_expression_add_key_value(e, "a", "5"); });
    expect_same(key("a") == true, [](auto *e) { subscribe_expression_add_key_value(e, "a", "1"); });
    expect_same(key("a") == 2.5,
                [](auto *e) { subscribe_expression_add_key_value(e, "a", "2.500000"); });
    expect_same(key("a") == std::string("x"),
                [](auto *e) { subscribe_expression_add_key_value(e, "a", "x"); });
}

TEST(Expression, AndDistributesOverOr)
{
    expect_same((key("a") == "1" || key("b") == "2") && key("c") != "3", [](auto *e) {
        subscribe_expression_add_key_value(e, "a", "1");
        subscribe_expression_add_key_not_value(e, "c", "3");
        subscribe_expression_or(e);
        subscribe_expression_add_key_value(e, "b", "2");
        subscribe_expression_add_key_not_value(e, "c", "3");
    });
}

TEST(Expression, WhatEverythingSatisfiesAddsNothingToAConjunction)
{
    EXPECT_EQ(Expression() && key("a") == "1", key("a") == "1");
}

TEST(Expression, ANameSpaceGoesToItsOwnCondition)
{
    expect_same(key("a") != "1" && key("a").in("space") == "2", [](auto *e) {
        subscribe_expression_add_key_value(e, "a", "2");
        subscribe_expression_add_key_not_value(e, "a", "1");
        subscribe_expression_set_name_space(e, "a", "space");
    });
}

TEST(Expression, TwoNameSpacesOfOneKeyInOneGroupAreAnError)
{
    Expression said = key("a").in("one") == "1" && key("a").in("two") != "2";
    Result<Expression::C> built = said.try_build();
    ASSERT_FALSE(built);
    EXPECT_EQ(built.error().message(),
              "Two conditions on the key 'a' in one group have a name space");
    EXPECT_THROW(said.build(), Error);
    EXPECT_TRUE((key("a").in("one") == "1" || key("a").in("two") == "2").try_build());
}

TEST(Expression, AConditionWithoutKeyAndValueIsAnError)
{
    EXPECT_FALSE(Expression(Condition{}).try_build());
    EXPECT_FALSE(Expression(Condition{std::nullopt, "1", false, "space"}).try_build());
}

TEST(Expression, ClandestineStaysThroughOperators)
{
    Expression hidden = (key("a") == "1").clandestine();
    EXPECT_TRUE((hidden && key("b") == "2").is_clandestine());
    EXPECT_TRUE((key("b") == "2" || hidden).is_clandestine());
    expect_same(
        hidden, [](auto *e) { subscribe_expression_add_key_value(e, "a", "1"); }, true);
}

} // namespace
