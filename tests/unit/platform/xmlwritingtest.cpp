// SPDX-License-Identifier: LGPL-2.1-or-later

// What is written is always a document that can be read again, and the bounds of what is read.

#include "platform/xmlnode.hpp"
#include "support/records.hpp"
#include "support/temporaryfolder.hpp"

#include <gtest/gtest.h>

#include <random>

using namespace qandor;
using namespace qandor::test;

namespace {

xmlnode *new_element(const std::string &name)
{
    xmlnode *node = xmlnode_create_node();
    node->name = g_strdup(name.c_str());
    return node;
}

xmlnode *add_element(xmlnode *parent, const std::string &name)
{
    xmlnode *child = new_element(name);
    xmlnode_add_child(parent, child);
    return child;
}

std::string text_of(const xmlnode *node)
{
    return Owned<gchar>(xmlnode_get_xml(node)).get();
}

std::string value_read_back(const std::string &value)
{
    XmlTreeOwner tree(new_element("e"));
    xmlnode_add_attribute(tree.get(), "a", value.c_str());
    XmlTreeOwner read(xmlnode_parse_string(text_of(tree.get()).c_str()));
    return read ? xmlnode_get_attribute_value(read.get(), "a") : "unreadable";
}

TEST(XmlWriting, AnElementALineIndentedByItsDepth)
{
    XmlTreeOwner tree(new_element("draft"));
    xmlnode_add_attribute(tree.get(), "type", "Device/Power");
    xmlnode_add_attribute(tree.get(), "empty", "");
    xmlnode *keys = add_element(tree.get(), "keys");
    xmlnode_add_attribute(add_element(keys, "key"), "name", "<\"&'>\t");
    add_element(keys, "key");
    add_element(tree.get(), "last");
    g_free(tree->name);
    tree->name = g_strdup("declare");
    EXPECT_EQ(text_of(tree.get()), "<declare type=\"Device/Power\" empty=\"\">\n"
                                   "  <keys>\n"
                                   "    <key name=\"&lt;&quot;&amp;'&gt;&#9;\"/>\n"
                                   "    <key/>\n"
                                   "  </keys>\n"
                                   "  <last/>\n"
                                   "</declare>\n");
}

TEST(XmlWriting, OfTheControlCharactersOnlyWhiteSpaceIsKept)
{
    for (int byte = 1; byte < 0x80; ++byte) {
        std::string value{'<', static_cast<char>(byte), '>'};
        bool kept = byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r';
        EXPECT_EQ(value_read_back(value), kept ? value : "<?>") << byte;
    }
}

TEST(XmlWriting, BytesThatAreNoUtf8LeaveTheDocumentReadable)
{
    EXPECT_EQ(value_read_back("\x80"), "?");
    EXPECT_EQ(value_read_back("cut \xE2\x82"), "cut ??");
    EXPECT_EQ(value_read_back("overlong \xC0\xAF"), "overlong ??");
    EXPECT_EQ(value_read_back("surrogate \xED\xA0\x80"), "surrogate ???");
    EXPECT_EQ(value_read_back("beyond \xF4\x90\x80\x80"), "beyond ????");
    EXPECT_EQ(value_read_back("\xE2\x82"
                              "\xE2\x82\xAC"),
              "??€");
    EXPECT_EQ(value_read_back("\xEF\xBF\xBD\xF4\x8F\xBF\xBF"), "\xEF\xBF\xBD\xF4\x8F\xBF\xBF");
}

// A tree of up to a few dozen elements with values of any characters that XML can hold.
class RandomTree {
public:
    explicit RandomTree(unsigned seed) : random_(seed) {}

    xmlnode *element(int depth)
    {
        xmlnode *node = new_element("e" + std::to_string(below(5)));
        for (unsigned i = below(4); i > 0; --i)
            xmlnode_add_attribute(node, ("a" + std::to_string(i)).c_str(), value().c_str());
        for (unsigned i = depth < 4 ? below(4) : 0; i > 0; --i)
            xmlnode_add_child(node, element(depth + 1));
        return node;
    }

private:
    unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

    std::string value()
    {
        static const std::vector<std::string> pieces = {"a",     "Z",   " ", "  ", "\t", "\n",
                                                        "\r",    "\"",  "'", "<",  ">",  "&",
                                                        "&amp;", "]]>", "é", "€",  "😀",  "\x7F"};
        std::string text;
        for (unsigned i = below(8); i > 0; --i)
            text += pieces[below(static_cast<unsigned>(pieces.size()))];
        return text;
    }

    std::mt19937 random_;
};

void expect_equal(const xmlnode *left, const xmlnode *right)
{
    EXPECT_STREQ(left->name, right->name);
    EXPECT_EQ(left->attributes, right->attributes);
    ASSERT_EQ(g_list_length(left->children), g_list_length(right->children));
    for (GList *a = left->children, *b = right->children; a; a = a->next, b = b->next)
        expect_equal(static_cast<const xmlnode *>(a->data), static_cast<const xmlnode *>(b->data));
}

TEST(XmlWriting, AnyTreeReadsBackAsItWas)
{
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        XmlTreeOwner tree(RandomTree(seed).element(0));
        std::string text = text_of(tree.get());
        XmlTreeOwner read(xmlnode_parse_string(text.c_str()));
        ASSERT_NE(read, nullptr) << text;
        expect_equal(tree.get(), read.get());
        EXPECT_EQ(text_of(read.get()), text);
    }
}

TEST(XmlWriting, TheDeepestTreeThatIsReadIsWrittenAndReadAgain)
{
    XmlTreeOwner tree(new_element("top"));
    xmlnode *deepest = tree.get();
    for (int depth = 1; depth < max_depth; ++depth)
        deepest = add_element(deepest, "e");
    EXPECT_NE(XmlTreeOwner(xmlnode_parse_string(text_of(tree.get()).c_str())), nullptr);
    add_element(deepest, "e");
    EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string(text_of(tree.get()).c_str())), nullptr);
}

TEST(XmlReading, EntitiesThatMultiplyAreRefused)
{
    std::string text = "<!DOCTYPE a [<!ENTITY e0 'ha'>";
    for (int i = 1; i < 30; ++i) {
        std::string former = "&e" + std::to_string(i - 1) + ";";
        text += "<!ENTITY e" + std::to_string(i) + " '" + former + former + "'>";
    }
    text += "]><a x='&e29;'>&e29;</a>";
    EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string(text.c_str())), nullptr);
    EXPECT_EQ(XmlTreeOwner(xmlnode_parse_string("<!DOCTYPE a SYSTEM '/etc/passwd'><a/>")), nullptr);
}

TEST(XmlReading, PredefinedEntitiesAndReferencesAreRead)
{
    XmlTreeOwner tree(xmlnode_parse_string(
        "\xEF\xBB\xBF<a x='&lt;&gt;&amp;&quot;&apos;&#65;&#x20AC;'><![CDATA[<b/>]]></a>"));
    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(xmlnode_get_attribute_value(tree.get(), "x"), "<>&\"'A€");
    EXPECT_EQ(tree->children, nullptr);
}

TEST(XmlReading, PrefixesArePartOfTheName)
{
    XmlTreeOwner tree(xmlnode_parse_string("<p:a p:x='1' xmlns:p='u'/>"));
    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(tree->name, "p:a");
    EXPECT_STREQ(xmlnode_get_attribute_value(tree.get(), "p:x"), "1");
}

std::string utf16(const std::string &ascii, bool big_endian)
{
    std::string bytes = big_endian ? "\xFE\xFF" : "\xFF\xFE";
    for (char character : ascii)
        bytes += big_endian ? std::string{'\0', character} : std::string{character, '\0'};
    return bytes;
}

TEST(XmlReading, Utf16IsReadInBothByteOrders)
{
    TemporaryFolder folder;
    for (bool big_endian : {false, true}) {
        std::string bytes = utf16("<?xml version='1.0' encoding='UTF-16'?><a x='b'/>", big_endian);
        XmlTreeOwner tree(xmlnode_load_file(folder.write("file.xml", bytes).c_str()));
        ASSERT_NE(tree, nullptr);
        EXPECT_STREQ(xmlnode_get_attribute_value(tree.get(), "x"), "b");
    }
}

TEST(XmlReading, BytesThatBelieTheirEncodingAreRefused)
{
    TemporaryFolder folder;
    for (const std::string &bytes :
         {std::string("<a x='\xE4'/>"),
          std::string("<?xml version='1.0' encoding='US-ASCII'?>"
                      "<a x='\xC3\xA4'/>"),
          std::string("<a x='\0'/>", 10), std::string("\xFF\xFE<\0a", 5)})
        EXPECT_EQ(XmlTreeOwner(xmlnode_load_file(folder.write("file.xml", bytes).c_str())),
                  nullptr);
}

TEST(XmlReading, AFileOfTheBoundIsReadAndALongerOneIsNot)
{
    TemporaryFolder folder;
    std::string document = "<a>" + std::string(max_document_size - 7, ' ') + "</a>";
    EXPECT_NE(XmlTreeOwner(xmlnode_load_file(folder.write("file.xml", document).c_str())), nullptr);
    document += "\n";
    EXPECT_EQ(XmlTreeOwner(xmlnode_load_file(folder.write("file.xml", document).c_str())), nullptr);
}

TEST(XmlReading, AnEndlessFileIsNotReadToItsEnd)
{
    TemporaryFolder folder;
    std::string path = folder.write("file.xml", "<a/>");
    std::filesystem::resize_file(path, std::uintmax_t{1} << 38);
    EXPECT_EQ(XmlTreeOwner(xmlnode_load_file(path.c_str())), nullptr);
    EXPECT_EQ(XmlTreeOwner(xmlnode_load_file("/dev/zero")), nullptr);
}

TEST(XmlReading, AnEmptyFileIsNoDocumentAndALinkIsFollowed)
{
    TemporaryFolder folder;
    EXPECT_EQ(XmlTreeOwner(xmlnode_load_file(folder.write("empty.xml", "").c_str())), nullptr);
    std::filesystem::path link = folder.path() / "link.xml";
    std::filesystem::create_symlink(folder.write("file.xml", "<a/>"), link);
    EXPECT_NE(XmlTreeOwner(xmlnode_load_file(link.c_str())), nullptr);
}

} // namespace
