// SPDX-License-Identifier: LGPL-2.1-or-later

// The calls to the switch of which the library has to know whether they were sent at all. They are
// built here and sent by the caller; the exported stubs send the same calls without telling.
#pragma once

#include "bus/methodcall.hpp"

namespace qandor {

MethodCall declare_call(sd_bus *bus, const char *object, const char *name,
                        const Bytes &declaration);
MethodCall subscribe_call(sd_bus *bus, const char *object, const char *name, guint32 token,
                          const Bytes &expression);
MethodCall undeclare_call(sd_bus *bus, const char *object, guint32 global_id);
MethodCall unsubscribe_call(sd_bus *bus, const char *object, guint32 token);

} // namespace qandor
