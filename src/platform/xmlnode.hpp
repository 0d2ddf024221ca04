// SPDX-License-Identifier: LGPL-2.1-or-later

// Trees of XML elements: built, read, parsed, loaded and written. Elements and attributes are all
// there is; character data, comments and processing instructions are passed over.
//
// Documents come from files and from other processes, so a document may not declare a document type
// or entities, nests at most max_depth deep and is at most max_document_size bytes long.
#pragma once

#include <glib.h>

#include <list>
#include <memory>
#include <string>
#include <utility>

struct xmlnode {
    gchar *name = nullptr;     // owned; replace it with a newly allocated text
    GList *children = nullptr; // of xmlnode, owned, in document order

    GList *last_child = nullptr;
    // In the order they were added. Values are handed out, so they stay where they are.
    std::list<std::pair<std::string, std::string>> attributes;
};

namespace qandor {

constexpr int max_depth = 256;
constexpr std::size_t max_document_size = 1 << 20;

} // namespace qandor

// Returns a new element without name, attributes and children.
xmlnode *xmlnode_create_node();

// Appends child to the children of parent, which owns it from then on.
void xmlnode_add_child(xmlnode *parent, xmlnode *child);

// Adds an attribute, which the element must not have yet, with copies of both texts.
void xmlnode_add_attribute(xmlnode *node, const gchar *name, const gchar *value);

// Returns the attribute's value, borrowed, or NULL.
const gchar *xmlnode_get_attribute_value(const xmlnode *node, const gchar *name);

// Parses a whole document; NULL when it is malformed or refused.
xmlnode *xmlnode_parse_string(const gchar *text);

// Parses a file; NULL when it is missing, no regular file, malformed or refused.
xmlnode *xmlnode_load_file(const gchar *path);

// Returns the element and all below it, which must have their names by then, as a new text, which
// the caller frees with g_free(): an element a line, indented by two blanks a level. Every value
// reads back as it was, control characters aside: those that XML cannot hold become "?", as do
// bytes that are no UTF-8.
gchar *xmlnode_get_xml(const xmlnode *node);

// Frees the element and all below it.
void xmlnode_free_tree(xmlnode *node);

namespace qandor {

struct XmlTreeDeleter {
    void operator()(xmlnode *node) const { xmlnode_free_tree(node); }
};
using XmlTreeOwner = std::unique_ptr<xmlnode, XmlTreeDeleter>;

} // namespace qandor
