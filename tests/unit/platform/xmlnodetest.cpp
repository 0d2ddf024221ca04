// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/xmlnode.hpp"
#include "support/records.hpp"
#include "support/temporaryfolder.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace qandor;
using namespace qandor::test;

namespace {

std::string round_trip(const std::string &value)
{
    XmlTreeOwner tree(xmlnode_create_node());
    tree->name = g_strdup("e");
    xmlnode_add_attribute(tree.get(), "a", value.c_str());
    Owned<gchar> text(xmlnode_get_xml(tree.get()));
    XmlTreeOwner read(xmlnode_parse_string(text.get()));
    return read ? xmlnode_get_attribute_value(read.get(), "a") : "unreadable";
}

TEST(XmlNode, EveryAttributeValueReadsBackAsItWas)
{
    for (const char *value : {"", "plain", "<&>\"'", " a  b ", "tab\tline\nfeed\rend", "äß€😀"})
        EXPECT_EQ(round_trip(value), value);
}

TEST(XmlNode, WhatXmlCannotHoldBecomesAQuestionMark)
{
    EXPECT_EQ(round_trip("a\001b"), "a?b");
    EXPECT_EQ(round_trip("a\xFFg"), "a?g");
    EXPECT_EQ(round_trip("a\xEF\xBF\xBF"
                         "b"),
              "a?b");
}

TEST(XmlNode, ChildrenKeepTheirOrderAndManyAreLinear)
{
    XmlTreeOwner tree(xmlnode_create_node());
    tree->name = g_strdup("e");
    for (int i = 0; i < 100000; ++i) {
        xmlnode *child = xmlnode_create_node();
        child->name = g_strdup_printf("c%d", i);
        xmlnode_add_child(tree.get(), child);
    }
    EXPECT_STREQ(static_cast<xmlnode *>(tree->children->data)->name, "c0");
    EXPECT_STREQ(static_cast<xmlnode *>(g_list_last(tree->children)->data)->name, "c99999");
}

TEST(XmlNode, ReadsElementsAndAttributesAndNothingElse)
{
    XmlTreeOwner tree(xmlnode_parse_string(
        "<?xml version='1.0'?><a x='1' y='2'>text<b/><!-- c --><b z='3'/></a>"));
    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(tree->name, "a");
    EXPECT_STREQ(xmlnode_get_attribute_value(tree.get(), "y"), "2");
    EXPECT_EQ(xmlnode_get_attribute_value(tree.get(), "z"), nullptr);
    EXPECT_EQ(g_list_length(tree->children), 2u);
}

TEST(XmlNode, RefusesWhatIsMalformedOrDangerous)
{
    for (const char *text :
         {"", "text", "<a>", "<a></b>", "<a/><b/>", "<a x=1/>", "<a x='1' x='2'/>",
          "<!DOCTYPE a><a/>", "<!DOCTYPE a [<!ENTITY e 'x'>]><a b='&e;'/>", "<a b='&e;'/>",
          "<?xml version='1.0' encoding='EBCDIC-FI-SE'?><a/>"})
        EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string(text)), nullptr) << text;
}

TEST(XmlNode, DepthAndSizeAreBounded)
{
    auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i)
            text += "<a>";
        for (int i = 0; i < depth; ++i)
            text += "</a>";
        return text;
    };
    EXPECT_NE(XmlTreeOwner(xmlnode_parse_string(nested(max_depth).c_str())), nullptr);
    EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string(nested(max_depth + 1).c_str())), nullptr);
    std::string large = "<a>" + std::string(max_document_size, ' ') + "</a>";
    EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string(large.c_str())), nullptr);
}

TEST(XmlNode, LoadsRegularFilesInTheEncodingsItKnows)
{
    TemporaryFolder folder;
    auto value_in = [&](const std::string &bytes) -> std::string {
        XmlTreeOwner tree(xmlnode_load_file(folder.write("file.xml", bytes).c_str()));
        return tree ? xmlnode_get_attribute_value(tree.get(), "x") : "unreadable";
    };
    EXPECT_EQ(value_in("<a x='\xC3\xA4'/>"), "ä");
    EXPECT_EQ(value_in("<?xml version='1.0' encoding='ISO-8859-1'?><a x='\xE4'/>"), "ä");
    EXPECT_EQ(value_in("<?xml version='1.0' encoding='US-ASCII'?><a x='a'/>"), "a");
    std::string ascii = "<a x='b'/>", utf16 = "\xFF\xFE";
    for (char character : ascii)
        utf16 += std::string{character, '\0'};
    EXPECT_EQ(value_in(utf16), "b");
}

TEST(XmlNode, WhatIsNoRegularFileIsNotWaitedFor)
{
    TemporaryFolder folder;
    EXPECT_EQ(xmlnode_load_file((folder.path() / "missing").c_str()), nullptr);
    EXPECT_EQ(xmlnode_load_file(folder.path().c_str()), nullptr);
    std::string pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(xmlnode_load_file(pipe.c_str()), nullptr);
}

} // namespace
