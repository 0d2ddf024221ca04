// SPDX-License-Identifier: LGPL-2.1-or-later

// What the index of expressions costs at worst, in steps: never more than twice what the plain
// matcher takes, which looks at the conditions of one expression after another until it knows.

#include "model/expressionindex.hpp"

#include "model/inspectable.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace qandor;

namespace {

using Record = std::unique_ptr<inspectable>;

Record record(guint32 type)
{
    return std::make_unique<inspectable>(type);
}

void add(inspectable &record, const std::string &key, const char *value, bool negated = false)
{
    record.current()->add(
        key_value(KeyName::intern(key), FALSE, value ? value : "", !value, negated));
}

void add(inspectable &record, const std::string &key, const std::string &value,
         bool negated = false)
{
    add(record, key, value.c_str(), negated);
}

// Whether one bucket's conditions hold, asked of the matcher itself.
bool holds(const inspectable &container, Bucket bucket)
{
    Record alone = record(IT_SUBSCRIBE_EXPRESSION);
    for (const key_value &condition : bucket)
        alone->current()->add(key_value(condition));
    return inspectable_contains(&container, alone.get());
}

std::size_t plain_steps(const inspectable &container, const inspectable &expression)
{
    std::size_t steps = 0;
    for (const AndList &conditions : expression.and_lists) {
        ++steps;
        bool all_hold = true;
        for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
            for (std::size_t i = 0; all_hold && i < buckets.size(); ++i) {
                steps += buckets[i].count();
                all_hold = holds(container, buckets[i]);
            }
        if (all_hold)
            break;
    }
    return steps;
}

struct Shape {
    const char *name;
    std::function<Record(unsigned number)> make;
    std::function<Record()> make_container;
    unsigned count = 300;
};

Record event_of(std::initializer_list<std::pair<const char *, const char *>> values)
{
    Record made = record(IT_EVENT_DECLARATION);
    for (const auto &[key, value] : values)
        add(*made, key, value);
    return made;
}

void begin_alternative(inspectable &expression, bool is_first)
{
    if (!is_first)
        expression.and_lists.add();
}

const Shape shapes[] = {
    {"AnOpenValueBeforeTheTellingOne",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "topic0", "T");
         add(*made, "level", std::to_string(i));
         add(*made, "id", std::to_string(i));
         return made;
     },
     [] {
         return event_of({{"topic0", "T"}, {"level", nullptr}, {"id", "7"}});
     }},
    {"CommonNegatedConditionsBeforeTheTellingOne",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (int j = 0; j < 33; ++j)
             add(*made, "x" + std::to_string(j), "no", true);
         add(*made, "id", std::to_string(i), true);
         add(*made, "z", "1", true);
         return made;
     },
     [] {
         return event_of({{"x0", "yes"}, {"id", "7"}, {"z", "1"}});
     }},
    {"ManyAlternativesThatAllHold",
     [](unsigned number) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 500; ++i) {
             begin_alternative(*made, i == 0);
             add(*made, "c", std::to_string(500 * number + i), true);
         }
         return made;
     },
     [] {
         return event_of({{"a", "1"}});
     },
     40},
    {"EmptyAlternatives",
     [](unsigned) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 5000; ++i)
             made->and_lists.add();
         return made;
     },
     [] {
         return event_of({{"a", "1"}});
     },
     40},
    {"ManyValuesOfAnOpenKey",
     [](unsigned number) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 256; ++i)
             add(*made, "a", std::to_string(256 * number + i));
         return made;
     },
     [] {
         return event_of({{"a", nullptr}});
     },
     40},
    {"AValueThatTheContainerHasOverAndOver",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "a", "1");
         add(*made, "b", "1");
         add(*made, "c", "1");
         add(*made, "d", std::to_string(i));
         return made;
     },
     [] {
         Record made = record(IT_EVENT_DECLARATION);
         for (const char *key : {"a", "b", "c"})
             for (int i = 0; i < 100; ++i)
                 made->current()->add(key_value(KeyName::intern(key), FALSE, "1", FALSE, FALSE));
         add(*made, "d", "3");
         return made;
     }},
    {"AValueThatEveryKeyHas",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         made->current()->add(key_value(KeyName::intern(""), TRUE, "1", FALSE, FALSE));
         add(*made, "d", std::to_string(i), true);
         return made;
     },
     [] {
         Record made = record(IT_EVENT_DECLARATION);
         for (int i = 0; i < 200; ++i)
             add(*made, "key" + std::to_string(i), "1");
         return made;
     }},
};

class IndexBounds : public testing::TestWithParam<Shape> {
protected:
    void SetUp() override
    {
        container = GetParam().make_container();
        for (unsigned i = 0; i < GetParam().count; ++i)
            expressions.push_back(GetParam().make(i));
    }

    std::size_t fill(ExpressionIndex &index)
    {
        for (guint32 i = 0; i < expressions.size(); ++i)
            index.add(i, *expressions[i]);
        return index.record_count();
    }

    Record container;
    std::vector<Record> expressions;
};

TEST_P(IndexBounds, ASearchTakesAtMostTwiceTheStepsOfLookingAtEach)
{
    using Containers = ExpressionIndex::Containers;
    for (Containers containers : {Containers::Events, Containers::Declarations}) {
        ExpressionIndex index(containers);
        fill(index);
        std::size_t plain = 0, expected = 0;
        for (const Record &expression : expressions) {
            plain += plain_steps(*container, *expression);
            expected += inspectable_contains(container.get(), expression.get()) ? 1 : 0;
        }
        Matches matches;
        std::size_t steps = index.find_candidates(*container, matches);
        EXPECT_LE(matches.size(), expressions.size());
        EXPECT_LE(matches.capacity(), 6 * expressions.size() + 200);
        for (const Match &match : matches)
            steps += match.is_proven ? 0 : plain_steps(*container, *match.record);
        EXPECT_LE(steps, 2 * plain);
        index.find(*container, matches);
        EXPECT_EQ(matches.size(), expected);
    }
}

TEST_P(IndexBounds, WhatIsTakenOutLeavesNoLongWayBehind)
{
    ExpressionIndex index(ExpressionIndex::Containers::Events);
    fill(index);
    for (guint32 i = 1; i < expressions.size(); ++i)
        index.remove(i);
    // It and the leaves of its values, of which an expression has 256 at most.
    EXPECT_LE(index.record_count(), 300u);
    Matches matches;
    index.find(*container, matches);
    EXPECT_EQ(matches.size(), inspectable_contains(container.get(), expressions[0].get()) ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(, IndexBounds, testing::ValuesIn(shapes),
                         [](const auto &info) { return std::string(info.param.name); });

// 213 KB each: once for all their values, and as many times again at every key.
TEST(IndexBound, OfManyKeysOfManyValuesEachOneOnlyForks)
{
    ExpressionIndex index(ExpressionIndex::Containers::Events);
    std::vector<Record> expressions;
    for (guint32 id = 0; id < 8; ++id) {
        Record &made = expressions.emplace_back(record(IT_SUBSCRIBE_EXPRESSION));
        for (int key = 0; key < 32; ++key)
            for (int value = 0; value < 256; ++value)
                add(*made, "key" + std::to_string(key), std::to_string(value));
        index.add(id, *made);
    }
    EXPECT_LE(index.record_count(), 8 + 256 + 64u + 32);
    Record event = record(IT_EVENT);
    for (int key = 0; key < 32; ++key)
        add(*event, "key" + std::to_string(key), "17");
    Matches matches;
    index.find(*event, matches);
    EXPECT_EQ(matches.size(), 8u);
    for (guint32 id = 0; id < 8; ++id)
        index.remove(id);
    EXPECT_LE(index.record_count(), 32u); // what is known of the keys
}

// Which would become ever more if what comes back from below forked again.
TEST(IndexBound, AForkThatManyJoinAndLeaveStaysWhatItWas)
{
    ExpressionIndex index(ExpressionIndex::Containers::Events);
    std::vector<Record> expressions;
    for (guint32 id = 0; id < 8; ++id) {
        Record &made = expressions.emplace_back(record(IT_SUBSCRIBE_EXPRESSION));
        add(*made, "a", "1");
        add(*made, "b", "1");
        add(*made, "b", "2");
    }
    std::size_t most = 0;
    for (int round = 0; round < 50; ++round) {
        for (guint32 id = 0; id < 8; ++id)
            index.add(id, *expressions[id]);
        most = round == 0 ? index.record_count() : most;
        EXPECT_LE(index.record_count(), most);
        for (guint32 id = 1; id < 8; ++id)
            index.remove(id);
    }
    Record event = event_of({{"a", "1"}, {"b", "2"}});
    Matches matches;
    std::size_t steps = index.find_candidates(*event, matches);
    EXPECT_EQ(matches.size(), 1u);
    EXPECT_LT(steps, 20u);
}

} // namespace
