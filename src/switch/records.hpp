// SPDX-License-Identifier: LGPL-2.1-or-later

// Owners of the library's records.
#pragma once

#include "platform/owners.hpp"

#include <qandor/event.h>
#include <qandor/eventdeclaration.h>
#include <qandor/notification.h>
#include <qandor/propertystate.h>
#include <qandor/subscribeexpression.h>

namespace qandor {

using EventOwner = Owner<event, event_free>;
using DeclarationOwner = Owner<event_declaration, event_declaration_free>;
using ExpressionOwner = Owner<subscribe_expression, subscribe_expression_free>;
using NotificationOwner = Owner<notification, notification_free>;
using PropertyStateOwner = Owner<property_state, property_state_free>;

} // namespace qandor
