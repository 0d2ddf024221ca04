// SPDX-License-Identifier: LGPL-2.1-or-later

// Subscribe expressions: conditions, routing data, bytes and wrong arguments.

#include "support/records.hpp"
#include "unit/messages/criticals.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

Owned<subscribe_expression> make()
{
    return Owned<subscribe_expression>(subscribe_expression_new());
}

Owned<event> event_with(const char *key, const char *value)
{
    Owned<event> made(event_new());
    inspectable_add_key_value(event_get_inspectable(made.get()), key, FALSE, value, FALSE, FALSE);
    return made;
}

TEST(ExpressionArguments, AreChecked)
{
    auto made = make();
    subscribe_expression *se = made.get();
    EXPECT_REFUSAL(subscribe_expression_copy, (nullptr), nullptr, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_id, (nullptr, 1), "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_id, (nullptr), 0u, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_dbus_service, (nullptr, "x"), "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_dbus_service, (se, nullptr),
                        "dbus_service != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_dbus_service, (nullptr), nullptr, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_dbus_object, (nullptr, "x"), "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_dbus_object, (se, nullptr), "dbus_object != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_dbus_object, (nullptr), nullptr, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_set_consumer_token, (nullptr, 1), "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_consumer_token, (nullptr), 0u, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_clandestine, (nullptr), FALSE, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_inspectable, (nullptr), nullptr, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_or, (nullptr), "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_get_raw, (nullptr), nullptr, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_serialize, (nullptr), nullptr, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_deserialize, (nullptr), nullptr, "array != NULL");
    EXPECT_REFUSAL(subscribe_expression_deserialize_xml, (nullptr), nullptr, "xml != NULL");
    EXPECT_REFUSAL(subscribe_expression_serialize_xml, (nullptr), nullptr, "se != NULL");
    EXPECT_VOID_REFUSAL(subscribe_expression_print, (nullptr), "se != NULL");
    EXPECT_STREQ(subscribe_expression_get_dbus_service(se), "");
    EXPECT_STREQ(subscribe_expression_get_dbus_object(se), "");
    subscribe_expression_free(nullptr);
}

TEST(ExpressionArguments, ABuilderThatMissesSomethingAddsNothing)
{
    auto made = make();
    subscribe_expression *se = made.get();
    EXPECT_REFUSAL(subscribe_expression_add_key_value, (nullptr, "k", "v"), FALSE, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_key_value, (se, nullptr, "v"), FALSE, "key != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_key_value, (se, "k", nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_key_not_value, (se, nullptr, "v"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_key_not_value, (se, "k", nullptr), FALSE,
                   "value != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_key, (se, nullptr), FALSE, "key != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_not_key, (se, nullptr), FALSE, "key != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_value, (se, nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(subscribe_expression_add_not_value, (se, nullptr), FALSE, "value != NULL");
    EXPECT_REFUSAL(subscribe_expression_set_name_space, (nullptr, "k", "n"), FALSE, "se != NULL");
    EXPECT_REFUSAL(subscribe_expression_set_name_space, (se, nullptr, "n"), FALSE, "key != NULL");
    auto empty = make();
    EXPECT_TRUE(inspectable_is_equal(subscribe_expression_get_inspectable(se),
                                     subscribe_expression_get_inspectable(empty.get())));
}

using ExpressionDeathTest = testing::Test;

TEST_F(ExpressionDeathTest, TheInternalFunctionsEndTheProcess)
{
    auto se = make();
    Owned<GArray> array(serialize_create_array());
    guint indx = 0;
    EXPECT_DEATH(subscribe_expression_serialize_internal(nullptr, array.get()), "se != NULL");
    EXPECT_DEATH(subscribe_expression_serialize_internal(se.get(), nullptr), "array != NULL");
    EXPECT_DEATH(subscribe_expression_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(subscribe_expression_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(subscribe_expression_deserialize(array_of({0xF0}).get()),
                 "type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION");
}

TEST(ExpressionBuilders, MeanWhatTheirNamesSay)
{
    auto satisfied = [](auto build, const event *event) {
        auto se = make();
        EXPECT_TRUE(build(se.get()));
        return event_contains(event, se.get()) == TRUE;
    };
    auto same = event_with("k", "v"), other = event_with("k", "w"),
         elsewhere = event_with("l", "v");
    auto answers = [&](auto build) {
        return std::vector<bool>{satisfied(build, same.get()), satisfied(build, other.get()),
                                 satisfied(build, elsewhere.get())};
    };
    using Se = subscribe_expression *;
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_key_value(se, "k", "v"); }),
                ElementsAre(true, false, false));
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_key_not_value(se, "k", "v"); }),
                ElementsAre(false, true, true));
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_key(se, "k"); }),
                ElementsAre(true, true, false));
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_not_key(se, "k"); }),
                ElementsAre(false, false, true));
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_value(se, "v"); }),
                ElementsAre(true, false, true));
    EXPECT_THAT(answers([](Se se) { return subscribe_expression_add_not_value(se, "v"); }),
                ElementsAre(false, true, false));
}

TEST(ExpressionBuilders, AnEmptyAlternativeIsSatisfiedByEverything)
{
    auto se = make(), event = make();
    subscribe_expression_add_key(se.get(), "missing");
    EXPECT_FALSE(event_contains(event_with("k", "v").get(), se.get()));
    subscribe_expression_or(se.get());
    EXPECT_TRUE(event_contains(event_with("k", "v").get(), se.get()));
}

TEST(ExpressionNameSpace, RestrictsTheFirstConditionOfTheKey)
{
    Owned<event_declaration> declaration(event_declaration_new(TRUE));
    event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration.get(), "k", "m");
    auto se = make();
    EXPECT_FALSE(subscribe_expression_set_name_space(se.get(), "k", "m"));
    subscribe_expression_add_key_value(se.get(), "k", "v");
    EXPECT_TRUE(event_declaration_contains(declaration.get(), se.get()));
    EXPECT_TRUE(subscribe_expression_set_name_space(se.get(), "k", "n"));
    EXPECT_FALSE(event_declaration_contains(declaration.get(), se.get()));
    EXPECT_TRUE(subscribe_expression_set_name_space(se.get(), "k", nullptr));
    EXPECT_TRUE(event_declaration_contains(declaration.get(), se.get()));
}

TEST(ExpressionBytes, StandWhereTheyBelong)
{
    auto fresh = make();
    Owned<GArray> bytes(subscribe_expression_serialize(fresh.get()));
    EXPECT_EQ(bytes_of(bytes.get()), (Bytes{0xF6, 0,    0, 0, 0, 0, 0,    0, 0, 0, 0, 0, 0,
                                            0,    0xF2, 1, 0, 2, 0, 0xF3, 0, 0, 0, 0, 0, 0}));
    Owned<subscribe_expression> se(subscribe_expression_new_full(TRUE));
    subscribe_expression_set_id(se.get(), 1);
    subscribe_expression_set_dbus_service(se.get(), ":1");
    subscribe_expression_set_dbus_object(se.get(), "/");
    subscribe_expression_set_consumer_token(se.get(), 2);
    bytes.reset(subscribe_expression_serialize(se.get()));
    EXPECT_EQ(bytes_of(bytes.get()),
              (Bytes{0xF6, 1, 0,    0, 0, 2, 0, ':',  '1', 1, 0, '/', 2, 0, 0,
                     0,    1, 0xF2, 1, 0, 2, 0, 0xF3, 0,   0, 0, 0,   0, 0}));
}

TEST(ExpressionPrint, AlignsItsIdAndSaysWhetherItIsClandestine)
{
    auto se = make();
    subscribe_expression_set_id(se.get(), 1234);
    LogCapture log;
    subscribe_expression_print(se.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("---- Subscribe Expression (id:1234) ----",
                            "DBus Service: ", "DBus Object: ", "Consumer Token: 0",
                            "Clandestine: false", "---------------------------------------"));
}

TEST(ExpressionBytes, KeepItsRoutingDataAndXmlItsConditions)
{
    Owned<subscribe_expression> expression(subscribe_expression_new_full(TRUE));
    subscribe_expression_set_id(expression.get(), 1);
    subscribe_expression_set_dbus_service(expression.get(), ":1.2");
    subscribe_expression_set_dbus_object(expression.get(), "/o");
    subscribe_expression_set_consumer_token(expression.get(), 4);
    subscribe_expression_add_not_value(expression.get(), "v");
    Owned<GArray> bytes(subscribe_expression_serialize(expression.get()));
    Owned<subscribe_expression> read(subscribe_expression_deserialize(bytes.get()));
    Owned<subscribe_expression> copy(subscribe_expression_copy(read.get()));
    EXPECT_EQ(subscribe_expression_get_id(copy.get()), 1u);
    EXPECT_STREQ(subscribe_expression_get_dbus_service(copy.get()), ":1.2");
    EXPECT_STREQ(subscribe_expression_get_dbus_object(copy.get()), "/o");
    EXPECT_EQ(subscribe_expression_get_consumer_token(copy.get()), 4u);
    EXPECT_TRUE(subscribe_expression_get_clandestine(copy.get()));
    Owned<gchar> xml(subscribe_expression_serialize_xml(copy.get()));
    Owned<subscribe_expression> from_xml(subscribe_expression_deserialize_xml(xml.get()));
    EXPECT_EQ(subscribe_expression_get_id(from_xml.get()), 0u);
    LogCapture log;
    subscribe_expression_print(read.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("---- Subscribe Expression (id:  1) ----", "[* != 'v']",
                            "DBus Service: :1.2", "DBus Object: /o", "Consumer Token: 4",
                            "Clandestine: true", "---------------------------------------"));
}

TEST(ExpressionArguments, ANullValueChangesNothing)
{
    LogCapture log;
    Owned<subscribe_expression> expression(subscribe_expression_new());
    EXPECT_FALSE(subscribe_expression_add_value(expression.get(), nullptr));
    EXPECT_THAT(log.criticals(),
                ElementsAre("subscribe_expression_add_value: assertion 'value != NULL' failed"));
}

TEST(ExpressionBuilders, ThePlainViewIsInReverseOrder)
{
    Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "a", "1");
    subscribe_expression_or(expression.get());
    subscribe_expression_add_key_value(expression.get(), "b", "2");
    GList *raw = subscribe_expression_get_raw(expression.get());
    auto *first = static_cast<key_value_raw *>(static_cast<GList *>(raw->data)->data);
    EXPECT_STREQ(first->key, "b");
    EXPECT_EQ(g_list_length(raw), 2u);
    subscribe_expression_free_raw(raw);
}

} // namespace
