// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/expressionindex.hpp"
#include "unit/model/randominspectables.hpp"

#include <gtest/gtest.h>

#include <deque>
#include <thread>

using namespace qandor;
using namespace qandor::test;

namespace {

using Ids = std::vector<guint32>;

Ids ids_of(const Matches &matches)
{
    Ids ids;
    for (const Match &match : matches)
        ids.push_back(match.id);
    return ids;
}

Ids found(const ExpressionIndex &index, const inspectable &container)
{
    Matches matches;
    index.find(container, matches);
    return ids_of(matches);
}

struct Condition {
    const char *key;
    const char *value;
    bool negated = false;
    const char *name_space = "";
};

std::unique_ptr<inspectable> record(guint32 type, std::initializer_list<Condition> conditions)
{
    auto made = std::make_unique<inspectable>(type);
    for (const Condition &condition : conditions) {
        key_value key_value(KeyName::intern(condition.key ? condition.key : ""), !condition.key,
                            condition.value ? condition.value : "", !condition.value,
                            condition.negated);
        key_value.set_attribute(Attribute::NameSpace, condition.name_space);
        made->and_lists.last()->add(std::move(key_value));
    }
    return made;
}

std::unique_ptr<inspectable> expression(std::initializer_list<Condition> conditions)
{
    return record(IT_SUBSCRIBE_EXPRESSION, conditions);
}

std::unique_ptr<inspectable> an_event(std::initializer_list<Condition> values)
{
    return record(IT_EVENT, values);
}

// An index of expressions that are kept beside it.
class FilledIndex : public ExpressionIndex {
public:
    explicit FilledIndex(Containers containers = Containers::Events) : ExpressionIndex(containers)
    {
    }
    void add(guint32 id, std::unique_ptr<inspectable> expression)
    {
        ExpressionIndex::add(id, *expressions_.emplace_back(std::move(expression)));
    }

private:
    std::vector<std::unique_ptr<inspectable>> expressions_;
};

TEST(ExpressionIndex, AnEmptyOneFindsNothing)
{
    FilledIndex index;
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids());
    index.add(1, expression({}));
    index.remove(1);
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids());
}

TEST(ExpressionIndex, ResultsComeInTheOrderOfAdditionWhateverTheIds)
{
    FilledIndex index;
    index.add(7, expression({{"a", "1"}}));
    index.add(3, expression({}));
    index.add(5, expression({{"b", "2"}}));
    index.add(4, expression({{"a", nullptr}}));
    EXPECT_EQ(found(index, *an_event({{"a", "1"}, {"b", "2"}})), Ids({7, 3, 5, 4}));
}

TEST(ExpressionIndex, AnIdThatIsAddedAgainGoesToTheEnd)
{
    FilledIndex index;
    index.add(1, expression({{"a", "1"}}));
    index.add(2, expression({}));
    index.add(1, expression({{"a", "2"}}));
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids({2}));
    EXPECT_EQ(found(index, *an_event({{"a", "2"}})), Ids({2, 1}));
}

TEST(ExpressionIndex, AnExpressionWithSeveralWaysToMatchIsFoundOnce)
{
    FilledIndex index;
    for (guint32 id = 1; id <= 20; ++id) {
        auto both = expression({{"a", "1"}, {"a", "2"}, {nullptr, "x"}});
        both->and_lists.add().add(key_value(KeyName::intern("b"), FALSE, "x", FALSE, FALSE));
        index.add(id, std::move(both));
    }
    Ids all = found(index, *an_event({{"a", "1"}, {"b", "x"}}));
    EXPECT_EQ(all.size(), 20u);
    EXPECT_EQ(found(index, *an_event({{"a", "3"}, {"b", "x"}})), all);
    EXPECT_EQ(found(index, *an_event({{"a", "2"}, {"c", "x"}})), all);
    EXPECT_EQ(found(index, *an_event({{"a", "3"}, {"c", "x"}})), Ids());
}

TEST(ExpressionIndex, AnExpressionWithoutAlternativesIsNeverFound)
{
    FilledIndex index;
    index.add(1, std::make_unique<inspectable>(inspectable::Unread()));
    EXPECT_EQ(found(index, *an_event({})), Ids());
    index.remove(1);
    index.remove(1);
}

TEST(ExpressionIndex, EveryNameSpaceThatIsWantedIsFoundAmongManyOthers)
{
    FilledIndex index;
    std::deque<std::string> names;
    for (guint32 i = 0; i < 50; ++i) {
        const char *name_space = names.emplace_back("n" + std::to_string(i)).c_str();
        index.add(2 * i, expression({{"a", "1", false, name_space}}));
        index.add(2 * i + 1, expression({{"a", nullptr, false, name_space}}));
    }
    index.add(1000, expression({{"a", "1"}}));
    EXPECT_EQ(found(index, *an_event({{"a", "1", false, "n7"}})), Ids({14, 15, 1000}));
    EXPECT_EQ(found(index, *an_event({{"a", "2", false, "n7"}})), Ids({15}));
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids({1000}));
}

TEST(ExpressionIndex, AConditionOnAnyKeyTakesNoNoticeOfItsNameSpace)
{
    FilledIndex index;
    for (guint32 id = 0; id < 20; ++id)
        index.add(id, expression({{nullptr, "x", false, "n"}}));
    EXPECT_EQ(found(index, *an_event({{"a", "x"}})).size(), 20u);
}

TEST(ExpressionIndex, AnOpenValueOfADeclarationStandsForAll)
{
    FilledIndex index(ExpressionIndex::Containers::Declarations);
    std::deque<std::string> values;
    for (guint32 id = 0; id < 30; ++id)
        index.add(id, expression({{"a", values.emplace_back(std::to_string(id)).c_str()}}));
    auto declaration = record(IT_EVENT_DECLARATION, {{"a", nullptr}});
    EXPECT_EQ(found(index, *declaration).size(), 30u);
}

TEST(ExpressionIndex, ExpressionsLongerThanItLooksAtAreFound)
{
    FilledIndex index;
    std::deque<std::string> names;
    auto event = an_event({});
    for (int i = 0; i < 100; ++i)
        event->and_lists.last()->add(
            key_value(KeyName::intern("long" + std::to_string(i)), FALSE, "1", FALSE, FALSE));
    for (guint32 id = 0; id < 40; ++id) {
        auto long_one = std::make_unique<inspectable>(*event, IT_SUBSCRIBE_EXPRESSION);
        if (id % 2)
            long_one->and_lists.last()->add(
                key_value(KeyName::intern("last"), FALSE, "1", FALSE, FALSE));
        for (int i = 0; i < 1000; ++i)
            long_one->and_lists.last()->add(
                key_value(KeyName::intern("long0"), FALSE, "v" + std::to_string(i), FALSE, FALSE));
        index.add(id, std::move(long_one));
    }
    EXPECT_EQ(found(index, *event).size(), 20u);
}

TEST(ExpressionIndex, WhatIsRemovedLeavesNothingBehind)
{
    FilledIndex index;
    RandomInspectables random(3);
    Variety variety{.name = "", .negated = 30, .open = 20, .any_key = 20, .repeated = 30};
    for (int round = 0; round < 3; ++round) {
        for (guint32 id = 0; id < 300; ++id)
            index.add(id, random.make(IT_SUBSCRIBE_EXPRESSION, variety));
        for (guint32 id = 0; id < 300; ++id)
            index.remove(id);
    }
    // What is known of the four keys, and of any key.
    EXPECT_LE(index.record_count(), 5u);
}

TEST(ExpressionIndex, OneThatIsClearedStartsAnew)
{
    FilledIndex index;
    for (guint32 id = 0; id < 20; ++id)
        index.add(id, expression({{"a", "1"}}));
    index.clear();
    EXPECT_EQ(index.record_count(), 0u);
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids());
    index.add(1, expression({{"a", "1"}}));
    EXPECT_EQ(found(index, *an_event({{"a", "1"}})), Ids({1}));
}

TEST(ExpressionIndex, ThreadsMaySearchAtOnce)
{
    FilledIndex index;
    RandomInspectables random(5);
    Variety variety{.name = "", .keys = 6, .values = 6, .negated = 20, .open = 20, .any_key = 20};
    for (guint32 id = 0; id < 500; ++id)
        index.add(id, random.make(IT_SUBSCRIBE_EXPRESSION, variety));
    variety.any_key = 0;
    auto event = random.make(IT_EVENT, variety);
    Ids expected = found(index, *event);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round)
                ASSERT_EQ(found(index, *event), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}

// What the plain matcher says of each expression, in the order of addition.
class Expected {
public:
    void add(guint32 id, std::unique_ptr<inspectable> expression)
    {
        remove(id);
        expressions_.emplace_back(id, std::move(expression));
    }
    void remove(guint32 id)
    {
        std::erase_if(expressions_, [id](const auto &one) { return one.first == id; });
    }
    void clear() { expressions_.clear(); }
    Ids find(const inspectable &container) const
    {
        Ids ids;
        for (const auto &[id, expression] : expressions_)
            if (inspectable_contains(&container, expression.get()))
                ids.push_back(id);
        return ids;
    }

private:
    std::vector<std::pair<guint32, std::unique_ptr<inspectable>>> expressions_;
};

const Variety varieties[] = {
    {.name = "Plain", .keys = 5, .values = 4},
    {.name = "ManyKeys", .keys = 40, .values = 2},
    {.name = "ManyValues", .keys = 3, .values = 100},
    {.name = "Negated", .negated = 100, .open = 20, .any_key = 10},
    {.name = "Repeated", .keys = 3, .values = 6, .conditions = 8, .negated = 20, .repeated = 60},
    {.name = "AnyKey", .negated = 20, .any_key = 60},
    {.name = "NameSpaces",
     .keys = 3,
     .negated = 20,
     .open = 30,
     .in_name_space = 60,
     .repeated = 20},
    {.name = "ManyAlternatives",
     .keys = 6,
     .values = 6,
     .conditions = 3,
     .alternatives = 24,
     .negated = 20,
     .any_key = 20},
    {.name = "LongBuckets",
     .keys = 3,
     .values = 60,
     .conditions = 80,
     .negated = 3,
     .repeated = 90},
    {.name = "ShortBuckets", .keys = 8, .values = 4, .conditions = 20, .repeated = 60},
    {.name = "ManyNegated", .keys = 20, .values = 3, .conditions = 40, .negated = 95},
    {.name = "Deep", .keys = 30, .values = 1, .conditions = 60, .repeated = 40},
    {.name = "Mixed",
     .keys = 6,
     .values = 5,
     .conditions = 5,
     .alternatives = 3,
     .negated = 25,
     .open = 20,
     .any_key = 15,
     .in_name_space = 20,
     .repeated = 25},
};

class IndexProperty : public testing::TestWithParam<Variety> {};

// Events as they are, then containers with whatever may come off the wire.
std::unique_ptr<inspectable> make_container(RandomInspectables &random, Variety variety)
{
    static const guint32 types[] = {IT_EVENT, IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION};
    guint32 type = types[random.number(3)];
    variety.conditions = 2 * variety.keys;
    if (type == IT_EVENT && random.number(2))
        variety.negated = variety.open = variety.repeated = 0;
    if (type != IT_SUBSCRIBE_EXPRESSION) {
        variety.any_key = 0;
        variety.alternatives = 1;
    }
    variety.any_key /= 4;
    return random.make(type, variety);
}

TEST_P(IndexProperty, FindsWhatThePlainMatcherFindsWhileExpressionsComeAndGo)
{
    const Variety &variety = GetParam();
    std::size_t all_found = 0, all = 0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(seed);
        RandomInspectables random(seed);
        FilledIndex index(seed % 2 ? ExpressionIndex::Containers::Events
                                   : ExpressionIndex::Containers::Declarations);
        Expected expected;
        for (unsigned round = 0; round < 2500; ++round) {
            // Grows, and shrinks again.
            guint32 id = random.number(400);
            if (random.number(1250) > round % 1250) {
                auto made = random.make(IT_SUBSCRIBE_EXPRESSION, variety);
                expected.add(id, std::make_unique<inspectable>(*made, IT_SUBSCRIBE_EXPRESSION));
                index.add(id, std::move(made));
            } else {
                expected.remove(id);
                index.remove(id);
            }
            if (round % 5 != 0)
                continue;
            auto container = make_container(random, variety);
            Ids ids = expected.find(*container);
            ASSERT_EQ(found(index, *container), ids) << "round " << round;
            all_found += ids.size();
            ++all;
        }
    }
    EXPECT_GT(all_found, all / 2); // or the test says little
}

INSTANTIATE_TEST_SUITE_P(, IndexProperty, testing::ValuesIn(varieties),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
