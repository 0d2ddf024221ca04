// SPDX-License-Identifier: LGPL-2.1-or-later

// The containment of one key-value in another, exhaustively over everything that can matter.

#include "support/records.hpp"

#include <gtest/gtest.h>

using namespace qandor::test;

namespace {

struct Case {
    const char *value;
    const char *name_space;
    gboolean value_wildcard;
    gboolean negated;
};

std::vector<Case> all_cases()
{
    std::vector<Case> cases;
    for (const char *name_space : {"", "m", "n"})
        for (gboolean negated : {0, 1}) {
            for (const char *value : {"", "1", "2"})
                cases.push_back({value, name_space, FALSE, negated});
            cases.push_back({"", name_space, TRUE, negated});
        }
    return cases;
}

Owned<key_value> make(const Case &given)
{
    return Owned<key_value>(key_value_new("k", FALSE, given.name_space, "", given.value,
                                          given.value_wildcard, "", "", "", given.negated));
}

enum Answer { Nothing, Matched, Excluded };

Answer expected_of(const Case &container, const Case &condition)
{
    std::string wanted = condition.name_space;
    if (!wanted.empty() && wanted != container.name_space)
        return Excluded;
    bool same = std::string(container.value) == condition.value;
    if (container.negated && condition.negated)
        return Nothing;
    if (!container.negated && !condition.negated)
        return container.value_wildcard || condition.value_wildcard || same ? Matched : Excluded;
    const Case &negative = container.negated ? container : condition;
    const Case &positive = container.negated ? condition : container;
    if (negative.value_wildcard)
        return Excluded;
    if (positive.value_wildcard)
        return Nothing;
    return same ? Excluded : Nothing;
}

Answer answer_of(const key_value *container, const key_value *condition)
{
    gboolean excluded = FALSE, matched = FALSE;
    key_value_is_contained(container, condition, &excluded, &matched);
    EXPECT_FALSE(excluded && matched);
    return excluded ? Excluded : matched ? Matched : Nothing;
}

std::string describe(const Case &given)
{
    return std::string(given.name_space) + ":" + (given.negated ? "!" : "") +
           (given.value_wildcard ? "*" : "'" + std::string(given.value) + "'");
}

TEST(KeyValueContainmentTable, EveryPairAnswersAsTheRulesSay)
{
    for (const Case &container : all_cases())
        for (const Case &condition : all_cases())
            EXPECT_EQ(answer_of(make(container).get(), make(condition).get()),
                      expected_of(container, condition))
                << describe(container) << " against " << describe(condition);
}

TEST(KeyValueContainmentTable, AKeyThatIsMissingBreaksPositiveConditionsOnly)
{
    for (const Case &condition : all_cases())
        EXPECT_EQ(answer_of(nullptr, make(condition).get()), condition.negated ? Nothing : Excluded)
            << describe(condition);
}

TEST(KeyValueContainmentTable, WhatIsOnlyShownTakesNoPart)
{
    Owned<key_value> container(
        key_value_new("k", FALSE, "", "nice", "1", FALSE, "one", "user", "complex", FALSE));
    key_value_add_tag(container.get(), "tag");
    Owned<key_value> condition(
        key_value_new("other", FALSE, "", "n", "1", FALSE, "o", "u", "c", FALSE));
    EXPECT_EQ(answer_of(container.get(), condition.get()), Matched);
}

TEST(KeyValueContainmentTable, ValuesAreComparedAsTextAndNotAsNumbers)
{
    EXPECT_EQ(answer_of(make({"1", "", FALSE, FALSE}).get(), make({"1.0", "", FALSE, FALSE}).get()),
              Excluded);
    EXPECT_EQ(answer_of(make({"A", "", FALSE, FALSE}).get(), make({"a", "", FALSE, FALSE}).get()),
              Excluded);
}

TEST(KeyValueContainmentTable, ANullNameSpaceIsNoEmptyOne)
{
    Owned<key_value> none(key_value_new("k", FALSE, nullptr, "", "1", FALSE, "", "", "", FALSE));
    EXPECT_EQ(answer_of(make({"1", "", FALSE, FALSE}).get(), none.get()), Excluded);
    EXPECT_EQ(answer_of(none.get(), none.get()), Matched);
    EXPECT_EQ(answer_of(none.get(), make({"1", "", FALSE, FALSE}).get()), Matched);
}

TEST(KeyValueContainmentTable, AFlagOfTwoCountsAsOne)
{
    EXPECT_EQ(answer_of(make({"1", "", FALSE, FALSE}).get(), make({"1", "", FALSE, 2}).get()),
              Excluded);
    EXPECT_EQ(answer_of(make({"1", "", FALSE, FALSE}).get(), make({"2", "", 2, FALSE}).get()),
              Matched);
    EXPECT_EQ(answer_of(nullptr, make({"1", "", FALSE, 2}).get()), Nothing);
}

TEST(KeyValueContainmentTable, AKeyWildcardConditionWithoutAContainerIsNotLookedAt)
{
    Owned<key_value> condition(key_value_new(nullptr, TRUE, "", "", "1", FALSE, "", "", "", FALSE));
    EXPECT_EQ(answer_of(nullptr, condition.get()), Excluded);
}

using KeyValueContainmentTableDeathTest = testing::Test;

TEST_F(KeyValueContainmentTableDeathTest, AKeyWildcardOnEitherSideEndsTheProcess)
{
    Owned<key_value> wildcard(key_value_new(nullptr, TRUE, "", "", "1", FALSE, "", "", "", FALSE));
    Owned<key_value> plain = make({"1", "", FALSE, FALSE});
    constexpr const char *text =
        "key_value_is_contained: assertion failed: .key_value_container->key_wildcard == FALSE && "
        "key_value_containee->key_wildcard == FALSE";
    EXPECT_DEATH(answer_of(wildcard.get(), plain.get()), text);
    EXPECT_DEATH(answer_of(plain.get(), wildcard.get()), text);
    Owned<key_value> two(key_value_new("k", 2, "", "", "1", FALSE, "", "", "", FALSE));
    EXPECT_DEATH(answer_of(plain.get(), two.get()), text);
}

} // namespace
