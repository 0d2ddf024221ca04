// SPDX-License-Identifier: LGPL-2.1-or-later

// The key and the value as text with which a property's state key is filled.
#pragma once

#include "platform/owners.hpp"

#include <qandor/eventutils.h>

#include <optional>
#include <string>

struct callback_params : qandor::SliceAllocated {
    callback_params(const gchar *key, const gchar *value)
    {
        if (key)
            this->key = key;
        if (value)
            this->value = value;
    }

    std::optional<std::string> key;
    std::optional<std::string> value;
};
