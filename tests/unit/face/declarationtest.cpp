// SPDX-License-Identifier: LGPL-2.1-or-later

// Declarations built in C++ are the ones that the C interface builds.

#include <qandor/qandor.hpp>

#include <gtest/gtest.h>

using namespace qandor;

namespace {

TEST(Declaration, SaysTheSameAsItsXml)
{
    Declaration declaration;
    declaration.topic("Device", "Load")
        .key<double>("load", {.name_space = "space",
                              .nice_name = "Load average",
                              .complex_type = "complex",
                              .tags = {"unit:1", "quick"}})
        .key("limit", 4, {.value_nice_name = "four"})
        .key("on", true);

    std::optional<Declaration> read = Declaration::from_xml(R"(
        <declare><expression>
          <keyvalue key="topic0" value="Device"/>
          <keyvalue key="topic1" value="Load"/>
          <keyvalue key="load" name-space="space" complex-type-name="complex"
                    key-nice-name="Load average" value-wildcard="true" value-type="double">
            <tag tag="unit:1"/><tag tag="quick"/>
          </keyvalue>
          <keyvalue key="limit" value="4" value-nice-name="four" value-type="int"/>
          <keyvalue key="on" value="1" value-type="bool"/>
        </expression></declare>)");
    ASSERT_TRUE(read);
    EXPECT_TRUE(inspectable_is_equal(event_declaration_get_inspectable(declaration.c()),
                                     event_declaration_get_inspectable(read->c())));
    EXPECT_EQ(declaration.to_xml(), read->to_xml());
}

TEST(Declaration, APropertysStateIsFilledByItsFunction)
{
    Declaration declaration;
    declaration.topic("Power").key<std::string>("state").property(
        "state", [](Event &event) { event["state"] = "saving"; });
    EXPECT_TRUE(declaration.is_property());

    ::event *state = event_declaration_get_property_event(declaration.c());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(Event(state)["state"].as<std::string>(), "saving");
}

TEST(Declaration, ACopyKeepsTheFunctionOfItsProperty)
{
    std::optional<Declaration> first = Declaration();
    first->topic("Power").key<std::string>("state").property(
        "state", [](Event &event) { event["state"] = "saving"; });
    Declaration copy = *first;
    first.reset();
    Event state(event_declaration_get_property_event(copy.c()));
    EXPECT_EQ(state["state"].as<std::string>(), "saving");
}

TEST(Declaration, InternalOnesAreOutsideTheTree)
{
    EXPECT_TRUE(Declaration::internal().is_internal());
    EXPECT_FALSE(Declaration().is_internal());
}

TEST(Declaration, MatchesWhatItsEventsCanSatisfy)
{
    Declaration declaration;
    declaration.topic("Device").key<int>("count");
    EXPECT_TRUE(declaration.matches(key("count") == 5));
    EXPECT_FALSE(declaration.matches(key("topic0") == "Elsewhere"));
}

TEST(Declaration, WhatIsNotInstalledOrNoDeclarationIsNothing)
{
    EXPECT_FALSE(Declaration::installed("qandor-test-no-such-type"));
}

} // namespace
