// SPDX-License-Identifier: LGPL-2.1-or-later

// The event declaration record.
#pragma once

#include "model/inspectable.hpp"

#include <qandor/eventdeclaration.h>

struct event_declaration : qandor::SliceAllocated {
    explicit event_declaration(gint internal) : content(IT_EVENT_DECLARATION)
    {
        content.internal = internal;
    }
    event_declaration(const event_declaration &other)
        : SliceAllocated(), content(other.content, IT_EVENT_DECLARATION), local_id(other.local_id),
          global_id(other.global_id), producer_id(other.producer_id), property(other.property),
          callback(other.callback), callback_data(other.callback_data)
    {
    }
    event_declaration &operator=(const event_declaration &) = delete;

    inspectable content;
    guint32 local_id = 0;
    guint32 global_id = 0;
    guint32 producer_id = 0;
    gint property = FALSE;
    event_declaration_property_callback callback = nullptr;
    gpointer callback_data = nullptr;
};

namespace qandor {

// Makes sure that a declaration that goes away asks its application for no more states. A property
// stays a property, a plain declaration stays plain.
inline void drop_property_callback(event_declaration &declaration)
{
    declaration.callback = nullptr;
    declaration.callback_data = nullptr;
}

} // namespace qandor
