// SPDX-License-Identifier: LGPL-2.1-or-later

// What the index of expressions costs at worst, in steps: never more than twice what the plain
// matcher takes, which looks at the conditions of one expression after another until it knows.

#include "model/expressionindex.hpp"

#include "unit/model/plainscan.hpp"

#include <gtest/gtest.h>

#include <set>

using namespace qandor;
using namespace qandor::test;

namespace {

std::size_t count_keys(const std::vector<Record> &expressions)
{
    std::set<const KeyName *> keys;
    for (const Record &expression : expressions)
        for (const AndList &conditions : expression->and_lists)
            for (Bucket bucket : conditions.keyed())
                keys.insert(bucket.key());
    return keys.size();
}

class IndexBounds : public testing::TestWithParam<ExpressionShape> {
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
    PlainScan scan(*container);
    for (Containers containers : {Containers::Events, Containers::Declarations}) {
        ExpressionIndex index(containers);
        fill(index);
        std::size_t plain = 0, expected = 0;
        for (const Record &expression : expressions) {
            plain += scan.steps(*expression);
            expected += inspectable_contains(container.get(), expression.get()) ? 1 : 0;
        }
        Matches matches;
        std::size_t steps = index.find_candidates(*container, matches);
        EXPECT_LE(matches.size(), expressions.size());
        EXPECT_LE(matches.capacity(), 6 * expressions.size() + 200);
        for (const Match &match : matches)
            steps += match.is_proven ? 0 : scan.steps(*match.record);
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
    // It and the leaves of its values, of which an expression has 256 at most; and what is known of
    // each key, which stays like its name.
    EXPECT_LE(index.record_count(), 300u + count_keys(expressions));
    Matches matches;
    index.find(*container, matches);
    EXPECT_EQ(matches.size(), inspectable_contains(container.get(), expressions[0].get()) ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(, IndexBounds,
                         testing::ValuesIn(expression_shapes().begin(), expression_shapes().end()),
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
