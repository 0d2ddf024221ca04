// SPDX-License-Identifier: LGPL-2.1-or-later

#include "platform/xmlnode.hpp"

#include <string_view>

using namespace qandor;

xmlnode *xmlnode_create_node()
{
    return new xmlnode();
}

void xmlnode_add_child(xmlnode *parent, xmlnode *child)
{
    // Appending behind the last child keeps a long list of children linear.
    GList *link = g_list_alloc();
    link->data = child;
    link->prev = parent->last_child;
    if (parent->last_child)
        parent->last_child->next = link;
    else
        parent->children = link;
    parent->last_child = link;
}

void xmlnode_add_attribute(xmlnode *node, const gchar *name, const gchar *value)
{
    node->attributes.emplace_back(name, value);
}

const gchar *xmlnode_get_attribute_value(const xmlnode *node, const gchar *name)
{
    for (const auto &[attribute, value] : node->attributes)
        if (attribute == name)
            return value.c_str();
    return nullptr;
}

void xmlnode_free_tree(xmlnode *node)
{
    if (!node)
        return;
    g_list_free_full(node->children,
                     [](gpointer child) { xmlnode_free_tree(static_cast<xmlnode *>(child)); });
    g_free(node->name);
    delete node;
}

namespace {

// White space inside a value must be a reference, since a reader turns it into blanks otherwise.
bool append_reference(std::string &xml, char character)
{
    switch (character) {
    case '&':
        xml += "&amp;";
        return true;
    case '<':
        xml += "&lt;";
        return true;
    case '>':
        xml += "&gt;";
        return true;
    case '"':
        xml += "&quot;";
        return true;
    case '\t':
        xml += "&#9;";
        return true;
    case '\n':
        xml += "&#10;";
        return true;
    case '\r':
        xml += "&#13;";
        return true;
    default:
        return false;
    }
}

bool is_xml_character(gunichar character)
{
    return character >= 0x20 && character != 0xFFFE && character != 0xFFFF;
}

void append_value(std::string &xml, const std::string &value)
{
    const char *cursor = value.data();
    const char *end = cursor + value.size();
    while (cursor < end) {
        if (append_reference(xml, *cursor)) {
            ++cursor;
            continue;
        }
        gunichar character = g_utf8_get_char_validated(cursor, end - cursor);
        bool is_utf8 =
            character != static_cast<gunichar>(-1) && character != static_cast<gunichar>(-2);
        std::size_t length = is_utf8 ? g_utf8_skip[static_cast<guchar>(*cursor)] : 1;
        if (is_utf8 && is_xml_character(character))
            xml.append(cursor, length);
        else
            xml += '?';
        cursor += length;
    }
}

void append_element(std::string &xml, const xmlnode &node, int depth)
{
    std::string_view name = node.name ? node.name : "";
    xml.append(2 * static_cast<std::size_t>(depth), ' ').append("<").append(name);
    for (const auto &[attribute, value] : node.attributes) {
        xml.append(" ").append(attribute).append("=\"");
        append_value(xml, value);
        xml += "\"";
    }
    if (!node.children) {
        xml += "/>\n";
        return;
    }
    xml += ">\n";
    for (GList *link = node.children; link; link = link->next)
        append_element(xml, *static_cast<const xmlnode *>(link->data), depth + 1);
    xml.append(2 * static_cast<std::size_t>(depth), ' ').append("</").append(name).append(">\n");
}

} // namespace

gchar *xmlnode_get_xml(const xmlnode *node)
{
    std::string xml;
    append_element(xml, *node, 0);
    return g_strndup(xml.data(), xml.size());
}
