// SPDX-License-Identifier: LGPL-2.1-or-later

// The texts of typed values, lists of tags and callback_params.

#include "support/records.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <random>

using namespace qandor::test;

namespace {

std::string text_of(gconstpointer value, guint32 type)
{
    Owned<gchar> text(event_utils_value_type_to_string(value, type));
    return text ? text.get() : "nothing";
}

TEST(ValueTexts, AreThoseOfTheFourTypesAndNoneForAnother)
{
    for (gint number : {0, 1, -1, 42, G_MAXINT, G_MININT})
        EXPECT_EQ(text_of(&number, VALUE_TYPE_INT), std::to_string(number));
    for (gboolean truth : {1, 2, 7, -1, 256})
        EXPECT_EQ(text_of(&truth, VALUE_TYPE_BOOL), "1") << truth;
    gboolean falsehood = FALSE;
    EXPECT_EQ(text_of(&falsehood, VALUE_TYPE_BOOL), "0");
    gdouble one = 1.0, fraction = 2.5, small = -0.0000001;
    EXPECT_EQ(text_of(&one, VALUE_TYPE_DOUBLE), "1.000000");
    EXPECT_EQ(text_of(&fraction, VALUE_TYPE_DOUBLE), "2.500000");
    EXPECT_EQ(text_of(&small, VALUE_TYPE_DOUBLE), "-0.000000");
    EXPECT_EQ(text_of("text", VALUE_TYPE_STRING), "text");
    EXPECT_EQ(text_of("", VALUE_TYPE_STRING), "");
    for (guint32 type : {0u, 5u, G_MAXUINT32})
        EXPECT_EQ(event_utils_value_type_to_string(&one, type), nullptr);
}

TEST(ValueTexts, NumbersThatAreNoneAreWrittenAsPrintfDoes)
{
    for (gdouble number : {double(INFINITY), -double(INFINITY), double(NAN)}) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "%f", number);
        EXPECT_EQ(text_of(&number, VALUE_TYPE_DOUBLE), expected);
    }
}

void expect_as_printf(gdouble number)
{
    char expected[512];
    std::snprintf(expected, sizeof expected, "%f", number);
    ASSERT_EQ(text_of(&number, VALUE_TYPE_DOUBLE), expected);
}

TEST(ValueTexts, RandomDoublesAreWrittenAsPrintfDoes)
{
    constexpr unsigned seed = 5;
    std::mt19937_64 engine(seed);
    for (int round = 0; round < 200000; ++round) {
        auto bits = engine();
        SCOPED_TRACE(bits);
        expect_as_printf(std::bit_cast<gdouble>(bits));
        // Everyday numbers, and those that lie just between two texts.
        auto small = static_cast<gint64>(engine() % 2000000000000) - 1000000000000;
        expect_as_printf(static_cast<gdouble>(small) / 1000);
        gdouble halfway = (static_cast<gdouble>(engine() % 4096) * 2 + 1) / 128;
        expect_as_printf(halfway);
        expect_as_printf(
            std::ldexp(static_cast<gdouble>(engine() >> 11), -static_cast<int>(engine() % 120)));
        if (testing::Test::HasFatalFailure())
            return;
    }
}

GList *list(std::initializer_list<const char *> texts)
{
    GList *made = nullptr;
    for (const char *text : texts)
        made = g_list_append(made, const_cast<char *>(text));
    return made;
}

bool are_equal(std::initializer_list<const char *> texts1,
               std::initializer_list<const char *> texts2)
{
    GList *list1 = list(texts1), *list2 = list(texts2);
    bool result = event_utils_tag_list_is_equal(list1, list2);
    g_list_free(list1);
    g_list_free(list2);
    return result;
}

TEST(TagLists, AreComparedAsMultisets)
{
    EXPECT_TRUE(are_equal({}, {}));
    EXPECT_TRUE(are_equal({"a", "b", "a"}, {"a", "a", "b"}));
    EXPECT_FALSE(are_equal({"a", "b", "b"}, {"a", "a", "b"}));
    EXPECT_FALSE(are_equal({"a"}, {"a", "a"}));
    EXPECT_FALSE(are_equal({"a"}, {}));
    EXPECT_FALSE(are_equal({"a"}, {"A"}));
    EXPECT_TRUE(are_equal({nullptr, "a"}, {"a", nullptr}));
    EXPECT_FALSE(are_equal({nullptr}, {""}));
}

TEST(CallbackParams, TakeCopiesOfWhatMayBeAbsent)
{
    std::string key = "key";
    callback_params *params = callback_params_new(key.c_str(), nullptr);
    EXPECT_NE(params, nullptr);
    callback_params_free(params);
    callback_params_free(callback_params_new(nullptr, "value"));
    callback_params_free(callback_params_new(nullptr, nullptr));
    callback_params_free(nullptr);
}

TEST(ValueTexts, EdgesAreWrittenAsPrintfWritesIt)
{
    const gdouble numbers[] = {
        0.0,      -0.0,   1.0,     0.1,    1.0000005,      0.0000005,  2.0000005,
        123456.7, -1e-9,  4e12,    9e12,   1e300,          -1e18,      0.5e-6,
        1.5e-6,   2.5e-6, 1 / 3.0, 1e-320, 999999.9999999, G_MAXDOUBLE};
    for (gdouble number : numbers) {
        gchar expected[512];
        g_ascii_formatd(expected, sizeof expected, "%f", number);
        Owned<gchar> text(event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE));
        EXPECT_STREQ(text.get(), expected);
    }
}

} // namespace
