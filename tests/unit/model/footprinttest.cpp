// SPDX-License-Identifier: LGPL-2.1-or-later

// What a record is charged for, held against what malloc gave for many of it.

#include "model/footprint.hpp"

#include "model/declarationindex.hpp"
#include "model/expressionindex.hpp"
#include "unit/model/randominspectables.hpp"

#include <qandor/serialize.h>

#include <gtest/gtest.h>

#include <functional>
#include <malloc.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SKIP_WITHOUT_MALLOC() GTEST_SKIP() << "a sanitizer gives the memory here"
#else
#define SKIP_WITHOUT_MALLOC() static_cast<void>(0)
#endif

using namespace qandor;
using namespace qandor::test;

namespace {

using Record = std::unique_ptr<inspectable>;
using Make = std::function<Record(unsigned number)>;

std::size_t memory_in_use()
{
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// As it comes off the wire.
Record read_again(const inspectable &record)
{
    Owner<GArray, g_array_unref> bytes(serialize_create_array());
    inspectable_serialize_internal(&record, bytes.get());
    guint index = 0;
    return Record(inspectable_deserialize_internal(bytes.get(), &index));
}

// Both for one record, in bytes.
struct Figures {
    double charged;
    double taken;
};

Figures figures_of(const Make &make, unsigned count)
{
    std::vector<Record> records(count);
    std::size_t charged = 0, before = memory_in_use();
    for (unsigned i = 0; i < count; ++i) {
        records[i] = make(i);
        charged += memory_of_record(*records[i]);
    }
    std::size_t taken = memory_in_use() - before;
    return {static_cast<double>(charged) / count, static_cast<double>(taken) / count};
}

// The memory of an index lies in the slices of GLib, which come in pages, so there must be many.
Figures figures_with_index(const Make &make, unsigned count)
{
    std::vector<Record> records(count);
    ExpressionIndex expressions(ExpressionIndex::Containers::Declarations);
    DeclarationIndex declarations;
    std::size_t charged = 0, before = memory_in_use();
    for (unsigned i = 0; i < count; ++i) {
        records[i] = make(i);
        charged += memory_of(*records[i]);
        if (records[i]->type == IT_SUBSCRIBE_EXPRESSION)
            expressions.add(i, *records[i]);
        else
            declarations.add(i, *records[i]);
    }
    std::size_t taken = memory_in_use() - before;
    return {static_cast<double>(charged) / count, static_cast<double>(taken) / count};
}

void add(AndList &list, const char *key, const std::string &value, bool negated = false)
{
    list.add(key_value(KeyName::intern(key ? key : ""), !key, value, FALSE, negated));
}

Record empty_record(guint32 type)
{
    auto made = std::make_unique<inspectable>(inspectable::Unread());
    made->type = type;
    return made;
}

struct Shape {
    const char *name;
    Make make;
    unsigned count = 4;
};

const Shape worst_shapes[] = {
    {"EmptyAlternatives",
     [](unsigned) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         for (int i = 0; i < 52000; ++i)
             made->and_lists.add();
         return read_again(*made);
     }},
    {"EmptyTagsOfAKey",
     [](unsigned) {
         Record made = empty_record(IT_EVENT_DECLARATION);
         add(made->and_lists.add(), "a", "1");
         for (int i = 0; i < 65000; ++i)
             own_tags(made->find("a")->tags).give("");
         return read_again(*made);
     }},
    {"EmptyTagsOfTheObject",
     [](unsigned) {
         Record made = empty_record(IT_EVENT_DECLARATION);
         made->and_lists.add();
         made->tags.assign(65000, "");
         return read_again(*made);
     }},
    {"AlternativesOfOneNegatedCondition",
     [](unsigned number) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 7500; ++i)
             add(made->and_lists.add(), "a", std::to_string(7500 * number + i), true);
         return read_again(*made);
     }},
    {"OneLongBucket",
     [](unsigned number) {
         Record made = empty_record(IT_EVENT_DECLARATION);
         AndList &list = made->and_lists.add();
         for (unsigned i = 0; i < 11500; ++i)
             add(list, "a", std::to_string(11500 * number + i));
         return read_again(*made);
     }},
    {"ManyKeyWildcards",
     [](unsigned number) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         AndList &list = made->and_lists.add();
         for (unsigned i = 0; i < 7900; ++i)
             add(list, nullptr, std::to_string(7900 * number + i));
         return read_again(*made);
     }},
    {"ManyValuesOfManyKeys",
     [](unsigned number) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         AndList &list = made->and_lists.add();
         for (unsigned key = 0; key < 32; ++key)
             for (unsigned value = 0; value < 256; ++value)
                 add(list, ("k" + std::to_string(key)).c_str(),
                     std::to_string(256 * (number / 5) + value));
         return read_again(*made);
     },
     20},
    {"ForksAfterALongWay",
     [](unsigned number) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         AndList &list = made->and_lists.add();
         for (unsigned key = 0; key < 6; ++key)
             add(list, ("k" + std::to_string(key)).c_str(), std::to_string(number / 5));
         for (unsigned value = 0; value < 2; ++value)
             add(list, "last", std::to_string(2 * number + value));
         return read_again(*made);
     },
     2000},
    {"OneAttributeInABlock",
     [](unsigned) {
         Record made = empty_record(IT_EVENT_DECLARATION);
         add(made->and_lists.add(), "a", "1");
         made->find("a")->set_attribute(Attribute::NameSpace, "n");
         return read_again(*made);
     },
     1000},
    {"LongValues",
     [](unsigned number) {
         Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
         AndList &list = made->and_lists.add();
         for (unsigned i = 0; i < 16; ++i)
             add(list, ("k" + std::to_string(i)).c_str(), std::string(5000, 'x'));
         add(list, "last", std::to_string(number));
         return read_again(*made);
     },
     200},
};

class Footprints : public testing::TestWithParam<Shape> {};

TEST_P(Footprints, OfTheWorstShapesAreChargedInFull)
{
    SKIP_WITHOUT_MALLOC();
    Figures figures = figures_of(GetParam().make, GetParam().count);
    EXPECT_GE(figures.charged, 0.9 * figures.taken);
    EXPECT_LE(figures.charged, 2 * figures.taken);
}

TEST_P(Footprints, OfTheWorstShapesAreChargedInFullWithTheirIndex)
{
    SKIP_WITHOUT_MALLOC();
    Figures figures = figures_with_index(GetParam().make, GetParam().count);
    EXPECT_GE(figures.charged, 0.9 * figures.taken);
}

INSTANTIATE_TEST_SUITE_P(, Footprints, testing::ValuesIn(worst_shapes),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Footprint, OfRandomRecordsIsChargedInFull)
{
    SKIP_WITHOUT_MALLOC();
    for (guint32 type : {IT_SUBSCRIBE_EXPRESSION, IT_EVENT_DECLARATION}) {
        RandomInspectables random(type + 1);
        Variety variety{.name = "",
                        .keys = 30,
                        .values = 10,
                        .conditions = 25,
                        .negated = 20,
                        .open = 20,
                        .in_name_space = 20,
                        .repeated = 20};
        if (type == IT_SUBSCRIBE_EXPRESSION) {
            variety.any_key = 20;
            variety.alternatives = 4;
        }
        auto make = [&](unsigned) { return read_again(*random.make(type, variety)); };
        Figures figures = figures_of(make, 2000);
        EXPECT_GE(figures.charged, 0.9 * figures.taken);
        EXPECT_LE(figures.charged, 1.5 * figures.taken);
        figures = figures_with_index(make, 2000);
        EXPECT_GE(figures.charged, 0.9 * figures.taken);
    }
}

// What is left of a long way that many took.
TEST(Footprint, OfThoseThatStayWhenOthersHaveGoneIsChargedInFull)
{
    SKIP_WITHOUT_MALLOC();
    constexpr unsigned groups = 4000, together = 5;
    std::vector<Record> records;
    ExpressionIndex index(ExpressionIndex::Containers::Declarations);
    std::size_t charged = 0, before = memory_in_use();
    for (unsigned i = 0; i < groups; ++i) {
        Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
        AndList &list = made->and_lists.add();
        for (unsigned key = 0; key < 8; ++key)
            add(list, ("k" + std::to_string(key)).c_str(), std::to_string(i));
        records.push_back(read_again(*made));
        charged += memory_of(*records.back());
        for (guint32 one = 0; one < together; ++one)
            index.add(i * together + one, *records.back());
        for (guint32 one = 1; one < together; ++one)
            index.remove(i * together + one);
    }
    EXPECT_GE(static_cast<double>(charged), 0.9 * static_cast<double>(memory_in_use() - before));
    EXPECT_LE(index.record_count(), 3 * groups);
}

// {topic0=T, state=S, unit != none}, and a declaration of eight keys.
TEST(Footprint, OfOrdinaryRecordsIsNotChargedTwice)
{
    SKIP_WITHOUT_MALLOC();
    auto an_expression = [](unsigned i) {
        Record made = empty_record(IT_SUBSCRIBE_EXPRESSION);
        AndList &list = made->and_lists.add();
        add(list, "topic0", "Device");
        add(list, "state", "s" + std::to_string(i));
        add(list, "unit", "none", true);
        return read_again(*made);
    };
    auto a_declaration = [](unsigned i) {
        Record made = empty_record(IT_EVENT_DECLARATION);
        AndList &list = made->and_lists.add();
        add(list, "topic0", "T" + std::to_string(i / 10));
        for (int key = 1; key < 8; ++key)
            list.add(
                key_value(KeyName::intern("key" + std::to_string(key)), FALSE, "", TRUE, FALSE));
        return read_again(*made);
    };
    for (const Make &make : {Make(an_expression), Make(a_declaration)}) {
        Figures figures = figures_with_index(make, 30000);
        EXPECT_GE(figures.charged, 0.9 * figures.taken);
        EXPECT_LE(figures.charged, 2 * figures.taken);
    }
}

} // namespace
