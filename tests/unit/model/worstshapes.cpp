// SPDX-License-Identifier: LGPL-2.1-or-later

#include "unit/model/worstshapes.hpp"

namespace qandor::test {

Record record(guint32 type)
{
    return std::make_unique<inspectable>(type);
}

void add(inspectable &record, const std::string &key, const char *value, bool negated)
{
    record.current()->add(
        key_value(KeyName::intern(key), FALSE, value ? value : "", !value, negated));
}

void add(inspectable &record, const std::string &key, const std::string &value, bool negated)
{
    add(record, key, value.c_str(), negated);
}

void add_for_any_key(inspectable &record, const std::string &value, bool negated)
{
    record.current()->add(key_value(KeyName::intern(""), TRUE, value, FALSE, negated));
}

Record event_of(std::initializer_list<std::pair<const char *, const char *>> values)
{
    Record made = record(IT_EVENT_DECLARATION);
    for (const auto &[key, value] : values)
        add(*made, key, value);
    return made;
}

namespace {

Record expression_of(std::initializer_list<std::pair<const char *, const char *>> conditions)
{
    Record made = record(IT_SUBSCRIBE_EXPRESSION);
    for (const auto &[key, value] : conditions)
        add(*made, key, value);
    return made;
}

// Many values of one key, which only strangers write.
Record declaration_of_values(unsigned count)
{
    Record made = record(IT_EVENT_DECLARATION);
    for (unsigned i = 0; i < count; ++i)
        add(*made, "a", "v" + std::to_string(i));
    return made;
}

void begin_alternative(inspectable &expression, bool is_first)
{
    if (!is_first)
        expression.and_lists.add();
}

const ExpressionShape all_expression_shapes[] = {
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
    {"AllTheSame",
     [](unsigned) {
         return expression_of({{"a", "1"}, {"b", "2"}});
     },
     [] {
         return event_of({{"a", "1"}, {"b", "2"}});
     }},
    {"AllTheSameAndNoneHolds",
     [](unsigned) {
         return expression_of({{"a", "1"}, {"b", "2"}});
     },
     [] {
         return event_of({{"a", "1"}, {"b", "3"}});
     }},
    {"ForbiddenValues",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "a", std::to_string(i), true);
         return made;
     },
     [] {
         return event_of({{"a", "7"}});
     }},
    {"PairsOfForbiddenValues",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "a", std::to_string(i % 17), true);
         add(*made, "b", std::to_string(i / 17), true);
         return made;
     },
     [] {
         return event_of({{"a", "7"}, {"b", "7"}});
     }},
    {"ValuesOfAnyKeyAndAnOpenOne",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add_for_any_key(*made, std::to_string(i));
         return made;
     },
     [] {
         return event_of({{"a", nullptr}, {"b", "7"}});
     }},
    {"LongValuesOfOneBeginning",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "a", std::string(2000, 'x') + std::to_string(i));
         return made;
     },
     [] {
         return event_of({{"a", (std::string(2000, 'x') + "7").c_str()}});
     }},
    {"KeysOfTheirOwn",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "own" + std::to_string(i), "1");
         return made;
     },
     [] {
         return event_of({{"own7", "1"}, {"own8", "1"}, {"own9", "2"}});
     }},
    {"KeysOfTheirOwnThatTheContainerHasToo",
     [](unsigned i) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         add(*made, "own" + std::to_string(i), "1");
         add(*made, "shared", "1");
         return made;
     },
     [] {
         Record made = event_of({{"shared", "2"}});
         for (unsigned i = 0; i < 300; ++i)
             add(*made, "own" + std::to_string(i), nullptr);
         return made;
     }},
    {"ManyKeysOfManyValues",
     [](unsigned number) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned key = 0; key < 32; ++key)
             for (unsigned value = 0; value < 64; ++value)
                 add(*made, "key" + std::to_string(key), std::to_string(number + value));
         return made;
     },
     [] {
         Record made = record(IT_EVENT_DECLARATION);
         for (unsigned key = 0; key < 31; ++key)
             add(*made, "key" + std::to_string(key), "63");
         return made;
     },
     20},
    {"ManyForbiddenValuesOfAKeyOfManyValues",
     [](unsigned number) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 500; ++i)
             add(*made, "a", "w" + std::to_string(number + i), true);
         return made;
     },
     [] { return declaration_of_values(500); }, 20},
    {"ManyForbiddenValuesOfAnyKey",
     [](unsigned number) {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 500; ++i)
             add_for_any_key(*made, "w" + std::to_string(number + i), true);
         return made;
     },
     [] { return declaration_of_values(500); }, 20},
};

const DeclarationShape all_declaration_shapes[] = {
    {"TwoConditionsOfWhichHalfHaveEach",
     [](unsigned i) {
         return event_of({{i % 2 ? "a" : "b", "1"}, {"c", "1"}});
     },
     [] {
         return expression_of({{"a", "1"}, {"b", "1"}});
     }},
    {"AlternativesThatAllForbid",
     [](unsigned i) {
         return event_of({{"c", std::to_string(i).c_str()}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 100; ++i) {
             begin_alternative(*made, i == 0);
             add(*made, "c", "x", true);
         }
         return made;
     }},
    {"EmptyAlternatives",
     [](unsigned) {
         return event_of({{"c", "1"}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 5000; ++i)
             made->and_lists.add();
         return made;
     }},
    {"AlternativesThatAllWantTheSame",
     [](unsigned) {
         return event_of({{"a", nullptr}, {"b", "2"}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 2000; ++i) {
             begin_alternative(*made, i == 0);
             add(*made, "a", "1");
             add(*made, "b", "1");
         }
         return made;
     }},
    {"AlternativesThatAllHold",
     [](unsigned) {
         return event_of({{"a", nullptr}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 2000; ++i) {
             begin_alternative(*made, i == 0);
             add(*made, "a", "1");
         }
         return made;
     }},
    {"ManyValuesOfAnOpenKey",
     [](unsigned i) {
         return event_of({{"a", i % 2 ? nullptr : "x"}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 2000; ++i)
             add(*made, "a", std::to_string(i));
         return made;
     }},
    {"DeclarationsOfManyValues", [](unsigned) { return declaration_of_values(100); },
     [] {
         return expression_of({{"a", nullptr}, {"b", "1"}});
     }},
    {"AnyKey",
     [](unsigned i) {
         return event_of({{"a", std::to_string(i).c_str()}});
     },
     [] {
         Record made = record(IT_SUBSCRIBE_EXPRESSION);
         for (unsigned i = 0; i < 300; ++i)
             add_for_any_key(*made, std::to_string(i), i % 2);
         return made;
     }},
};

} // namespace

std::span<const ExpressionShape> expression_shapes()
{
    return all_expression_shapes;
}

std::span<const DeclarationShape> declaration_shapes()
{
    return all_declaration_shapes;
}

} // namespace qandor::test
