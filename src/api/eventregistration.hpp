// SPDX-License-Identifier: LGPL-2.1-or-later

// What registration by type works on.
#pragma once

#include "messages/eventdeclaration.hpp"
#include "model/callbackparams.hpp"
#include "platform/owners.hpp"

#include <qandor/eventproducer.h>

#include <memory>

namespace qandor {

using RegisterListOwner = Owner<GList, event_producer_int_free_register_list>;
using DeclarationOwner = std::unique_ptr<event_declaration>;
using CallbackParamsOwner = std::unique_ptr<callback_params>;

// One key of a list of keys, values and types: in a register list the value is its text, in what
// applications give it is of its type.
struct Triple {
    explicit Triple(const GList *link)
        : key(static_cast<const gchar *>(link->data)), value(link->next->data),
          value_type(GPOINTER_TO_UINT(link->next->next->data)), next(link->next->next->next)
    {
    }
    const gchar *text() const { return static_cast<const gchar *>(value); }

    const gchar *key;
    gconstpointer value;
    guint32 value_type;
    const GList *next;
};

} // namespace qandor
