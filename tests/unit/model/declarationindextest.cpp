// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/declarationindex.hpp"
#include "unit/model/plainscan.hpp"
#include "unit/model/randominspectables.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace qandor;
using namespace qandor::test;

namespace {

using Ids = std::vector<guint32>;

Ids found(const DeclarationIndex &index, const inspectable &expression)
{
    Matches matches;
    index.find(expression, matches);
    Ids ids;
    for (const Match &match : matches)
        ids.push_back(match.id);
    return ids;
}

// An and-list of these keys; a value that is NULL is open in a declaration, any in an expression.
std::unique_ptr<inspectable>
record(guint32 type, std::initializer_list<std::pair<const char *, const char *>> content)
{
    auto made = std::make_unique<inspectable>(type);
    for (auto [key, value] : content)
        inspectable_add_key_value(made.get(), key, !key, value, !value, FALSE);
    return made;
}

TEST(DeclarationIndex, FindsByValueByOpenValueAndByKeyInTheOrderOfAddition)
{
    auto fixed = record(IT_EVENT_DECLARATION, {{"topic0", "T"}, {"a", "1"}});
    auto open = record(IT_EVENT_DECLARATION, {{"topic0", "T"}, {"a", nullptr}});
    auto other = record(IT_EVENT_DECLARATION, {{"topic0", "T"}, {"b", nullptr}});
    DeclarationIndex index;
    index.add(9, *open);
    index.add(4, *fixed);
    index.add(6, *other);
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", "1"}})), Ids({9, 4}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", "2"}})), Ids({9}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", nullptr}})), Ids({9, 4}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"topic0", "T"}})), Ids({9, 4, 6}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {})), Ids({9, 4, 6}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{nullptr, "1"}})), Ids({9, 4, 6}));
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"c", "1"}})), Ids());
    index.add(9, *other);
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"b", "2"}})), Ids({6, 9}));
    index.remove(4);
    index.remove(4);
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", nullptr}})), Ids());
}

Matches candidates(const DeclarationIndex &index, const inspectable &expression)
{
    Matches matches;
    index.find_candidates(expression, matches);
    return matches;
}

// However many alternatives there are, and whatever they want.
TEST(DeclarationIndex, ASearchGathersEveryDeclarationOnceAtMost)
{
    constexpr std::size_t count = 500;
    std::vector<std::unique_ptr<inspectable>> declarations;
    DeclarationIndex index;
    for (guint32 id = 0; id < count; ++id) {
        declarations.push_back(record(IT_EVENT_DECLARATION, {{"topic0", "T"}, {"a", nullptr}}));
        index.add(id, *declarations.back());
    }
    auto empty = record(IT_SUBSCRIBE_EXPRESSION, {});
    auto open = record(IT_SUBSCRIBE_EXPRESSION, {{"a", nullptr}});
    auto of_topic = record(IT_SUBSCRIBE_EXPRESSION, {{"topic0", "T"}});
    auto of_nothing = record(IT_SUBSCRIBE_EXPRESSION, {{"topic0", "other"}});
    for (inspectable *expression : {empty.get(), open.get(), of_topic.get(), of_nothing.get()}) {
        inspectable many(*expression, IT_SUBSCRIBE_EXPRESSION);
        for (int i = 0; i < 10000; ++i)
            many.and_lists.add() = AndList(*expression->current());
        Matches found = candidates(index, many);
        EXPECT_EQ(found.size(), expression == of_nothing.get() ? 0 : count);
        EXPECT_LE(found.capacity(), 2 * count);
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                                   [](const Match &a, const Match &b) { return a.id < b.id; }));
    }
}

TEST(DeclarationIndex, TheSameValuesWantedOverAndOverAreLookedUpOnce)
{
    std::vector<std::unique_ptr<inspectable>> declarations;
    DeclarationIndex index;
    for (guint32 id = 0; id < 100; ++id) {
        declarations.push_back(record(IT_EVENT_DECLARATION, {{"topic0", id < 5 ? "T" : "U"}}));
        index.add(id, *declarations.back());
    }
    auto many = record(IT_SUBSCRIBE_EXPRESSION, {{"topic0", "T"}});
    for (int i = 0; i < 200; ++i)
        many->and_lists.add() = AndList(*many->current());
    EXPECT_EQ(candidates(index, *many).size(), 5u);
}

TEST(DeclarationIndex, AValueThatADeclarationHasManyTimesIsFiledOnce)
{
    auto repeated = record(IT_EVENT_DECLARATION, {});
    for (int i = 0; i < 11500; ++i)
        repeated->and_lists.last()->add(key_value(KeyName::intern("a"), FALSE, "1", FALSE, FALSE));
    DeclarationIndex index;
    index.add(1, *repeated);
    EXPECT_EQ(found(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", "1"}})), Ids({1}));
    EXPECT_EQ(candidates(index, *record(IT_SUBSCRIBE_EXPRESSION, {{"a", nullptr}})).capacity(), 1u);
}

class DeclarationIndexBounds : public testing::TestWithParam<DeclarationShape> {};

// Beyond the expression itself, which has to be read once.
TEST_P(DeclarationIndexBounds, ASearchTakesAtMostTwiceTheStepsOfLookingAtEach)
{
    Record expression = GetParam().make_expression();
    std::vector<Record> declarations;
    DeclarationIndex index;
    std::size_t plain = 0;
    Ids expected;
    for (guint32 id = 0; id < GetParam().count; ++id) {
        const Record &declaration = declarations.emplace_back(GetParam().make(id));
        index.add(id, *declaration);
        plain += PlainScan(*declaration).steps(*expression);
        if (inspectable_contains(declaration.get(), expression.get()))
            expected.push_back(id);
    }
    Matches matches;
    std::size_t steps = index.find_candidates(*expression, matches);
    for (const Match &match : matches)
        steps += PlainScan(*match.record).steps(*expression);
    EXPECT_LE(steps, 2 * plain + size_of(*expression));
    EXPECT_EQ(found(index, *expression), expected);
}

INSTANTIATE_TEST_SUITE_P(, DeclarationIndexBounds,
                         testing::ValuesIn(declaration_shapes().begin(),
                                           declaration_shapes().end()),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(DeclarationIndex, TheMemoryOfAHugeSearchIsGivenBack)
{
    auto one = record(IT_EVENT_DECLARATION, {{"a", "1"}});
    DeclarationIndex index;
    for (guint32 id = 0; id < 20000; ++id)
        index.add(id, *one);
    Matches matches;
    index.find(*record(IT_SUBSCRIBE_EXPRESSION, {}), matches);
    EXPECT_EQ(matches.size(), 20000u);
    index.find(*record(IT_SUBSCRIBE_EXPRESSION, {{"b", "1"}}), matches);
    EXPECT_LE(matches.capacity(), 5000u);
}

TEST(DeclarationIndex, WhatIsRemovedLeavesNothingBehind)
{
    RandomInspectables random(1);
    Variety variety{.name = "", .open = 30};
    std::vector<std::unique_ptr<inspectable>> declarations;
    DeclarationIndex index;
    for (guint32 id = 0; id < 100; ++id)
        index.add(id, *declarations.emplace_back(random.make(IT_EVENT_DECLARATION, variety)));
    for (guint32 id = 0; id < 100; ++id)
        index.remove(id);
    EXPECT_EQ(index.record_count(), 0u);
}

TEST(DeclarationIndexProperty, FindsWhatThePlainMatcherFindsWhileDeclarationsComeAndGo)
{
    Variety variety{.name = "",
                    .keys = 6,
                    .values = 4,
                    .conditions = 6,
                    .negated = 15,
                    .open = 30,
                    .in_name_space = 20,
                    .repeated = 15};
    Variety wanted = variety;
    wanted.any_key = 10;
    wanted.alternatives = 3;
    RandomInspectables random(17);
    DeclarationIndex index;
    std::map<guint32, std::unique_ptr<inspectable>> declarations; // by id, which only grows
    std::size_t all_found = 0;
    for (guint32 id = 1; id < 6000; ++id) {
        auto made = random.make(random.number(9) ? IT_EVENT_DECLARATION : IT_SUBSCRIBE_EXPRESSION,
                                random.number(20) ? variety : wanted);
        index.add(id, *made);
        declarations.emplace(id, std::move(made));
        if (declarations.size() > 100 || random.number(3) == 0) {
            auto gone = std::next(declarations.begin(),
                                  random.number(static_cast<unsigned>(declarations.size())));
            index.remove(gone->first);
            declarations.erase(gone);
        }
        auto expression = random.make(IT_SUBSCRIBE_EXPRESSION, wanted);
        Ids expected;
        for (const auto &[its_id, declaration] : declarations)
            if (inspectable_contains(declaration.get(), expression.get()))
                expected.push_back(its_id);
        ASSERT_EQ(found(index, *expression), expected) << "round " << id;
        all_found += expected.size();
    }
    EXPECT_GT(all_found, 6000u); // or the test says little
}

} // namespace
