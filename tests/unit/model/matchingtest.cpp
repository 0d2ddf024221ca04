// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/checker.hpp"
#include "support/logcapture.hpp"
#include "support/records.hpp"
#include "unit/model/naivemodel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace qandor::test;

namespace {

Owned<inspectable> new_expression()
{
    return Owned<inspectable>(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
}

Owned<inspectable> new_event(std::initializer_list<std::pair<const char *, const char *>> values)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    for (auto [key, value] : values)
        inspectable_add_key_value(event.get(), key, FALSE, value, FALSE, FALSE);
    return event;
}

void add(inspectable *expression, const char *key, const char *value, gboolean negated = FALSE)
{
    inspectable_add_key_value(expression, key, key ? FALSE : TRUE, value, value ? FALSE : TRUE,
                              negated);
}

TEST(Containment, AlternativesAreJoinedByOr)
{
    auto expression = new_expression();
    add(expression.get(), "a", "1");
    inspectable_or(expression.get());
    add(expression.get(), "b", "2");
    EXPECT_TRUE(inspectable_contains(new_event({{"b", "2"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"a", "2"}, {"b", "1"}}).get(), expression.get()));
}

TEST(Containment, PositiveConditionsOnOneKeyAreAlternatives)
{
    auto expression = new_expression();
    add(expression.get(), "a", "1");
    add(expression.get(), "a", "2");
    EXPECT_TRUE(inspectable_contains(new_event({{"a", "1"}}).get(), expression.get()));
    EXPECT_TRUE(inspectable_contains(new_event({{"a", "2"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"a", "3"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"b", "1"}}).get(), expression.get()));
}

TEST(Containment, ANegatedConditionHoldsWithoutTheKeyAndForAnotherValue)
{
    auto expression = new_expression();
    add(expression.get(), "a", "1", TRUE);
    EXPECT_TRUE(inspectable_contains(new_event({}).get(), expression.get()));
    EXPECT_TRUE(inspectable_contains(new_event({{"a", "2"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"a", "1"}}).get(), expression.get()));
}

TEST(Containment, NegatedWildcardExcludesAnEventThatHasTheKey)
{
    auto expression = new_expression();
    add(expression.get(), "a", nullptr, TRUE);
    EXPECT_TRUE(inspectable_contains(new_event({{"b", "1"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"a", "1"}}).get(), expression.get()));
}

TEST(Containment, AWildcardWantsTheKeyWithAnyValue)
{
    auto expression = new_expression();
    add(expression.get(), "a", nullptr);
    EXPECT_TRUE(inspectable_contains(new_event({{"a", "1"}}).get(), expression.get()));
    EXPECT_FALSE(inspectable_contains(new_event({{"b", "1"}}).get(), expression.get()));
}

TEST(Containment, AKeyWildcardWantsOrForbidsTheValueUnderAnyKey)
{
    auto wanted = new_expression(), forbidden = new_expression();
    add(wanted.get(), nullptr, "x");
    add(forbidden.get(), nullptr, "x", TRUE);
    auto with = new_event({{"a", "x"}}), without = new_event({{"a", "y"}});
    EXPECT_TRUE(inspectable_contains(with.get(), wanted.get()));
    EXPECT_FALSE(inspectable_contains(without.get(), wanted.get()));
    EXPECT_FALSE(inspectable_contains(with.get(), forbidden.get()));
    EXPECT_TRUE(inspectable_contains(without.get(), forbidden.get()));
    // A key whose value is open stands in for any value, but breaks nothing.
    Owned<inspectable> open(inspectable_new(IT_EVENT_DECLARATION));
    inspectable_add_key_value(open.get(), "a", FALSE, nullptr, TRUE, FALSE);
    EXPECT_TRUE(inspectable_contains(open.get(), wanted.get()));
    EXPECT_TRUE(inspectable_contains(open.get(), forbidden.get()));
}

TEST(Containment, AContainerWithKeyWildcardsContainsNothingNotEvenItself)
{
    auto wildcard = new_expression(), empty = new_expression();
    add(wildcard.get(), nullptr, "x");
    EXPECT_FALSE(inspectable_contains(wildcard.get(), wildcard.get()));
    EXPECT_FALSE(inspectable_contains(wildcard.get(), empty.get()));
    EXPECT_TRUE(inspectable_contains(new_event({}).get(), empty.get()));
    EXPECT_TRUE(inspectable_contains(empty.get(), empty.get()));
}

TEST(Containment, AContainerWithoutAndListsContainsNothing)
{
    guint indx = 0;
    Owned<inspectable> none(
        inspectable_deserialize_internal(array_of({0xF2, 0, 0, 1, 0, 0, 0}).get(), &indx));
    EXPECT_FALSE(inspectable_contains(none.get(), new_expression().get()));
    EXPECT_EQ(inspectable_get_key_count(none.get()), 0u);
    EXPECT_EQ(inspectable_get_value(none.get(), "a"), nullptr);
}

TEST(Equality, TheOrderOfKeysAndAlternativesDoesNotMatter)
{
    auto one = new_expression(), other = new_expression();
    add(one.get(), "a", "1");
    add(one.get(), "b", "2");
    inspectable_or(one.get());
    add(one.get(), "c", "3");
    add(other.get(), "c", "3");
    inspectable_or(other.get());
    add(other.get(), "b", "2");
    add(other.get(), "a", "1");
    EXPECT_TRUE(inspectable_is_equal(one.get(), other.get()));
    add(other.get(), "a", "1");
    EXPECT_FALSE(inspectable_is_equal(one.get(), other.get()));
}

TEST(Equality, ATagMakesADifference)
{
    auto one = new_event({{"a", "1"}}), other = new_event({{"a", "1"}});
    EXPECT_TRUE(inspectable_is_equal(one.get(), other.get()));
    inspectable_add_tag(one.get(), "t");
    EXPECT_FALSE(inspectable_is_equal(one.get(), other.get()));
}

TEST(Completeness, AnOpenValueIsMissingUntilItIsSet)
{
    Owned<inspectable> declaration(inspectable_new(IT_EVENT_DECLARATION));
    EXPECT_TRUE(inspectable_is_complete(declaration.get()));
    inspectable_add_key_value(declaration.get(), "a", FALSE, nullptr, TRUE, FALSE);
    EXPECT_FALSE(inspectable_is_complete(declaration.get()));
    inspectable_set_value(declaration.get(), "a", "1");
    EXPECT_TRUE(inspectable_is_complete(declaration.get()));
}

TEST(CompletenessDeathTest, OnlyEventsAndDeclarationsAreAsked)
{
    EXPECT_DEATH(inspectable_is_complete(new_expression().get()),
                 "inspect->type == IT_EVENT_DECLARATION \\|\\| inspect->type == IT_EVENT");
    EXPECT_DEATH(inspectable_contains(nullptr, new_expression().get()), "container != NULL");
    EXPECT_DEATH(inspectable_contains(new_expression().get(), nullptr), "containee != NULL");
}

// Random inspectables over a small alphabet, so that they meet often.
class RandomModel {
public:
    explicit RandomModel(unsigned seed) : engine_(seed) {}

    unsigned number(unsigned limit) { return engine_() % limit; }

    NaiveInspectable make(bool expression)
    {
        NaiveInspectable model(expression ? 1 + number(3) : 1);
        for (NaiveAndList &list : model)
            for (unsigned i = number(expression ? 5 : 7); i > 0; --i)
                add(list, expression);
        return model;
    }

    Owned<inspectable> build(const NaiveInspectable &model, guint32 type)
    {
        Owned<inspectable> built(inspectable_new(type));
        for (std::size_t i = 0; i < model.size(); ++i) {
            if (i > 0)
                inspectable_or(built.get());
            for (const NaiveKeyValue &item : model[i]) {
                inspectable_add_key_value(built.get(), item.key.c_str(), item.key_wildcard,
                                          item.value.c_str(), item.value_wildcard, item.negated);
                if (!item.name_space.empty() && type != IT_EVENT)
                    inspectable_set_name_space(built.get(), item.key.c_str(),
                                               item.name_space.c_str());
            }
        }
        return built;
    }

private:
    void add(NaiveAndList &list, bool expression)
    {
        NaiveKeyValue item;
        item.key = std::string(1, static_cast<char>('a' + number(4)));
        item.value = std::to_string(number(3));
        item.negated = number(4) == 0;
        item.value_wildcard = number(5) == 0;
        item.key_wildcard = expression && !item.value_wildcard && number(5) == 0;
        if (item.key_wildcard)
            item.key = "";
        if (item.value_wildcard)
            item.value = "";
        bool is_first = true;
        for (const NaiveKeyValue &other : list)
            is_first = is_first && (other.key != item.key || other.key_wildcard);
        if (!expression && !is_first)
            return; // an event has each key once
        // A name space can be set on the first condition of a key.
        if (!item.key_wildcard && is_first && number(4) == 0)
            item.name_space = number(2) ? "n" : "m";
        list.push_back(item);
    }

    std::mt19937 engine_;
};

TEST(MatchingProperty, RandomInspectablesMatchAsTheRulesSay)
{
    constexpr unsigned seed = 20261121;
    SCOPED_TRACE(seed);
    RandomModel random(seed);
    int contained = 0;
    for (int round = 0; round < 60000; ++round) {
        bool from_declaration = random.number(2);
        guint32 type = from_declaration ? IT_EVENT_DECLARATION : IT_SUBSCRIBE_EXPRESSION;
        NaiveInspectable container = random.make(!from_declaration);
        NaiveInspectable containee = random.make(true);
        auto built_container = random.build(container, type);
        auto built_containee = random.build(containee, IT_SUBSCRIBE_EXPRESSION);
        bool expected = naive_contains(container, containee);
        contained += expected;
        ASSERT_EQ(inspectable_contains(built_container.get(), built_containee.get()), expected)
            << "round " << round;
    }
    EXPECT_GT(contained, 1000); // or the test says little
}

TEST(MatchingProperty, RandomInspectablesAreEqualAsTheRulesSay)
{
    RandomModel random(7);
    int equal = 0;
    for (int round = 0; round < 60000; ++round) {
        NaiveInspectable one = random.make(true);
        NaiveInspectable other = random.number(2) ? random.make(true) : one;
        std::mt19937 shuffle(static_cast<unsigned>(round));
        std::shuffle(other.begin(), other.end(), shuffle);
        auto built_one = random.build(one, IT_SUBSCRIBE_EXPRESSION);
        auto built_other = random.build(other, IT_SUBSCRIBE_EXPRESSION);
        bool expected = naive_equal(one, other);
        equal += expected;
        ASSERT_EQ(inspectable_is_equal(built_one.get(), built_other.get()), expected) << round;
    }
    EXPECT_GT(equal, 1000);
}

TEST(MatchingProperty, CopiesBytesAndXmlKeepWhatMatters)
{
    RandomModel random(11);
    for (int round = 0; round < 20000; ++round) {
        auto built = random.build(random.make(true), IT_SUBSCRIBE_EXPRESSION);
        Owned<inspectable> copy(inspectable_copy(built.get(), IT_SUBSCRIBE_EXPRESSION));
        ASSERT_TRUE(inspectable_is_equal(built.get(), copy.get()));

        Owned<GArray> bytes(serialize_create_array());
        inspectable_serialize_internal(built.get(), bytes.get());
        guint indx = 0;
        Owned<inspectable> read(inspectable_deserialize_internal(bytes.get(), &indx));
        ASSERT_EQ(indx, bytes->len);
        ASSERT_TRUE(inspectable_is_equal(built.get(), read.get()));
        Owned<GArray> again(serialize_create_array());
        inspectable_serialize_internal(read.get(), again.get());
        ASSERT_EQ(bytes_of(bytes.get()), bytes_of(again.get()));
    }
}

TEST(Checker, AcceptsWhatIsWrittenAndWhatItAcceptsCanBeUsedWithoutEndingTheProcess)
{
    LogCapture quiet;
    RandomModel random(13);
    std::mt19937 mutate(17);
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        NaiveInspectable model = random.make(true);
        for (const NaiveKeyValue &item : model.front())
            inspectable_add_key_value(subscribe_expression_get_inspectable(expression.get()),
                                      item.key.c_str(), item.key_wildcard, item.value.c_str(),
                                      item.value_wildcard, item.negated);
        Owned<GArray> bytes(subscribe_expression_serialize(expression.get()));
        auto *data = reinterpret_cast<guint8 *>(bytes->data);
        auto kind = qandor::RecordKind::SubscribeExpression;
        ASSERT_FALSE(qandor::check_record(kind, data, bytes->len).has_value());
        for (guint length = 0; length < bytes->len; ++length)
            ASSERT_TRUE(qandor::check_record(kind, data, length).has_value()) << length;

        for (int i = 0; i < 20; ++i) {
            guint at = mutate() % bytes->len;
            guint8 former = data[at];
            data[at] = mutate() % 4 ? static_cast<guint8>(former + mutate() % 3 - 1)
                                    : static_cast<guint8>(mutate());
            if (!qandor::check_record(kind, data, bytes->len)) {
                ++accepted;
                Owned<subscribe_expression> read(subscribe_expression_deserialize(bytes.get()));
                Owned<subscribe_expression> copy(subscribe_expression_copy(read.get()));
                inspectable *content = subscribe_expression_get_inspectable(copy.get());
                inspectable_contains(content, content);
                EXPECT_TRUE(inspectable_is_equal(content,
                                                 subscribe_expression_get_inspectable(read.get())));
                subscribe_expression_print(copy.get());
                Owned<gchar> xml(subscribe_expression_serialize_xml(copy.get()));
                Owned<GArray> again(subscribe_expression_serialize(copy.get()));
            }
            data[at] = former;
        }
    }
    EXPECT_GT(accepted, 1000);
}

} // namespace
