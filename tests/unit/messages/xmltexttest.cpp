// SPDX-License-Identifier: LGPL-2.1-or-later

// XML texts to objects: which reader they go to and what is said about those that are refused.

#include "support/records.hpp"
#include "unit/messages/criticals.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> warnings_of(const char *xml, guint32 type)
{
    LogCapture log;
    EXPECT_EQ(event_utils_deserialize_xml(xml, type), nullptr);
    return log.warnings();
}

TEST(XmlText, IsReadByTheReaderOfItsType)
{
    const char *keys = "<expression><keyvalue key='k' value='v'><tag tag='property-state'/>"
                       "</keyvalue></expression>";
    auto document = [&](const std::string &root) {
        return "<" + root + ">" + keys + "</" + root + ">";
    };
    Owned<event_declaration> declaration(static_cast<event_declaration *>(
        event_utils_deserialize_xml(document("declare").c_str(), IT_EVENT_DECLARATION)));
    EXPECT_TRUE(event_declaration_is_property(declaration.get()));
    Owned<subscribe_expression> expression(static_cast<subscribe_expression *>(
        event_utils_deserialize_xml(document("subscribe").c_str(), IT_SUBSCRIBE_EXPRESSION)));
    EXPECT_TRUE(event_declaration_contains(declaration.get(), expression.get()));
    Owned<property_state> state(static_cast<property_state *>(
        event_utils_deserialize_xml(document("property").c_str(), IT_PROPERTY_STATE)));
    EXPECT_EQ(inspectable_get_key_count(property_state_get_inspectable(state.get())), 1u);
}

TEST(XmlText, NothingIsRefused)
{
    EXPECT_REFUSAL(event_utils_deserialize_xml, (nullptr, IT_EVENT_DECLARATION), nullptr,
                   "xml != NULL");
}

TEST(XmlText, WhatIsNoXmlIsQuotedInOneWarning)
{
    for (guint32 type : {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
        EXPECT_THAT(warnings_of("no %s xml", type), ElementsAre("Could not parse XML 'no %s xml'"));
        EXPECT_THAT(warnings_of("", type), ElementsAre("Could not parse XML ''"));
    }
}

TEST(XmlText, AnotherRootIsWarnedAboutTwiceTheSecondTimeWithTheDocument)
{
    const std::pair<guint32, const char *> readers[] = {{IT_EVENT_DECLARATION, "declare"},
                                                        {IT_SUBSCRIBE_EXPRESSION, "subscribe"},
                                                        {IT_PROPERTY_STATE, "property"}};
    for (auto [type, name] : readers)
        EXPECT_THAT(warnings_of("<other a='1'/>", type),
                    ElementsAre("Expected tag '" + std::string(name) + "' and got 'other'",
                                testing::MatchesRegex("Failed when deserializing "
                                                      "'<other a=\"1\"/>\n?'")));
}

using XmlTextDeathTest = testing::Test;

TEST_F(XmlTextDeathTest, AnUnknownTypeEndsTheProcessAfterACritical)
{
    EXPECT_DEATH(event_utils_deserialize_xml("<event/>", IT_EVENT),
                 "Unknown type to deserialize: 1");
    EXPECT_DEATH(event_utils_deserialize_xml("<event/>", 4), "assertion failed: .FALSE");
}

TEST(XmlText, AWrongOneIsWarnedAboutAndGivesNothing)
{
    EXPECT_THAT(warnings_of("<broken", IT_EVENT_DECLARATION),
                ElementsAre("Could not parse XML '<broken'"));
    EXPECT_THAT(warnings_of("<subscribe><tag/></subscribe>", IT_EVENT_DECLARATION),
                ElementsAre("Expected tag 'declare' and got 'subscribe'",
                            HasSubstr("Failed when deserializing '<subscribe>")));
    EXPECT_THAT(warnings_of("<declare/>", IT_EVENT_DECLARATION),
                ElementsAre("There are no expressions in the xml", testing::_));
    EXPECT_THAT(
        warnings_of("<declare><other/></declare>", IT_EVENT_DECLARATION),
        ElementsAre("Expected xml tag 'expression' or 'tag' and got 'declare'", testing::_));
    EXPECT_THAT(
        warnings_of("<declare><expression><x/></expression></declare>", IT_EVENT_DECLARATION),
        ElementsAre("Expected xml tag 'keyvalue' but got 'x'", "Could not deserialize expression",
                    testing::_));
    EXPECT_THAT(warnings_of("<declare><expression/><expression/></declare>", IT_EVENT_DECLARATION),
                ElementsAre("Only subscribe expressions support the OR statement.", testing::_));
    EXPECT_THAT(warnings_of("<property><expression><keyvalue key='a'/></expression></property>",
                            IT_PROPERTY_STATE),
                ElementsAre("Expected to find 1 keyvalue tagged with 'property-state' but found 0",
                            testing::_));
    LogCapture log;
    Owned<event_declaration> tagged(
        event_declaration_deserialize_xml("<declare><tag tag='t'/></declare>"));
    EXPECT_NE(tagged, nullptr);
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(XmlTextDeathTest, AnEventHasNoXmlForm)
{
    EXPECT_DEATH(event_utils_deserialize_xml("<event/>", IT_EVENT), "FALSE");
}

} // namespace
