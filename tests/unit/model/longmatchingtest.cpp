// SPDX-License-Identifier: LGPL-2.1-or-later

// Matching of records with very many values of a key, conditions on a key, key wildcards and
// alternatives: the same answers as ever, from work that grows with the one plus the other.

#include "model/matching.hpp"

#include "model/inspectable.hpp"
#include "unit/model/naivemodel.hpp"

#include <gtest/gtest.h>

#include <random>

using namespace qandor;
using namespace qandor::test;

namespace {

using Record = std::unique_ptr<inspectable>;

Record record(const NaiveInspectable &content)
{
    auto made = std::make_unique<inspectable>(inspectable::Unread());
    made->type = IT_SUBSCRIBE_EXPRESSION;
    for (const NaiveAndList &list : content) {
        AndList &its = made->and_lists.add();
        for (const NaiveKeyValue &one : list) {
            key_value copy(KeyName::intern(one.key), one.key_wildcard, one.value,
                           one.value_wildcard, one.negated);
            copy.set_attribute(Attribute::NameSpace, one.name_space);
            its.add(std::move(copy));
        }
    }
    return made;
}

// Few keys of very many values, among which few are open, negated or in a name space: any of them
// may decide.
class RandomLists {
public:
    explicit RandomLists(unsigned seed) : engine_(seed) {}

    unsigned number(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }

    NaiveAndList container()
    {
        one_of_ = 1U << number(10);
        return list(number(200), 0);
    }
    NaiveAndList conditions()
    {
        one_of_ = 1U << number(10);
        return list(1 + number(number(2) ? 4 : 200), number(2) * number(100));
    }

private:
    bool rarely() { return number(one_of_) == 0 && number(2); }

    NaiveAndList list(unsigned size, unsigned wildcards)
    {
        NaiveAndList made;
        for (unsigned i = 0; i < size; ++i) {
            NaiveKeyValue one;
            one.key_wildcard = number(100) < wildcards;
            one.key = one.key_wildcard ? "" : "key" + std::to_string(number(3));
            one.value_wildcard = !one.key_wildcard && rarely();
            one.value = one.value_wildcard ? "" : "v" + std::to_string(number(400));
            one.negated = rarely();
            one.name_space = rarely() ? "m" : number(one_of_) ? "" : "n";
            made.push_back(one);
        }
        return made;
    }

    std::mt19937 engine_;
    unsigned one_of_ = 1;
};

TEST(LongMatchingProperty, TheAnswersAreThoseOfThePlainRules)
{
    unsigned satisfied = 0;
    for (unsigned seed = 1; seed <= 1000; ++seed) {
        RandomLists random(seed);
        NaiveInspectable container{random.container()}, expression;
        if (seed % 10 == 0)
            container.push_back(random.container());
        for (unsigned i = random.number(4); i < 4; ++i)
            expression.push_back(random.conditions());
        Record present = record(container), wanted = record(expression);
        bool expected = naive_contains(container, expression);
        ASSERT_EQ(static_cast<bool>(inspectable_contains(present.get(), wanted.get())), expected)
            << "seed " << seed;
        satisfied += expected ? 1 : 0;

        Containment several(*present);
        for (const NaiveAndList &list : expression)
            ASSERT_EQ(several.satisfies(*record({list})), naive_contains(container, {list}))
                << "seed " << seed;
    }
    EXPECT_GT(satisfied, 100u);
    EXPECT_LT(satisfied, 900u);
}

NaiveKeyValue value_of(const char *key, const std::string &value, bool negated = false)
{
    return {key, value, "", !*key, false, negated};
}

NaiveAndList values_of(const char *key, unsigned count, const char *prefix, bool negated = false)
{
    NaiveAndList list;
    for (unsigned i = 0; i < count; ++i)
        list.push_back(value_of(key, prefix + std::to_string(i), negated));
    return list;
}

// One by one these would take about 100 million comparisons each.
constexpr unsigned most = 9000;
constexpr std::size_t few_comparisons = 1000;

TEST(LongMatching, ManyConditionsOnAKeyOfManyValuesAreLookedUp)
{
    Record present = record({values_of("a", most, "v")});
    for (bool negated : {false, true}) {
        Containment containment(*present);
        EXPECT_EQ(containment.satisfies(*record({values_of("a", most, "w", negated)})), negated);
        NaiveAndList meeting = values_of("a", most, "w", negated);
        meeting.push_back(value_of("a", "v8999", negated));
        EXPECT_EQ(containment.satisfies(*record({meeting})), !negated);
        EXPECT_LT(containment.comparisons(), few_comparisons);
    }
}

TEST(LongMatching, ManyKeyWildcardsAreLookedUp)
{
    Record present = record({values_of("a", most, "v")});
    for (bool negated : {false, true}) {
        Containment containment(*present);
        EXPECT_FALSE(containment.satisfies(*record({values_of("", most, "v", true)})));
        EXPECT_TRUE(containment.satisfies(*record({values_of("", most, "v")})));
        EXPECT_EQ(containment.satisfies(*record({values_of("", most, "w", negated)})), negated);
        EXPECT_LT(containment.comparisons(), few_comparisons);
    }
}

TEST(LongMatching, ManyAlternativesShareWhatIsLookedUp)
{
    Record present = record({values_of("a", most, "v")});
    NaiveInspectable of_key, of_any_key;
    for (unsigned i = 0; i < most; ++i) {
        of_key.push_back({value_of("a", "w" + std::to_string(i))});
        of_any_key.push_back({value_of("", "w" + std::to_string(i))});
    }
    Containment containment(*present);
    EXPECT_FALSE(containment.satisfies(*record(of_key)));
    EXPECT_FALSE(containment.satisfies(*record(of_any_key)));
    EXPECT_LT(containment.comparisons(), few_comparisons);
}

// Many values of many keys, which each alternative would walk through.
TEST(LongMatching, ManyKeysAreCountedOnce)
{
    NaiveAndList keys;
    for (unsigned i = 0; i < most; ++i)
        keys.push_back(value_of(("key" + std::to_string(i)).c_str(), "v"));
    NaiveInspectable alternatives;
    for (unsigned i = 0; i < most; ++i)
        alternatives.push_back({value_of("", "w" + std::to_string(i))});
    Record present = record({keys});
    Containment containment(*present);
    EXPECT_FALSE(containment.satisfies(*record(alternatives)));
    EXPECT_LT(containment.comparisons(), few_comparisons);
}

} // namespace
