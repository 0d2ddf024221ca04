// SPDX-License-Identifier: LGPL-2.1-or-later

// The elements that the XML forms of key-values and inspectables share.
#pragma once

#include "platform/xmlnode.hpp"

#include <qandor/eventutils.h>

#include <string>
#include <vector>

namespace qandor {

inline xmlnode *new_element(const gchar *name)
{
    xmlnode *node = xmlnode_create_node();
    node->name = g_strdup(name);
    return node;
}

// Appends one element "tag" for each tag.
inline void add_tag_elements(xmlnode *node, const std::vector<std::string> &tags)
{
    for (const std::string &tag : tags) {
        xmlnode *child = new_element("tag");
        xml_set_attribute(child, "tag", tag.c_str());
        xmlnode_add_child(node, child);
    }
}

} // namespace qandor
