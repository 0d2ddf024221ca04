// SPDX-License-Identifier: LGPL-2.1-or-later

// What the XML forms of declarations, expressions and property states have in common.
#pragma once

#include "model/inspectable.hpp"
#include "platform/xmlnode.hpp"

namespace qandor {

constexpr const gchar *XML_DECLARE = "declare";
constexpr const gchar *XML_SUBSCRIBE = "subscribe";
constexpr const gchar *XML_PROPERTY = "property";

// A new element of the name with the inspectable in it.
xmlnode *inspectable_to_element(const inspectable &inspect, const gchar *name);

// The inspectable in an element that must have the name; nothing, after a warning, otherwise.
InspectablePtr inspectable_from_element(const xmlnode *node, const gchar *name, guint32 type);

// The tree as a new text; the tree is freed.
gchar *element_to_text(xmlnode *node);

} // namespace qandor
