// SPDX-License-Identifier: LGPL-2.1-or-later

// Registration by type: the register list, the type that is filled in from it, and what
// applications hear of it. There is no bus here.

#include "model/callbackparams.hpp"
#include "support/installedtypes.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string declare(const std::string &keys, const char *attributes = " internal=\"true\"")
{
    return std::string("<declare") + attributes + "><expression>" + keys +
           "</expression></declare>";
}

std::string open_key(const std::string &key, const std::string &content = "")
{
    return "<keyvalue key=\"" + key + "\" value-wildcard=\"true\">" + content + "</keyvalue>";
}

std::string state_key(const std::string &key)
{
    return open_key(key, "<tag tag=\"property-state\"/>");
}

std::string fixed_key(const std::string &key, const std::string &value)
{
    return "<keyvalue key=\"" + key + "\" value=\"" + value + "\"/>";
}

struct RegisterListDeleter {
    void operator()(GList *list) const { event_producer_int_free_register_list(list); }
};
using RegisterList = std::unique_ptr<GList, RegisterListDeleter>;

// C needs an argument before those of a list; it is ignored.
RegisterList parse(const char *before, ...)
{
    va_list arguments;
    va_start(arguments, before);
    RegisterList list(event_producer_int_parse_register_valist(arguments));
    va_end(arguments);
    return list;
}

// A register list of strings.
RegisterList strings(std::initializer_list<std::pair<const char *, const char *>> pairs)
{
    GList *triples = nullptr;
    for (auto [key, value] : pairs) {
        triples = g_list_append(triples, const_cast<char *>(key));
        triples = g_list_append(triples, const_cast<char *>(value));
        triples = g_list_append(triples, GUINT_TO_POINTER(VALUE_TYPE_STRING));
    }
    RegisterList list(event_producer_int_convert_to_string_list(triples));
    g_list_free(triples);
    return list;
}

// "key=value:type" for each triple.
std::vector<std::string> texts_of(const RegisterList &list)
{
    std::vector<std::string> texts;
    for (GList *link = list.get(); link; link = link->next->next->next)
        texts.push_back(std::string(static_cast<char *>(link->data)) + "=" +
                        static_cast<char *>(link->next->data) + ":" +
                        std::to_string(GPOINTER_TO_UINT(link->next->next->data)));
    return texts;
}

gint minus_three = -3;
gboolean seven = 7;
gboolean no = FALSE;
gdouble two_and_a_half = 2.5;

TEST(RegisterList, HoldsTheValuesAsTextsWithTheirTypes)
{
    auto list = parse("", "i", &minus_three, VALUE_TYPE_INT, "yes", &seven, VALUE_TYPE_BOOL, "no",
                      &no, VALUE_TYPE_BOOL, "d", &two_and_a_half, VALUE_TYPE_DOUBLE, "s", "text",
                      VALUE_TYPE_STRING, NULL);
    EXPECT_THAT(texts_of(list),
                ElementsAre("i=-3:1", "yes=1:2", "no=0:2", "d=2.500000:3", "s=text:4"));
    EXPECT_THAT(texts_of(parse("", NULL)), IsEmpty());
    event_producer_int_free_register_list(nullptr);
}

TEST(RegisterList, IsTheSameFromAListWhichStaysTheCallers)
{
    char text[] = "text";
    GList *triples = nullptr;
    for (gpointer item : {static_cast<gpointer>(text), static_cast<gpointer>(&two_and_a_half),
                          GUINT_TO_POINTER(VALUE_TYPE_DOUBLE), static_cast<gpointer>(text),
                          static_cast<gpointer>(text), GUINT_TO_POINTER(VALUE_TYPE_STRING)})
        triples = g_list_append(triples, item);
    RegisterList list(event_producer_int_convert_to_string_list(triples));
    EXPECT_THAT(texts_of(list), ElementsAre("text=2.500000:3", "text=text:4"));
    EXPECT_NE(list->data, triples->data) << "the texts are copies";
    EXPECT_EQ(g_list_length(triples), 6u);
    g_list_free(triples);
    EXPECT_EQ(event_producer_int_convert_to_string_list(nullptr), nullptr);
}

TEST(RegisterListDeathTest, WantsThreeElementsAKeyAndAValueThatHasAText)
{
    GList *four = nullptr;
    for (int i = 0; i < 4; ++i)
        four = g_list_append(four, const_cast<char *>("x"));
    EXPECT_DEATH(event_producer_int_convert_to_string_list(four),
                 "g_list_length\\(iter\\) % 3 == 0");
    g_list_free(four);
    EXPECT_DEATH(parse("", "k", &no, 0, NULL), "value_str != NULL");
    EXPECT_DEATH(parse("", "k", &no, 5, NULL), "value_str != NULL");
    EXPECT_DEATH(parse("", "k", static_cast<char *>(nullptr), VALUE_TYPE_STRING, NULL),
                 "value_str != NULL");
}

class TypeTest : public testing::Test {
protected:
    ~TypeTest() override
    {
        event_declaration_free(declaration);
        callback_params_free(params);
    }

    // Registers type "t" and returns the error's code and text, or "".
    std::string fill_in(const RegisterList &list)
    {
        GError *error = nullptr;
        event_producer_int_register_list("t", list.get(), &declaration, &params, &error);
        Owned<GError> owner(error);
        return error ? std::to_string(error->code) + " " + error->message : std::string();
    }
    // Whether nothing was handed out.
    bool has_nothing() const { return !declaration && !params; }
    // The value of a key in an event of the declaration, or "open".
    std::string value_of(const char *key) const
    {
        Owned<event> event(event_declaration_generate_event(declaration));
        inspectable *content = event_get_inspectable(event.get());
        gint position = inspectable_get_index(content, key);
        if (position < 0)
            return "absent";
        auto at = static_cast<guint>(position);
        return inspectable_has_value_at(content, at) ? inspectable_get_value_at(content, at)
                                                     : "open";
    }

    InstalledTypes types;
    LogCapture log;
    event_declaration *declaration = nullptr;
    callback_params *params = nullptr;
};

TEST_F(TypeTest, AKeyThatIsNotGivenStaysOpenForTheEvents)
{
    types.ship("t", declare(open_key("a") + open_key("b") + fixed_key("c", "1")));
    EXPECT_EQ(fill_in(strings({{"a", "x"}})), "");
    ASSERT_NE(declaration, nullptr);
    EXPECT_EQ(params, nullptr);
    EXPECT_EQ(value_of("a"), "x");
    EXPECT_EQ(value_of("b"), "open");
    EXPECT_EQ(value_of("c"), "1");
    EXPECT_FALSE(event_declaration_is_property(declaration));
    EXPECT_TRUE(event_declaration_is_internal(declaration));
}

TEST_F(TypeTest, NothingHasToBeGivenAtAll)
{
    types.ship("t", declare(open_key("a")));
    EXPECT_EQ(fill_in(nullptr), "");
    EXPECT_EQ(value_of("a"), "open");
}

TEST_F(TypeTest, AFilledKeyKeepsWhatTheTypeSaysOfItAndTakesTheGivenValueType)
{
    types.ship("t", declare("<keyvalue key=\"k\" name-space=\"n\" complex-type-name=\"c\""
                            " key-nice-name=\"K\" value-nice-name=\"V\" value-user-string=\"u\""
                            " value-wildcard=\"true\" value-type=\"int\">"
                            "<tag tag=\"t1\"/><tag tag=\"t2\"/></keyvalue>"));
    EXPECT_EQ(fill_in(parse("", "k", &two_and_a_half, VALUE_TYPE_DOUBLE, NULL)), "");
    Owned<event_declaration> expected(event_declaration_deserialize_xml(
        declare("<keyvalue key=\"k\" name-space=\"n\" complex-type-name=\"c\" key-nice-name=\"K\""
                " value-nice-name=\"V\" value=\"2.500000\" value-type=\"double\">"
                "<tag tag=\"t1\"/><tag tag=\"t2\"/></keyvalue>")
            .c_str()));
    Owned<gchar> text(event_declaration_serialize_xml(declaration));
    Owned<gchar> expected_text(event_declaration_serialize_xml(expected.get()));
    EXPECT_STREQ(text.get(), expected_text.get());
}

TEST_F(TypeTest, APropertysStateIsHandedOutAndStaysOpenInTheDeclaration)
{
    types.ship("t", declare(open_key("a") + state_key("s") + fixed_key("c", "1")));
    EXPECT_EQ(fill_in(parse("", "s", &seven, VALUE_TYPE_BOOL, "a", "x", VALUE_TYPE_STRING, NULL)),
              "");
    ASSERT_NE(params, nullptr);
    EXPECT_EQ(params->key, "s");
    EXPECT_EQ(params->value, "1");
    EXPECT_EQ(value_of("a"), "x");
    EXPECT_EQ(value_of("s"), "open");
    EXPECT_TRUE(event_declaration_is_property(declaration));
    EXPECT_EQ(event_declaration_get_property_event(declaration), nullptr)
        << "the callback fills in nothing";
}

TEST_F(TypeTest, AStateThatTheTypeFixesNeedsNoValue)
{
    types.ship("t", declare("<keyvalue key=\"s\" value=\"on\"><tag tag=\"property-state\"/>"
                            "</keyvalue>"));
    EXPECT_EQ(fill_in(nullptr), "");
    ASSERT_NE(params, nullptr);
    EXPECT_EQ(params->key, "s");
    EXPECT_EQ(params->value, std::nullopt);
    Owned<event> state(event_declaration_get_property_event(declaration));
    ASSERT_NE(state, nullptr);
    EXPECT_STREQ(event_get_value(state.get(), "s"), "on");
}

TEST_F(TypeTest, APropertyNeedsAllItsOpenKeys)
{
    types.ship("t", declare(open_key("a") + state_key("b")));
    EXPECT_EQ(fill_in(strings({{"a", "x"}})), "15 Not all keys were parsed for type t");
    EXPECT_TRUE(has_nothing());
    EXPECT_EQ(fill_in(strings({{"b", "x"}})), "15 Not all keys were parsed for type t");
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, SeveralStateKeysAreRefusedAndNamed)
{
    types.ship("t", declare(state_key("a") + state_key("b")));
    EXPECT_THAT(fill_in(strings({{"a", "x"}, {"b", "y"}})),
                testing::AnyOf("13 Got multiple property state tags: key 'a' and 'b' to "
                               "declaration t",
                               "13 Got multiple property state tags: key 'b' and 'a' to "
                               "declaration t"));
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, OnlyOpenKeysCanBeGivenAndEachOnce)
{
    types.ship("t", declare(open_key("a") + state_key("s") + fixed_key("c", "1")));
    EXPECT_EQ(fill_in(strings({{"c", "2"}})), "14 Got unknown key 'c' to declaration t");
    EXPECT_EQ(fill_in(strings({{"nowhere", "2"}})),
              "14 Got unknown key 'nowhere' to declaration t");
    EXPECT_EQ(fill_in(strings({{"a", "1"}, {"a", "2"}, {"s", "3"}})),
              "14 Got unknown key 'a' to declaration t");
    EXPECT_EQ(fill_in(strings({{"s", "1"}, {"s", "2"}, {"a", "3"}})),
              "14 Got unknown key 's' to declaration t");
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, ATypeThatCannotBeLoadedIsNamed)
{
    EXPECT_EQ(fill_in(nullptr), "12 event_declaration_new_from_type() failed for t");
    types.ship("t", "no XML");
    EXPECT_EQ(fill_in(nullptr), "12 event_declaration_new_from_type() failed for t");
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, ATypeOfTheSystemHidesTheAddedOneUnlessItCannotBeRead)
{
    types.add("t", declare(fixed_key("from", "added")));
    types.ship("t", "no XML");
    EXPECT_EQ(fill_in(nullptr), "");
    EXPECT_EQ(value_of("from"), "added");
    types.ship("t", declare(fixed_key("from", "shipped")));
    event_declaration_free(std::exchange(declaration, nullptr));
    EXPECT_EQ(fill_in(nullptr), "");
    EXPECT_EQ(value_of("from"), "shipped");
}

TEST_F(TypeTest, AnErrorThatIsAlreadySetIsReplacedBeforeTheTypeIsLookedFor)
{
    GError *error = g_error_new_literal(g_quark_from_string("d"), 1, "old");
    event_producer_int_register_list("nowhere", nullptr, &declaration, &params, &error);
    Owned<GError> owner(error);
    EXPECT_STREQ(g_quark_to_string(error->domain), "event-error-quark");
    EXPECT_EQ(error->code, 10);
    EXPECT_STREQ(error->message, "Error object already set");
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, NobodyHasToAskForTheError)
{
    event_producer_int_register_list("nowhere", nullptr, &declaration, &params, nullptr);
    EXPECT_TRUE(has_nothing());
}

TEST_F(TypeTest, ATypeWithoutANameIsACritical)
{
    GError *error = nullptr;
    event_producer_int_register_list(nullptr, nullptr, &declaration, &params, &error);
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(has_nothing());
    EXPECT_THAT(log.criticals(), ElementsAre("event_producer_int_register_list: assertion 'type "
                                             "!= NULL' failed"));
}

using TypeDeathTest = TypeTest;

TEST_F(TypeDeathTest, WhatIsHandedOutHasToBeUnset)
{
    types.ship("t", declare(open_key("a")));
    Owned<event_declaration> old(event_declaration_new(TRUE));
    event_declaration *set = old.get();
    EXPECT_DEATH(event_producer_int_register_list("t", nullptr, &set, &params, nullptr),
                 "declaration != NULL && \\*declaration == NULL");
    EXPECT_DEATH(event_producer_int_register_list("t", nullptr, nullptr, &params, nullptr),
                 "declaration != NULL && \\*declaration == NULL");
    callback_params *pair = callback_params_new("k", "v");
    EXPECT_DEATH(event_producer_int_register_list("t", nullptr, &declaration, &pair, nullptr),
                 "params != NULL && \\*params == NULL");
    EXPECT_DEATH(event_producer_int_register_list("t", nullptr, &declaration, nullptr, nullptr),
                 "params != NULL && \\*params == NULL");
    callback_params_free(pair);
}

TEST_F(TypeDeathTest, ATypeWithAKeyWildcardCannotBeFilledIn)
{
    types.ship("t", declare("<keyvalue key-wildcard=\"true\" value=\"x\"/>"));
    EXPECT_DEATH(fill_in(nullptr), "kv->key != NULL");
}

class RegistrationTest : public testing::Test {
protected:
    RegistrationTest()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
        producer = event_producer_new("producer");
    }
    ~RegistrationTest() override
    {
        bool freed = false;
        event_producer_int_free(
            producer, [](event_producer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    InstalledTypes types;
    LogCapture log;
    event_producer *producer;
};

TEST_F(RegistrationTest, ARegisteredTypesEventsBeginWithWhatWasGiven)
{
    types.ship("t", declare(open_key("a") + open_key("b")));
    guint32 id = event_producer_register(producer, "t", "a", "x", VALUE_TYPE_STRING, NULL);
    EXPECT_EQ(id, 1u);
    Owned<event> prepared(event_producer_prepare_event(producer, id));
    ASSERT_NE(prepared, nullptr);
    EXPECT_STREQ(event_get_value(prepared.get(), "a"), "x");
    EXPECT_FALSE(event_is_complete(prepared.get()));
    event_set_value(prepared.get(), "b", "y");
    EXPECT_TRUE(event_is_complete(prepared.get()));
    EXPECT_TRUE(event_producer_undeclare(producer, id));
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(RegistrationTest, AllFormsRegister)
{
    types.ship("t", declare(open_key("a")));
    GList *triples = g_list_append(nullptr, const_cast<char *>("a"));
    triples = g_list_append(triples, &minus_three);
    triples = g_list_append(triples, GUINT_TO_POINTER(VALUE_TYPE_INT));
    auto ignore = [](guint32, gpointer) {};
    std::vector<guint32> ids = {
        event_producer_register(producer, "t", "a", &minus_three, VALUE_TYPE_INT, NULL),
        event_producer_register_and_notify(producer, "t", ignore, nullptr, "a", &minus_three,
                                           VALUE_TYPE_INT, NULL),
        event_producer_register_list(producer, "t", triples),
        event_producer_register_and_notify_list(producer, "t", ignore, nullptr, triples)};
    g_list_free(triples);
    EXPECT_THAT(ids, ElementsAre(1u, 2u, 3u, 4u));
    for (guint32 id : ids) {
        Owned<event> prepared(event_producer_prepare_event(producer, id));
        EXPECT_STREQ(event_get_value(prepared.get(), "a"), "-3");
    }
}

TEST_F(RegistrationTest, AFailureIsAWarningThatSaysWhyAndCostsNoId)
{
    types.ship("t", declare(open_key("a")));
    EXPECT_EQ(event_producer_register(producer, "nowhere", NULL), 0u);
    EXPECT_EQ(event_producer_register_and_notify(producer, "t", nullptr, nullptr, "b", "x",
                                                 VALUE_TYPE_STRING, NULL),
              0u);
    EXPECT_EQ(event_producer_register_list(producer, "nowhere", nullptr), 0u);
    EXPECT_THAT(log.warnings(),
                ElementsAre("Error when registering event: event_declaration_new_from_type() "
                            "failed for nowhere",
                            "Error when registering event: Got unknown key 'b' to declaration t",
                            "Error when registering event: event_declaration_new_from_type() "
                            "failed for nowhere"));
    EXPECT_EQ(event_producer_register(producer, "t", NULL), 1u);
}

TEST_F(RegistrationTest, WithoutAHandleOrATypeThereIsACritical)
{
    run_pending();
    std::size_t before = log.criticals().size();
    EXPECT_EQ(event_producer_register(nullptr, "t", NULL), 0u);
    EXPECT_EQ(event_producer_register(producer, nullptr, NULL), 0u);
    EXPECT_EQ(event_producer_register_and_notify(nullptr, "t", nullptr, nullptr, NULL), 0u);
    EXPECT_EQ(event_producer_register_and_notify(producer, nullptr, nullptr, nullptr, NULL), 0u);
    EXPECT_EQ(event_producer_register_and_notify_list(nullptr, "t", nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(event_producer_register_list(producer, nullptr, nullptr), 0u);
    std::vector<std::string> criticals = log.criticals();
    criticals.erase(criticals.begin(), criticals.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(
        criticals,
        ElementsAre("event_producer_register: assertion 'event_producer != NULL' failed",
                    "event_producer_register: assertion 'type != NULL' failed",
                    "event_producer_register_and_notify: assertion 'event_producer != NULL' failed",
                    "event_producer_register_and_notify: assertion 'type != NULL' failed",
                    "event_producer_register_and_notify_list: assertion 'event_producer != NULL' "
                    "failed",
                    "event_producer_register_and_notify_list: assertion 'type != NULL' failed"));
    EXPECT_THAT(log.warnings(), IsEmpty());
}

using RegistrationDeathTest = RegistrationTest;

TEST_F(RegistrationDeathTest,
       AnExternalTypeWithoutATopicIsReportedAndDeclaredWithoutAnIdWhichIsFatal)
{
    types.ship("t", declare(open_key("a") + state_key("s"), ""));
    auto register_it = [this] {
        guint32 id = event_producer_register(producer, "t", "a", "x", VALUE_TYPE_STRING, "s", "on",
                                             VALUE_TYPE_STRING, NULL);
        std::fprintf(stderr, "%u, %s; ", id, log.warnings().at(0).c_str());
    };
    const std::string reported =
        "0, Error when registering event: External event is missing topic; ";
    auto register_and_run = [&] {
        register_it();
        run_pending();
    };
    EXPECT_DEATH(register_and_run(), reported + ".*event_declaration_get_local_id\\("
                                                "decl_data->declaration\\) != 0");
    auto register_twice = [&] {
        register_it();
        register_it();
    };
    EXPECT_DEATH(register_twice(), reported + ".*g_hash_table_lookup\\(prv->declared_events, "
                                              "GUINT_TO_POINTER\\(id\\)\\) == NULL");
}

TEST_F(RegistrationTest, ATopicMayBeGivenAtRegistration)
{
    types.ship("t", declare(open_key("topic0"), ""));
    EXPECT_EQ(event_producer_register(producer, "t", "topic0", "Device", VALUE_TYPE_STRING, NULL),
              1u);
    Owned<event> prepared(event_producer_prepare_event(producer, 1));
    EXPECT_STREQ(event_get_value(prepared.get(), "topic0"), "Device");
}

} // namespace
