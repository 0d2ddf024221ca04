// SPDX-License-Identifier: LGPL-2.1-or-later

// The XML form of key-values and inspectables, and the attribute helpers.

#include "platform/xmlnode.hpp"
#include "support/logcapture.hpp"
#include "support/records.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using qandor::XmlTreeOwner;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

XmlTreeOwner parse(const std::string &text)
{
    XmlTreeOwner tree(xmlnode_parse_string(text.c_str()));
    EXPECT_NE(tree, nullptr) << text;
    return tree;
}

XmlTreeOwner element(const char *name)
{
    XmlTreeOwner node(xmlnode_create_node());
    node->name = g_strdup(name);
    return node;
}

std::string print(const key_value *record)
{
    LogCapture log;
    key_value_print(record);
    return log.messages().at(0);
}

TEST(XmlAttributes, OnlyTextsThatAreNotEmptyAreWritten)
{
    XmlTreeOwner node = element("e");
    xml_set_attribute(node.get(), "null", nullptr);
    xml_set_attribute(node.get(), "empty", "");
    xml_set_attribute(node.get(), "text", "x");
    EXPECT_EQ(xmlnode_get_attribute_value(node.get(), "null"), nullptr);
    EXPECT_EQ(xmlnode_get_attribute_value(node.get(), "empty"), nullptr);
    EXPECT_STREQ(xml_get_attribute(node.get(), "text"), "x");
    EXPECT_STREQ(xml_get_attribute(node.get(), "empty"), "");
}

// It is the node's, and is lent for as long as that lives.
TEST(XmlAttributes, ATextStaysWhereItIsWhenOtherAttributesAreWritten)
{
    XmlTreeOwner node = element("e");
    xml_set_attribute(node.get(), "first", "short");
    const gchar *text = xml_get_attribute(node.get(), "first");
    for (int i = 0; i < 20; ++i)
        xml_set_attribute(node.get(), ("a" + std::to_string(i)).c_str(), "x");
    EXPECT_EQ(xml_get_attribute(node.get(), "first"), text);
    EXPECT_STREQ(text, "short");
}

TEST(XmlAttributes, ABooleanIsTrueInAnyCaseAndWrittenOnlyWhenItIsExactlyTrue)
{
    XmlTreeOwner node =
        parse("<e a='true' b='TRUE' c='tRuE' d='false' f='1' g='' h='true ' i='yes'/>");
    for (const char *name : {"a", "b", "c"})
        EXPECT_EQ(xml_get_boolean(node.get(), name), TRUE) << name;
    for (const char *name : {"d", "f", "g", "h", "i", "missing"})
        EXPECT_EQ(xml_get_boolean(node.get(), name), FALSE) << name;

    XmlTreeOwner written = element("e");
    xml_set_boolean(written.get(), "true", TRUE);
    xml_set_boolean(written.get(), "false", FALSE);
    xml_set_boolean(written.get(), "two", 2);
    xml_set_boolean(written.get(), "minus", -1);
    EXPECT_STREQ(xmlnode_get_attribute_value(written.get(), "true"), "true");
    for (const char *name : {"false", "two", "minus"})
        EXPECT_EQ(xmlnode_get_attribute_value(written.get(), name), nullptr) << name;
}

TEST(XmlAttributes, AValueTypeHasTwoSpellingsInAnyCase)
{
    auto type_of = [](const std::string &text) {
        return xml_get_value_type(parse("<e t='" + text + "'/>").get(), "t");
    };
    for (const char *text : {"int", "integer", "INT", "Integer"})
        EXPECT_EQ(type_of(text), 1u) << text;
    for (const char *text : {"bool", "boolean", "BOOL", "Boolean"})
        EXPECT_EQ(type_of(text), 2u) << text;
    for (const char *text : {"double", "float", "DOUBLE", "Float"})
        EXPECT_EQ(type_of(text), 3u) << text;
    for (const char *text : {"string", "", "ints", "2", "real"})
        EXPECT_EQ(type_of(text), 4u) << text;
    EXPECT_EQ(xml_get_value_type(element("e").get(), "t"), 4u);
}

TEST(XmlAttributes, AValueTypeIsWrittenUnlessItIsTheDefault)
{
    const std::pair<guint32, const char *> spellings[] = {
        {0, nullptr}, {1, "int"}, {2, "bool"}, {3, "double"}, {4, nullptr}, {5, nullptr}};
    for (auto [type, spelling] : spellings) {
        XmlTreeOwner node = element("e");
        xml_set_value_type(node.get(), "t", type);
        EXPECT_STREQ(xmlnode_get_attribute_value(node.get(), "t"), spelling) << type;
    }
}

TEST(KeyValueXml, HasItsAttributesInTheirOrderAndItsTagsAsChildren)
{
    Owned<key_value> record(
        key_value_new("k", FALSE, "ns", "kn", "v", FALSE, "vn", "us", "ct", TRUE));
    key_value_add_tag(record.get(), "t");
    key_value_add_tag(record.get(), "u");
    XmlTreeOwner node(key_value_serialize_xml(record.get()));
    EXPECT_STREQ(node->name, "keyvalue");
    using Pair = std::pair<std::string, std::string>;
    EXPECT_THAT(node->attributes,
                ElementsAre(Pair("key", "k"), Pair("name-space", "ns"),
                            Pair("complex-type-name", "ct"), Pair("key-nice-name", "kn"),
                            Pair("value", "v"), Pair("value-nice-name", "vn"),
                            Pair("value-user-string", "us"), Pair("not", "true")));
    ASSERT_EQ(g_list_length(node->children), 2u);
    auto *tag = static_cast<xmlnode *>(node->children->data);
    EXPECT_STREQ(tag->name, "tag");
    EXPECT_STREQ(xmlnode_get_attribute_value(tag, "tag"), "t");
}

TEST(KeyValueXml, LeavesOutWhatIsTheDefault)
{
    Owned<key_value> record(
        key_value_new("k", FALSE, nullptr, "", "", FALSE, "", nullptr, "", FALSE));
    XmlTreeOwner node(key_value_serialize_xml(record.get()));
    using Pair = std::pair<std::string, std::string>;
    EXPECT_THAT(node->attributes, ElementsAre(Pair("key", "k")));
    EXPECT_EQ(node->children, nullptr);

    Owned<key_value> wildcard(key_value_new("x", TRUE, "", "", "v", FALSE, "", "", "", FALSE));
    node.reset(key_value_serialize_xml(wildcard.get()));
    EXPECT_THAT(node->attributes, ElementsAre(Pair("key-wildcard", "true"), Pair("value", "v")));

    Owned<key_value> open(key_value_new("k", FALSE, "", "", "x", TRUE, "", "", "", FALSE));
    node.reset(key_value_serialize_xml(open.get()));
    EXPECT_THAT(node->attributes, ElementsAre(Pair("key", "k"), Pair("value-wildcard", "true")));
}

TEST(KeyValueXml, ReadsWhatIsThereAndPassesOverStrangeChildren)
{
    LogCapture log;
    Owned<key_value> record(key_value_deserialize_xml(
        parse("<keyvalue key='k' value='v' not='TRUE' value-type='Float' strange='1'>"
              "<tag tag='t'/><other tag='o'/><tag/><tag tag='t'/></keyvalue>")
            .get()));
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_EQ(print(record.get()), "[k != 'v'] {t} {}");
    Owned<GArray> bytes(serialize_create_array());
    key_value_serialize(record.get(), bytes.get());
    EXPECT_EQ(bytes_of(bytes.get()), (Bytes{245, 1, 0, 'k', 0, 0, 0, 0, 0, 1, 0, 'v', 0, 0,
                                            0,   0, 0, 0,   0, 1, 3, 2, 0, 1, 0, 't', 0, 0}));
}

TEST(KeyValueXml, WithoutAttributesIsAnEmptyKeyWithAnEmptyValue)
{
    Owned<key_value> record(key_value_deserialize_xml(parse("<keyvalue/>").get()));
    EXPECT_EQ(print(record.get()), "[ = '']");
}

TEST(KeyValueXml, BothWildcardsAreSilentlyNothing)
{
    LogCapture log;
    EXPECT_EQ(key_value_deserialize_xml(
                  parse("<keyvalue key-wildcard='true' value-wildcard='true'/>").get()),
              nullptr);
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST(KeyValueXml, AnotherElementIsWarnedAbout)
{
    LogCapture log;
    EXPECT_EQ(key_value_deserialize_xml(parse("<KeyValue key='k'/>").get()), nullptr);
    EXPECT_THAT(log.warnings(), ElementsAre("Expected xml tag 'keyvalue' but got 'KeyValue'"));
}

TEST(InspectableXml, HasAnExpressionForEachAlternativeAndThenTheTags)
{
    Owned<inspectable> event(inspectable_new(IT_EVENT));
    inspectable_add_tag(event.get(), "t");
    inspectable_add_tag(event.get(), "t");
    XmlTreeOwner node(inspectable_serialize_xml(event.get()));
    EXPECT_EQ(node->name, nullptr) << "whoever asked for it names it";
    ASSERT_EQ(g_list_length(node->children), 3u);
    EXPECT_STREQ(static_cast<xmlnode *>(node->children->data)->name, "expression");
    EXPECT_STREQ(static_cast<xmlnode *>(node->children->next->data)->name, "tag");

    Owned<inspectable> expression(inspectable_new(IT_SUBSCRIBE_EXPRESSION));
    inspectable_add_key_value(expression.get(), nullptr, TRUE, "x", FALSE, FALSE);
    inspectable_add_key_value(expression.get(), "a", FALSE, "1", FALSE, FALSE);
    inspectable_or(expression.get());
    node.reset(inspectable_serialize_xml(expression.get()));
    node->name = g_strdup("e");
    Owned<gchar> text(xmlnode_get_xml(node.get()));
    Owned<inspectable> again(
        inspectable_deserialize_xml(parse(text.get()).get(), IT_SUBSCRIBE_EXPRESSION));
    EXPECT_TRUE(inspectable_is_equal(again.get(), expression.get()));
    auto *first = static_cast<xmlnode *>(node->children->data);
    EXPECT_STREQ(xml_get_attribute(static_cast<xmlnode *>(first->children->data), "key"), "a")
        << "key wildcards come after the keyed ones";
}

std::vector<std::string> warnings_of(const char *xml, guint32 type)
{
    XmlTreeOwner tree = parse(xml);
    LogCapture log;
    EXPECT_EQ(inspectable_deserialize_xml(tree.get(), type), nullptr) << xml;
    return log.warnings();
}

TEST(InspectableXml, WhatCannotBeReadIsWarnedAboutAndGivesNothing)
{
    EXPECT_THAT(warnings_of("<e/>", IT_EVENT), ElementsAre("There are no expressions in the xml"));
    EXPECT_THAT(warnings_of("<E><expression/><other/></E>", IT_EVENT),
                ElementsAre("Expected xml tag 'expression' or 'tag' and got 'E'"));
    EXPECT_THAT(warnings_of("<e><expression/><expression/></e>", IT_EVENT),
                ElementsAre("Only subscribe expressions support the OR statement."));
    EXPECT_THAT(warnings_of("<e><expression><tag tag='t'/></expression></e>", IT_EVENT),
                ElementsAre("Expected xml tag 'keyvalue' but got 'tag'",
                            "Could not deserialize expression"));
    EXPECT_THAT(warnings_of("<e><expression><keyvalue key-wildcard='true' value-wildcard='true'/>"
                            "</expression></e>",
                            IT_SUBSCRIBE_EXPRESSION),
                ElementsAre("Could not deserialize expression"));
}

TEST(InspectableXml, OnlyTagsAreAnObjectWithoutKeys)
{
    LogCapture log;
    Owned<inspectable> made(
        inspectable_deserialize_xml(parse("<e><tag tag='t'/><tag/></e>").get(), IT_EVENT));
    ASSERT_NE(made, nullptr);
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_EQ(inspectable_get_key_count(made.get()), 0u);
    EXPECT_THAT(take_strings(inspectable_get_tags(made.get())), ElementsAre("", "t"));
}

TEST(InspectableXml, ARepeatedKeyIsTheLatestInADeclarationAndAddsUpElsewhere)
{
    const char *xml = "<e><expression><keyvalue key='a' value='1'/><keyvalue key='a' value='2'/>"
                      "</expression></e>";
    Owned<inspectable> declaration(
        inspectable_deserialize_xml(parse(xml).get(), IT_EVENT_DECLARATION));
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "a"), "2");
    for (guint32 type : {IT_EVENT, IT_PROPERTY_STATE, IT_SUBSCRIBE_EXPRESSION}) {
        Owned<inspectable> made(inspectable_deserialize_xml(parse(xml).get(), type));
        EXPECT_STREQ(inspectable_get_value(made.get(), "a"), "1");
        LogCapture log;
        inspectable_print(made.get());
        EXPECT_THAT(log.messages(), ElementsAre("[a = '1']", "[a = '2']"));
    }
}

using InspectableXmlDeathTest = testing::Test;

TEST_F(InspectableXmlDeathTest, ATagWhereNoneMayStandEndsTheProcess)
{
    XmlTreeOwner tree = parse("<e><tag tag='t'/></e>");
    for (guint32 type : {IT_PROPERTY_STATE, IT_SUBSCRIBE_EXPRESSION})
        EXPECT_DEATH(inspectable_deserialize_xml(tree.get(), type),
                     "inspect->type == IT_EVENT_DECLARATION \\|\\| inspect->type == IT_EVENT");
    EXPECT_DEATH(inspectable_deserialize_xml(nullptr, IT_EVENT), "node != NULL");
}

} // namespace
