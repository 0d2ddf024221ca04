// SPDX-License-Identifier: LGPL-2.1-or-later

// The conditions and values inside the books' records, as the indexes and the matcher want them.
#pragma once

#include "model/inspectable.hpp"
#include "switch/book.hpp"

namespace qandor {

inline const inspectable &content_of(const Declaration &declaration)
{
    return *event_declaration_get_inspectable(declaration.record.get());
}

// The getter is for those who change things, too.
inline const inspectable &content_of(const subscribe_expression *expression)
{
    return *subscribe_expression_get_inspectable(const_cast<subscribe_expression *>(expression));
}

inline const inspectable &content_of(const Subscription &subscription)
{
    return content_of(subscription.record.get());
}

// Whether the declaration's events can satisfy the subscription's expression.
inline bool concerns(const Declaration &declaration, const Subscription &subscription)
{
    return inspectable_contains(&content_of(declaration), &content_of(subscription));
}

} // namespace qandor
