// SPDX-License-Identifier: LGPL-2.1-or-later

// The property state record.
#pragma once

#include "messages/subscribeexpression.hpp"
#include "model/inspectable.hpp"

#include <qandor/propertystate.h>

#include <memory>

struct property_state : qandor::SliceAllocated {
    property_state() : content(IT_PROPERTY_STATE) {}

    inspectable content;
    bool locked = false; // exactly when both expressions are there
    std::unique_ptr<subscribe_expression> expression;
    std::unique_ptr<subscribe_expression> inverted_expression;
};
