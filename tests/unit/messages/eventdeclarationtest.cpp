// SPDX-License-Identifier: LGPL-2.1-or-later

// Event declarations: keys, property, events made from them, bytes, files and wrong arguments.

#include "support/records.hpp"
#include "support/temporaryfolder.hpp"
#include "unit/messages/criticals.hpp"
#include "unit/messages/sampledeclaration.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Owned<event_declaration> make(gboolean internal = FALSE)
{
    return Owned<event_declaration>(event_declaration_new(internal));
}

TEST(EventDeclarationArguments, AreChecked)
{
    auto made = make();
    event_declaration *declaration = made.get();
    Owned<subscribe_expression> expression(subscribe_expression_new());
    EXPECT_REFUSAL(event_declaration_copy, (nullptr), nullptr, "declaration_src != NULL");
    EXPECT_REFUSAL(event_declaration_get_inspectable, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_add_key, (nullptr, "k", 4), FALSE, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_add_key, (declaration, nullptr, 4), FALSE, "key != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_value, (nullptr, "k", "v", 4), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_value, (declaration, nullptr, "v", 4), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_value, (declaration, "k", nullptr, 4), FALSE,
                   "value != NULL");
    EXPECT_REFUSAL(event_declaration_set_value_user_string, (nullptr, "k", "x"), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_set_value_user_string, (declaration, nullptr, "x"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_set_nice_names, (nullptr, "k", "x", "y"), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_set_nice_names, (declaration, nullptr, "x", "y"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_set_name_space, (nullptr, "k", "x"), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_set_name_space, (declaration, nullptr, "x"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_set_complex_type_name, (nullptr, "k", "x"), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_set_complex_type_name, (declaration, nullptr, "x"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_tag, (nullptr, "k", "x"), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_tag, (declaration, nullptr, "x"), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(event_declaration_add_key_tag, (declaration, "k", nullptr), FALSE,
                   "tag != NULL");
    EXPECT_REFUSAL(event_declaration_add_tag, (nullptr, "x"), FALSE, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_add_tag, (declaration, nullptr), FALSE, "tag != NULL");
    EXPECT_REFUSAL(event_declaration_contains, (nullptr, expression.get()), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_contains, (declaration, nullptr), FALSE,
                   "subscribe_expression != NULL");
    event_declaration_free(nullptr);
}

TEST(EventDeclarationArguments, ANullDeclarationIsRefusedByItsFieldsAndForms)
{
    EXPECT_VOID_REFUSAL(event_declaration_set_producer_id, (nullptr, 1), "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_get_producer_id, (nullptr), 0u, "declaration != NULL");
    EXPECT_VOID_REFUSAL(event_declaration_set_global_id, (nullptr, 1), "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_get_global_id, (nullptr), 0u, "declaration != NULL");
    EXPECT_VOID_REFUSAL(event_declaration_set_local_id, (nullptr, 1), "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_get_local_id, (nullptr), 0u, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_set_property, (nullptr, "k", nullptr, nullptr), FALSE,
                   "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_is_property, (nullptr), FALSE, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_is_internal, (nullptr), FALSE, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_generate_event, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_get_property_event, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_serialize, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_deserialize, (nullptr), nullptr, "array != NULL");
    EXPECT_REFUSAL(event_declaration_serialize_xmlnode, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_serialize_xml, (nullptr), nullptr, "declaration != NULL");
    EXPECT_REFUSAL(event_declaration_deserialize_xml, (nullptr), nullptr, "xml != NULL");
    EXPECT_VOID_REFUSAL(event_declaration_print, (nullptr), "declaration != NULL");
}

using EventDeclarationDeathTest = testing::Test;

TEST_F(EventDeclarationDeathTest, TheInternalFunctionsEndTheProcess)
{
    auto declaration = make();
    Owned<GArray> array(serialize_create_array());
    guint indx = 0;
    EXPECT_DEATH(event_declaration_serialize_internal(nullptr, array.get()), "declaration != NULL");
    EXPECT_DEATH(event_declaration_serialize_internal(declaration.get(), nullptr), "array != NULL");
    EXPECT_DEATH(event_declaration_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(event_declaration_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(event_declaration_deserialize(array_of({0xF1}).get()),
                 "type == SERIALIZE_ID_EVENT_DECLARATION");
}

TEST(EventDeclarationKeys, AWrongTypeLeavesAnExistingKeyAlone)
{
    auto declaration = make();
    EXPECT_TRUE(event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING));
    EXPECT_EQ(critical_of([&] {
                  EXPECT_FALSE(event_declaration_add_key_value(declaration.get(), "k", "w", 4711));
              }),
              "Invalid ValueType: 4711");
    EXPECT_EQ(
        critical_of([&] { EXPECT_FALSE(event_declaration_add_key(declaration.get(), "k", 0)); }),
        "Invalid ValueType: 0");
    EXPECT_STREQ(inspectable_get_value(event_declaration_get_inspectable(declaration.get()), "k"),
                 "v");
}

TEST(EventDeclarationKeys, AreOpenOrFilledInTheirType)
{
    auto declaration = make();
    gint number = 5;
    gboolean truth = 2;
    gdouble fraction = 0.25;
    EXPECT_TRUE(event_declaration_add_key_value(declaration.get(), "i", &number, VALUE_TYPE_INT));
    EXPECT_TRUE(event_declaration_add_key_value(declaration.get(), "b", &truth, VALUE_TYPE_BOOL));
    EXPECT_TRUE(
        event_declaration_add_key_value(declaration.get(), "d", &fraction, VALUE_TYPE_DOUBLE));
    EXPECT_TRUE(event_declaration_add_key(declaration.get(), "s", VALUE_TYPE_STRING));
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    EXPECT_STREQ(event_get_value(event.get(), "i"), "5");
    EXPECT_STREQ(event_get_value(event.get(), "b"), "1");
    EXPECT_STREQ(event_get_value(event.get(), "d"), "0.250000");
    EXPECT_STREQ(event_get_value(event.get(), "s"), "");
    EXPECT_FALSE(event_is_complete(event.get()));
    const std::pair<const char *, guint32> types[] = {{"i", 1}, {"b", 2}, {"d", 3}, {"s", 4}};
    for (auto [key, type] : types)
        EXPECT_EQ(
            event_get_type_at(event.get(), static_cast<guint>(event_get_index(event.get(), key))),
            type);
}

TEST(EventDeclarationKeys, ForwardToTheirInspectable)
{
    auto declaration = make();
    event_declaration_add_key(declaration.get(), "k", VALUE_TYPE_STRING);
    EXPECT_TRUE(event_declaration_set_value_user_string(declaration.get(), "k", "us"));
    EXPECT_TRUE(event_declaration_set_nice_names(declaration.get(), "k", "kn", nullptr));
    EXPECT_TRUE(event_declaration_set_name_space(declaration.get(), "k", "ns"));
    EXPECT_TRUE(event_declaration_set_complex_type_name(declaration.get(), "k", "ct"));
    EXPECT_TRUE(event_declaration_add_key_tag(declaration.get(), "k", "t"));
    EXPECT_TRUE(event_declaration_add_tag(declaration.get(), "w"));
    EXPECT_FALSE(event_declaration_set_value_user_string(declaration.get(), "m", "us"));
    EXPECT_FALSE(event_declaration_set_nice_names(declaration.get(), "m", "kn", nullptr));
    EXPECT_FALSE(event_declaration_set_name_space(declaration.get(), "m", "ns"));
    EXPECT_FALSE(event_declaration_set_complex_type_name(declaration.get(), "m", "ct"));
    EXPECT_FALSE(event_declaration_add_key_tag(declaration.get(), "m", "t"));
    LogCapture log;
    event_declaration_print(declaration.get());
    EXPECT_THAT(log.messages(), ElementsAre("--- Event Declaration -----------------",
                                            "Global Declaration Id: 0", "Local Declaration Id: 0",
                                            "Producer Id: 0", "[ns:k (kn) {ct} = '*'] {t}", "{w}",
                                            "---------------------------------------"));
}

TEST(EventDeclarationPrint, ShowsPropertyAndInternalAndIdsAsSignedNumbers)
{
    auto declaration = make(TRUE);
    event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr);
    event_declaration_set_global_id(declaration.get(), 1);
    event_declaration_set_local_id(declaration.get(), 2);
    event_declaration_set_producer_id(declaration.get(), G_MAXUINT32);
    LogCapture log;
    event_declaration_print(declaration.get());
    EXPECT_THAT(log.messages(),
                ElementsAre("--- Event Declaration -----------------", "< Property >",
                            "< Internal >", "Global Declaration Id: 1", "Local Declaration Id: 2",
                            "Producer Id: -1", "---------------------------------------"));
}

TEST(EventDeclarationBytes, StandWhereTheyBelong)
{
    auto declaration = make(TRUE);
    event_declaration_set_producer_id(declaration.get(), 0x01020304);
    event_declaration_set_local_id(declaration.get(), 5);
    event_declaration_set_global_id(declaration.get(), 6);
    gpointer data = reinterpret_cast<gpointer>(0x1122334455667788);
    event_declaration_set_property(declaration.get(), nullptr, nullptr, data);
    Owned<GArray> bytes(event_declaration_serialize(declaration.get()));
    EXPECT_EQ(bytes_of(bytes.get()),
              (Bytes{0xF0, 4,    3,    2,    1,    5,    0, 0, 0, 6, 0,    0, 0, 1, 0, 0, 0,
                     0,    0x88, 0x77, 0x66, 0x55, 0xF2, 1, 0, 0, 1, 0xF3, 0, 0, 0, 0, 0, 0}));
    Owned<event_declaration> read(event_declaration_deserialize(bytes.get()));
    EXPECT_EQ(event_declaration_get_producer_id(read.get()), 0x01020304u);
    EXPECT_EQ(event_declaration_get_local_id(read.get()), 5u);
    EXPECT_EQ(event_declaration_get_global_id(read.get()), 6u);
    EXPECT_TRUE(event_declaration_is_internal(read.get()));
    EXPECT_TRUE(event_declaration_is_property(read.get()));
}

gboolean note_call(event *, gpointer data)
{
    ++*static_cast<int *>(data);
    return FALSE;
}

gboolean fill_state(event *event, gpointer data)
{
    event_set_value(event, "state", data);
    return FALSE;
}

TEST(EventDeclarationProperty, ACopySharesCallbackAndData)
{
    int calls = 0;
    auto declaration = make(TRUE);
    event_declaration_set_property(declaration.get(), nullptr, note_call, &calls);
    Owned<event_declaration> copy(event_declaration_copy(declaration.get()));
    declaration.reset();
    Owned<event> event(event_declaration_get_property_event(copy.get()));
    EXPECT_NE(event, nullptr);
    EXPECT_EQ(calls, 1);
}

TEST(EventDeclarationProperty, TagsItsKeyAndIsAPropertyEvenWithoutOne)
{
    auto declaration = make();
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    inspectable *content = event_declaration_get_inspectable(declaration.get());
    EXPECT_TRUE(event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr));
    EXPECT_TRUE(event_declaration_is_property(declaration.get()));
    EXPECT_FALSE(inspectable_has_keyvalue_with_tag(content, "property-state"));
    EXPECT_FALSE(event_declaration_set_property(declaration.get(), "missing", nullptr, nullptr));
    EXPECT_TRUE(event_declaration_set_property(declaration.get(), "state", nullptr, nullptr));
    EXPECT_TRUE(inspectable_has_keyvalue_with_tag(content, "property-state"));
}

TEST(EventDeclarationProperty, ItsEventIsStampedAfterTheCallbackUnlessThatDid)
{
    auto declaration = make();
    event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
    event_declaration_set_global_id(declaration.get(), 3);
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    char state[] = "on";
    event_declaration_set_property(declaration.get(), "state", fill_state, state);
    Owned<event> event(event_declaration_get_property_event(declaration.get()));
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event_get_value(event.get(), "state"), "on");
    EXPECT_TRUE(event_is_property(event.get()));
    EXPECT_EQ(event_get_global_id(event.get()), 3u);
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_GT(event_get_timestamp(event.get()).tv_sec, 1500000000);
    G_GNUC_END_IGNORE_DEPRECATIONS
}

TEST(EventDeclarationProperty, OneThatIsReadFromXmlHasNoCallback)
{
    LogCapture log;
    const char *open = "<declare><expression><keyvalue key='state' value-wildcard='true'>"
                       "<tag tag='property-state'/></keyvalue></expression></declare>";
    const char *fixed = "<declare internal='true'><expression><keyvalue key='state' value='on'>"
                        "<tag tag='property-state'/></keyvalue></expression></declare>";
    Owned<event_declaration> declaration(event_declaration_deserialize_xml(open));
    EXPECT_TRUE(event_declaration_is_property(declaration.get()));
    EXPECT_FALSE(event_declaration_is_internal(declaration.get()));
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    declaration.reset(event_declaration_deserialize_xml(fixed));
    EXPECT_TRUE(event_declaration_is_internal(declaration.get()));
    Owned<event> event(event_declaration_get_property_event(declaration.get()));
    ASSERT_NE(event, nullptr);
    EXPECT_STREQ(event_get_value(event.get(), "state"), "on");
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_THAT(log.criticals(), IsEmpty());
}

TEST(EventDeclarationGenerate, GivesAnEventWithItsIdsAndNothingElse)
{
    auto declaration = make(TRUE);
    event_declaration_set_global_id(declaration.get(), 1);
    event_declaration_set_local_id(declaration.get(), 2);
    event_declaration_set_producer_id(declaration.get(), 3);
    event_declaration_add_tag(declaration.get(), "t");
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    EXPECT_EQ(event_get_global_id(event.get()), 1u);
    EXPECT_EQ(event_get_local_id(event.get()), 2u);
    EXPECT_EQ(event_get_producer_id(event.get()), 3u);
    EXPECT_TRUE(event_is_internal(event.get()));
    EXPECT_FALSE(event_is_property(event.get()));
    EXPECT_TRUE(event_has_tag(event.get(), "t"));
    EXPECT_EQ(event_get_user_data(event.get()), nullptr);
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_EQ(event_get_timestamp(event.get()).tv_sec, 0);
    G_GNUC_END_IGNORE_DEPRECATIONS
}

TEST(EventDeclarationContains, MatchesOpenValuesWithAnyCondition)
{
    auto declaration = make();
    event_declaration_add_key(declaration.get(), "open", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration.get(), "fixed", "1", VALUE_TYPE_STRING);
    auto contains = [&](const char *key, const char *value) {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        subscribe_expression_add_key_value(expression.get(), key, value);
        return event_declaration_contains(declaration.get(), expression.get());
    };
    EXPECT_TRUE(contains("open", "anything"));
    EXPECT_TRUE(contains("fixed", "1"));
    EXPECT_FALSE(contains("fixed", "2"));
    EXPECT_FALSE(contains("missing", "1"));
}

TEST(EventDeclarationFiles, AMissingOrBrokenOneIsSilentlyNothing)
{
    TemporaryFolder folder;
    LogCapture log;
    EXPECT_EQ(event_declaration_deserialize_xml_file((folder.path() / "missing").c_str()), nullptr);
    EXPECT_EQ(event_declaration_deserialize_xml_file(folder.write("b", "<declare").c_str()),
              nullptr);
    EXPECT_EQ(event_declaration_new_from_type("no such type of event"), nullptr);
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_THAT(log.criticals(), IsEmpty());
    EXPECT_EQ(event_declaration_deserialize_xml_file(folder.write("s", "<subscribe/>").c_str()),
              nullptr);
    EXPECT_THAT(log.warnings(), ElementsAre("Expected tag 'declare' and got 'subscribe'"));
}

TEST(EventDeclarationFiles, AWholeOneIsRead)
{
    TemporaryFolder folder;
    std::string path = folder.write(
        "type.xml", "<?xml version='1.0'?>\n<declare>\n <expression>\n"
                    "  <keyvalue key='topic0' value='Device'/>\n"
                    "  <keyvalue key='count' value-wildcard='true' value-type='int'/>\n"
                    " </expression>\n <tag tag='t'/>\n</declare>\n");
    Owned<event_declaration> declaration(event_declaration_deserialize_xml_file(path.c_str()));
    ASSERT_NE(declaration, nullptr);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    gint count = 3;
    EXPECT_TRUE(event_set_value(event.get(), "count", &count));
    EXPECT_STREQ(event_get_value(event.get(), "count"), "3");
    EXPECT_STREQ(event_get_value(event.get(), "topic0"), "Device");
    EXPECT_TRUE(event_has_tag(event.get(), "t"));
}

TEST(EventDeclarationKeys, HaveOneOfTheFourTypes)
{
    LogCapture log;
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    EXPECT_FALSE(event_declaration_add_key(declaration.get(), "k", 0));
    EXPECT_FALSE(event_declaration_add_key_value(declaration.get(), "k", "v", 5));
    EXPECT_EQ(inspectable_get_value(event_declaration_get_inspectable(declaration.get()), "k"),
              nullptr);
    EXPECT_THAT(log.criticals(), ElementsAre("Invalid ValueType: 0", "Invalid ValueType: 5"));
}

TEST(EventDeclarationKeys, TheLatestOfAKeyIsKept)
{
    auto declaration = new_declaration();
    event_declaration_add_key_value(declaration.get(), "load", "x", VALUE_TYPE_STRING);
    Owned<event> event(event_declaration_generate_event(declaration.get()));
    EXPECT_EQ(event_get_key_count(event.get()), 4u);
    EXPECT_STREQ(event_get_value(event.get(), "load"), "x");
}

TEST(EventDeclarationBytes, KeepItsIdsAndXmlItsKeys)
{
    auto declaration = new_declaration();
    event_declaration_set_property(declaration.get(), "count", nullptr, nullptr);
    event_declaration_set_global_id(declaration.get(), 3);
    event_declaration_set_nice_names(declaration.get(), "load", "Load <&\"'>\t", nullptr);
    Owned<GArray> bytes(event_declaration_serialize(declaration.get()));
    Owned<event_declaration> read(event_declaration_deserialize(bytes.get()));
    EXPECT_EQ(event_declaration_get_global_id(read.get()), 3u);
    EXPECT_TRUE(event_declaration_is_property(read.get()));
    // After reading bytes a declaration is not read by position until a key is added.
    inspectable *content = event_declaration_get_inspectable(read.get());
    EXPECT_FALSE(inspectable_has_keyvalue_with_tag(content, "property-state"));

    Owned<gchar> xml(event_declaration_serialize_xml(declaration.get()));
    Owned<event_declaration> from_xml(event_declaration_deserialize_xml(xml.get()));
    ASSERT_NE(from_xml, nullptr);
    EXPECT_TRUE(event_declaration_is_property(from_xml.get()));
    EXPECT_EQ(event_declaration_get_global_id(from_xml.get()), 0u);
    EXPECT_TRUE(inspectable_is_equal(event_declaration_get_inspectable(from_xml.get()),
                                     event_declaration_get_inspectable(declaration.get())));
}

TEST(EventDeclarationProperty, ItsEventIsThereWhenItIsComplete)
{
    auto declaration = new_declaration();
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr);
    EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
    event_declaration_set_property(
        declaration.get(), nullptr,
        [](event *event, gpointer) -> gboolean {
            gdouble load = 1;
            gint count = 2;
            gboolean active = TRUE;
            event_set_timestamp(event, 5, 6);
            return event_set_value(event, "load", &load) &&
                   event_set_value(event, "count", &count) &&
                   event_set_value(event, "active", &active);
        },
        nullptr);
    Owned<event> event(event_declaration_get_property_event(declaration.get()));
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(event_is_property(event.get()));
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    EXPECT_EQ(event_get_timestamp(event.get()).tv_sec, 5);
    G_GNUC_END_IGNORE_DEPRECATIONS
}

} // namespace
