// SPDX-License-Identifier: LGPL-2.1-or-later

// The event record.
#pragma once

#include "messages/userdata.hpp"
#include "model/inspectable.hpp"

#include <qandor/event.h>

struct event : qandor::SliceAllocated {
    event() : content(IT_EVENT) {}
    explicit event(inspectable::Unread unread) : content(unread) {}
    event(const event &other)
        : SliceAllocated(), content(other.content, IT_EVENT), user_data(other.user_data),
          seconds(other.seconds), microseconds(other.microseconds), global_id(other.global_id),
          local_id(other.local_id), producer_id(other.producer_id), property(other.property)
    {
    }
    explicit event(const inspectable &content) : content(content, IT_EVENT) {}
    event &operator=(const event &) = delete;

    inspectable content;
    qandor::UserData user_data;
    glong seconds = 0;
    glong microseconds = 0;
    guint32 global_id = 0;
    guint32 local_id = 0;
    guint32 producer_id = 0;
    gint property = FALSE;
};
