// SPDX-License-Identifier: LGPL-2.1-or-later

// The subscribe expression record.
#pragma once

#include "model/inspectable.hpp"

#include <qandor/subscribeexpression.h>

#include <string>

struct subscribe_expression : qandor::SliceAllocated {
    explicit subscribe_expression(gint clandestine)
        : content(IT_SUBSCRIBE_EXPRESSION), clandestine(clandestine)
    {
    }
    subscribe_expression(const subscribe_expression &other)
        : SliceAllocated(), content(other.content, IT_SUBSCRIBE_EXPRESSION), id(other.id),
          dbus_service(other.dbus_service), dbus_object(other.dbus_object),
          consumer_token(other.consumer_token), clandestine(other.clandestine)
    {
    }
    subscribe_expression &operator=(const subscribe_expression &) = delete;

    inspectable content;
    guint32 id = 0;
    std::string dbus_service;
    std::string dbus_object;
    guint32 consumer_token = 0;
    gint clandestine;
};
