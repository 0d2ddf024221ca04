// SPDX-License-Identifier: LGPL-2.1-or-later

// Declarations and expressions in a few words, as warnings name them.

#include "bus/shortdescription.hpp"
#include "messages/eventdeclaration.hpp"
#include "messages/subscribeexpression.hpp"
#include "support/records.hpp"

#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;

namespace {

TEST(ShortDescription, NamesADeclarationByItsTopicsFirst)
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration.get(), "place", "cellar", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration.get(), "topic0", "Door", VALUE_TYPE_STRING);
    EXPECT_EQ(short_description(declaration->content), "topic0=Door state place=cellar");
}

TEST(ShortDescription, ShowsConditionsAndAlternatives)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", "Door");
    subscribe_expression_add_key_not_value(expression.get(), "state", "open");
    subscribe_expression_or(expression.get());
    subscribe_expression_add_key(expression.get(), "alarm");
    EXPECT_EQ(short_description(expression->content), "topic0=Door state!=open | alarm");
}

TEST(ShortDescription, IsOneLineAndNotLong)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "topic0", "one\ntwo");
    EXPECT_EQ(short_description(expression->content), "topic0=one?two");
    std::string umlauts;
    for (int i = 0; i < 300; ++i)
        umlauts += "\u00e4";
    subscribe_expression_add_key_value(expression.get(), "topic0", umlauts.c_str());
    std::string text = short_description(expression->content);
    EXPECT_LE(text.size(), 203u);
    EXPECT_TRUE(text.ends_with("..."));
    EXPECT_TRUE(g_utf8_validate(text.c_str(), -1, nullptr));
}

} // namespace
