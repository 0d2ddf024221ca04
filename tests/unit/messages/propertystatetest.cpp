// SPDX-License-Identifier: LGPL-2.1-or-later

// Property states: their two expressions, bytes, XML and wrong arguments.

#include "support/records.hpp"
#include "unit/messages/criticals.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Owned<property_state> make()
{
    return Owned<property_state>(property_state_new());
}

Owned<property_state> day()
{
    auto state = make();
    EXPECT_TRUE(property_state_add_key_value(state.get(), "mode", "day", TRUE));
    EXPECT_TRUE(property_state_add_key_value(state.get(), "zone", "1", FALSE));
    return state;
}

std::vector<std::string> conditions(subscribe_expression *se)
{
    LogCapture log;
    inspectable_print(subscribe_expression_get_inspectable(se));
    return log.messages();
}

TEST(PropertyStateArguments, AreChecked)
{
    auto made = make();
    property_state *state = made.get();
    EXPECT_REFUSAL(property_state_add_key_value, (state, nullptr, "v", FALSE), FALSE,
                   "key != NULL");
    EXPECT_REFUSAL(property_state_add_key_value, (state, "k", nullptr, FALSE), FALSE,
                   "value != NULL");
    EXPECT_REFUSAL(property_state_set_name_space, (nullptr, "k", "n"), FALSE, "self != NULL");
    EXPECT_REFUSAL(property_state_set_name_space, (state, nullptr, "n"), FALSE, "key != NULL");
    EXPECT_REFUSAL(property_state_get_subscribe_expression, (nullptr), nullptr, "self != NULL");
    EXPECT_REFUSAL(property_state_get_inverted_subscribe_expression, (nullptr), nullptr,
                   "self != NULL");
    EXPECT_REFUSAL(property_state_get_inspectable, (nullptr), nullptr, "prop != NULL");
    EXPECT_REFUSAL(property_state_serialize, (nullptr), nullptr, "ps != NULL");
    EXPECT_REFUSAL(property_state_deserialize_xml, (nullptr), nullptr, "xml != NULL");
    EXPECT_VOID_REFUSAL(property_state_print, (nullptr), "self != NULL");
    EXPECT_EQ(inspectable_get_key_count(property_state_get_inspectable(state)), 0u);
    property_state_free(nullptr);
}

using PropertyStateDeathTest = testing::Test;

TEST_F(PropertyStateDeathTest, TheInternalFunctionsEndTheProcess)
{
    auto state = make();
    Owned<GArray> array(serialize_create_array());
    guint indx = 0;
    EXPECT_DEATH(property_state_serialize_internal(state.get(), nullptr), "array != NULL");
    EXPECT_DEATH(property_state_deserialize_internal(nullptr, &indx), "array != NULL");
    EXPECT_DEATH(property_state_deserialize_internal(array.get(), nullptr), "indx != NULL");
    EXPECT_DEATH(property_state_deserialize(array_of({0xFA}).get()),
                 "type == SERIALIZE_ID_PROPERTY_STATE");
}

TEST(PropertyStateExpressions, AreThePairsAndTheirInversion)
{
    auto state = day();
    EXPECT_THAT(conditions(property_state_get_subscribe_expression(state.get())),
                testing::UnorderedElementsAre("[mode = 'day']", "[zone = '1']"));
    EXPECT_THAT(conditions(property_state_get_inverted_subscribe_expression(state.get())),
                testing::UnorderedElementsAre("[mode = '*']", "[mode != 'day']", "[zone = '1']"));
    EXPECT_FALSE(
        subscribe_expression_get_clandestine(property_state_get_subscribe_expression(state.get())));
}

TEST(PropertyStateExpressions, AreMadeOnce)
{
    auto state = day();
    subscribe_expression *inverted = property_state_get_inverted_subscribe_expression(state.get());
    subscribe_expression *plain = property_state_get_subscribe_expression(state.get());
    EXPECT_EQ(property_state_get_inverted_subscribe_expression(state.get()), inverted);
    EXPECT_NE(plain, inverted);
    EXPECT_TRUE(property_state_set_name_space(state.get(), "mode", "late"));
    EXPECT_THAT(conditions(plain), testing::UnorderedElementsAre("[mode = 'day']", "[zone = '1']"));
    EXPECT_STREQ(inspectable_get_name_space(property_state_get_inspectable(state.get()), "mode"),
                 "late");
}

TEST(PropertyStateExpressions, CarryTheNameSpaces)
{
    auto state = day();
    EXPECT_TRUE(property_state_set_name_space(state.get(), "mode", "n"));
    EXPECT_FALSE(property_state_set_name_space(state.get(), "missing", "n"));
    EXPECT_THAT(conditions(property_state_get_subscribe_expression(state.get())),
                testing::UnorderedElementsAre("[n:mode = 'day']", "[zone = '1']"));
    EXPECT_THAT(conditions(property_state_get_inverted_subscribe_expression(state.get())),
                testing::UnorderedElementsAre("[n:mode = '*']", "[mode != 'day']", "[zone = '1']"));
}

TEST(PropertyStateExpressions, WithoutAStateKeyAreTheSame)
{
    auto state = make();
    property_state_add_key_value(state.get(), "zone", "1", FALSE);
    auto content = [](subscribe_expression *se) {
        return subscribe_expression_get_inspectable(se);
    };
    EXPECT_TRUE(inspectable_is_equal(
        content(property_state_get_subscribe_expression(state.get())),
        content(property_state_get_inverted_subscribe_expression(state.get()))));
}

TEST(PropertyStateKeys, ARepeatedKeyOrASecondStateKeyIsSilentlyRefused)
{
    LogCapture log;
    auto state = day();
    EXPECT_FALSE(property_state_add_key_value(state.get(), "mode", "night", FALSE));
    EXPECT_FALSE(property_state_add_key_value(state.get(), "other", "x", TRUE));
    EXPECT_EQ(inspectable_get_key_count(property_state_get_inspectable(state.get())), 2u);
    EXPECT_STREQ(inspectable_get_value(property_state_get_inspectable(state.get()), "mode"), "day");
    EXPECT_THAT(log.criticals(), IsEmpty());
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST(PropertyStateBytes, AreItsTagAndItsInspectableAndReadLocked)
{
    Owned<GArray> bytes(property_state_serialize(make().get()));
    EXPECT_EQ(bytes_of(bytes.get()), (Bytes{0xF9, 0xF2, 1, 0, 3, 0, 0xF3, 0, 0, 0, 0, 0, 0}));
    Owned<property_state> read(property_state_deserialize(bytes.get()));
    EXPECT_REFUSAL(property_state_add_key_value, (read.get(), "k", "v", FALSE), FALSE,
                   "!self->locked");
    bytes.reset(property_state_serialize(day().get()));
    read.reset(property_state_deserialize(bytes.get()));
    EXPECT_TRUE(inspectable_is_equal(property_state_get_inspectable(read.get()),
                                     property_state_get_inspectable(day().get())));
}

TEST(PropertyStateXml, RoundTripsAndIsReadLocked)
{
    auto state = day();
    Owned<gchar> xml(property_state_serialize_xml(state.get()));
    EXPECT_TRUE(g_str_has_prefix(xml.get(), "<property>")) << xml.get();
    Owned<property_state> read(property_state_deserialize_xml(xml.get()));
    ASSERT_NE(read, nullptr);
    EXPECT_TRUE(inspectable_is_equal(property_state_get_inspectable(read.get()),
                                     property_state_get_inspectable(state.get())));
    EXPECT_REFUSAL(property_state_add_key_value, (read.get(), "k", "v", FALSE), FALSE,
                   "!self->locked");
}

TEST(PropertyStateXml, WantsExactlyOneStateKey)
{
    auto first_warning = [](const std::string &keys) {
        LogCapture log;
        std::string xml = "<property><expression>" + keys + "</expression></property>";
        EXPECT_EQ(property_state_deserialize_xml(xml.c_str()), nullptr);
        return log.warnings().at(0);
    };
    const std::string plain = "<keyvalue key='a' value='1'/>";
    const std::string one = "<keyvalue key='b' value='1'><tag tag='property-state'/></keyvalue>";
    const std::string two = "<keyvalue key='c' value='1'><tag tag='property-state'/></keyvalue>";
    EXPECT_EQ(first_warning(plain),
              "Expected to find 1 keyvalue tagged with 'property-state' but found 0");
    EXPECT_EQ(first_warning(plain + one + two),
              "Expected to find 1 keyvalue tagged with 'property-state' but found 2");
    LogCapture log;
    EXPECT_EQ(property_state_deserialize_xml("<declare/>"), nullptr);
    EXPECT_EQ(log.warnings().at(0), "Expected tag 'property' and got 'declare'");
}

TEST(PropertyStatePrint, HasItsLines)
{
    auto state = make();
    property_state_add_key_value(state.get(), "mode", "day", TRUE);
    LogCapture log;
    property_state_print(state.get());
    EXPECT_THAT(log.messages(), ElementsAre("----------- Property State ------------",
                                            "[mode = 'day'] {property-state}",
                                            "---------------------------------------"));
}

TEST(PropertyStateExpressions, LockTheirStateOnceTheyWereAskedFor)
{
    LogCapture log;
    Owned<property_state> state(property_state_new());
    EXPECT_TRUE(property_state_add_key_value(state.get(), "mode", "day", TRUE));
    EXPECT_TRUE(property_state_add_key_value(state.get(), "zone", "1", FALSE));
    EXPECT_FALSE(property_state_add_key_value(state.get(), "zone", "2", FALSE));
    EXPECT_FALSE(property_state_add_key_value(state.get(), "other", "2", TRUE));
    EXPECT_TRUE(log.criticals().empty());
    subscribe_expression *plain = property_state_get_subscribe_expression(state.get());
    subscribe_expression *inverted = property_state_get_inverted_subscribe_expression(state.get());
    EXPECT_FALSE(property_state_add_key_value(state.get(), "more", "2", FALSE));
    EXPECT_THAT(log.criticals(),
                ElementsAre("property_state_add_key_value: assertion '!self->locked' failed"));

    auto matches = [](const char *mode, const char *zone, subscribe_expression *expression) {
        Owned<event> event(event_new());
        inspectable *content = event_get_inspectable(event.get());
        if (mode)
            inspectable_add_key_value(content, "mode", FALSE, mode, FALSE, FALSE);
        inspectable_add_key_value(content, "zone", FALSE, zone, FALSE, FALSE);
        return event_contains(event.get(), expression) == TRUE;
    };
    EXPECT_TRUE(matches("day", "1", plain));
    EXPECT_FALSE(matches("night", "1", plain));
    EXPECT_TRUE(matches("night", "1", inverted));
    EXPECT_FALSE(matches("day", "1", inverted));
    EXPECT_FALSE(matches("night", "2", inverted));
    EXPECT_FALSE(matches(nullptr, "1", inverted));

    Owned<GArray> bytes(property_state_serialize(state.get()));
    Owned<property_state> read(property_state_deserialize(bytes.get()));
    EXPECT_FALSE(property_state_add_key_value(read.get(), "more", "2", FALSE));
}

} // namespace
