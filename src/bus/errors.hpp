// SPDX-License-Identifier: LGPL-2.1-or-later

// The errors that callers are given: failures of the bus with the code of the failed call, and
// those of producers and consumers with codes of their own.
#pragma once

#include <glib.h>

namespace qandor {

enum class EventError {
    NullObject = 0,
    UnknownToken = 3,
    NotDeclared = 4,
    Incomplete = 6,
    CallFailed = 7,
    ErrorAlreadySet = 10,
    InvalidSubscriptionType = 11,
    UnknownType = 12,
    SeveralStateKeys = 13,
    UnknownKey = 14,
    KeysLeft = 15,
};

void set_bus_error(GError **error, int code, const gchar *message);

GError *new_bus_error(int code, const gchar *message);

G_GNUC_PRINTF(3, 4)
void set_event_error(GError **error, EventError code, const gchar *format, ...);

// A public function that is given an error which is already set clears it, sets this one instead
// and fails. Returns whether it was set.
bool refuse_error_already_set(GError **error);

} // namespace qandor
