// SPDX-License-Identifier: LGPL-2.1-or-later

// A declaration with a key of each type.
#pragma once

#include "support/records.hpp"

namespace qandor::test {

inline Owned<event_declaration> new_declaration()
{
    Owned<event_declaration> declaration(event_declaration_new(FALSE));
    event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration.get(), "load", VALUE_TYPE_DOUBLE);
    event_declaration_add_key(declaration.get(), "count", VALUE_TYPE_INT);
    event_declaration_add_key(declaration.get(), "active", VALUE_TYPE_BOOL);
    return declaration;
}

} // namespace qandor::test
