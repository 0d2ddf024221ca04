// SPDX-License-Identifier: LGPL-2.1-or-later

// Expressions as people write them, and back.

#include <qandor/qandor.hpp>

#include <gtest/gtest.h>

#include <random>

using namespace qandor;

namespace {

Expression parsed(const std::string &text)
{
    auto result = parse_expression(text);
    if (const auto *fault = std::get_if<ExpressionFault>(&result)) {
        ADD_FAILURE() << fault->shown(text);
        return {};
    }
    return std::get<Expression>(result);
}

std::string fault_of(const std::string &text)
{
    auto result = parse_expression(text);
    const auto *fault = std::get_if<ExpressionFault>(&result);
    return fault ? std::to_string(fault->place) + ": " + fault->what : "none";
}

TEST(ExpressionText, EachFormIsTheConditionThatItSays)
{
    EXPECT_EQ(parsed("a=1"), key("a") == "1");
    EXPECT_EQ(parsed("a!=1"), key("a") != "1");
    EXPECT_EQ(parsed("a"), key("a").exists());
    EXPECT_EQ(parsed("!a"), key("a").is_absent());
    EXPECT_EQ(parsed("*=1"), any_key == "1");
    EXPECT_EQ(parsed("*!=1"), any_key != "1");
    EXPECT_EQ(parsed("s:a=1"), key("a").in("s") == "1");
    EXPECT_EQ(parsed("!s:a"), key("a").in("s").is_absent());
    EXPECT_EQ(parsed("*"), Expression());
}

TEST(ExpressionText, OrBindsLessThanAnd)
{
    EXPECT_EQ(parsed("topic0=Device & state!=off | *=x"),
              (key("topic0") == "Device" && key("state") != "off") || any_key == "x");
    EXPECT_EQ(parsed("a=1|b=2&c=3|*"),
              key("a") == "1" || (key("b") == "2" && key("c") == "3") || Expression());
}

TEST(ExpressionText, BlanksAreOfNoMeaningAroundWords)
{
    EXPECT_EQ(parsed("  a = 1  &\t! b|c  "), parsed("a=1&!b|c"));
}

TEST(ExpressionText, QuotesTakeAnything)
{
    EXPECT_EQ(parsed(R"("a key"="a \"value\" \\ | &")"), key("a key") == "a \"value\" \\ | &");
    EXPECT_EQ(parsed(R"(a="")"), key("a") == "");
    EXPECT_EQ(parsed(R"("s p":"k:y"=12:30)"), key("k:y").in("s p") == "12:30");
    EXPECT_EQ(parsed("größe=µ"), key("größe") == "µ");
}

TEST(ExpressionText, WhatIsWrongIsSaidWithItsPlace)
{
    EXPECT_EQ(fault_of(""), "0: expected is a key");
    EXPECT_EQ(fault_of("a=1 |"), "5: expected is a key");
    EXPECT_EQ(fault_of("a=1 & | b"), "6: expected is a key");
    EXPECT_EQ(fault_of("a="), "2: expected is a value");
    EXPECT_EQ(fault_of("a=1 b=2"), "4: expected is '&', '|' or the end");
    EXPECT_EQ(fault_of("a!1"), "1: expected is '!='");
    EXPECT_EQ(fault_of("a! =1"), "1: expected is '!='");
    EXPECT_EQ(fault_of("!a=1"), "2: a key that is not there has no value");
    EXPECT_EQ(fault_of("a=\"1"), "2: this quote is not closed");
    EXPECT_EQ(fault_of("s:=1"), "2: expected is a key in the name space");
    EXPECT_EQ(fault_of("* & a"), "1: expected is '=' or '!=' with the value that any key may have");
    EXPECT_EQ(fault_of("!*=1"), "1: expected is a key");
    EXPECT_EQ(fault_of("(a=1)"), "0: expected is a key");
}

TEST(ExpressionText, AFaultIsShownUnderItsPlace)
{
    std::string text = "größe=1 b";
    auto result = parse_expression(text);
    EXPECT_EQ(std::get<ExpressionFault>(result).shown(text),
              "größe=1 b\n        ^ expected is '&', '|' or the end\n");
}

// A word of characters that are likely to be mistaken for something else.
std::string random_word(std::mt19937 &random)
{
    const char *const parts[] = {"a", "B9", " ",  "\"", "\\", "*",  "!",  "=", ":", "&",
                                 "|", "ö",  "\t", "(",  "'",  "\n", "_-", ".", "/", "€"};
    std::string word;
    for (auto length = random() % 5; length > 0; --length)
        word += parts[random() % std::size(parts)];
    return word;
}

Condition random_condition(std::mt19937 &random)
{
    Condition condition{random_word(random), random_word(random), random() % 2 == 0};
    switch (random() % 4) {
    case 0:
        condition.key.reset();
        break;
    case 1:
        condition.value.reset();
        break;
    case 2:
        condition.name_space = random_word(random);
        break;
    default:
        break;
    }
    return condition;
}

TEST(ExpressionText, EveryExpressionComesBackFromItsText)
{
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        std::vector<Conditions> alternatives(1 + random() % 3);
        for (Conditions &group : alternatives)
            for (auto count = random() % 4; count > 0; --count)
                group.push_back(random_condition(random));
        Expression expression(alternatives);
        ASSERT_EQ(parsed(to_text(expression)), expression) << to_text(expression);
    }
}

TEST(ExpressionText, NoTextIsMoreThanTheReaderCanTake)
{
    std::mt19937 random(2);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (auto count = random() % 8; count > 0; --count)
            text += random_word(random);
        auto result = parse_expression(text);
        if (const auto *fault = std::get_if<ExpressionFault>(&result))
            ASSERT_LE(fault->place, text.size());
        else
            ASSERT_EQ(parsed(to_text(std::get<Expression>(result))), std::get<Expression>(result));
    }
}

TEST(ExpressionText, AnExpressionOfTheCInterfaceHasTheSameText)
{
    Expression said = (key("a").in("s") == "1" && key("b").is_absent()) || any_key != "x";
    EXPECT_EQ(to_text(expression_of(said.build().c())), "s:a=1 & !b | *!=x");
    EXPECT_EQ(expression_of(said.build().c()), said);
    EXPECT_EQ(expression_of(said.clandestine().build().c()), said.clandestine());
    EXPECT_EQ(to_text(expression_of(Expression().build().c())), "*");
}

} // namespace
