// SPDX-License-Identifier: LGPL-2.1-or-later

// How much the switch keeps on behalf of others. All but the last are of one user each, so that
// none can starve another.
#pragma once

#include <glib.h>

namespace qandor {

struct Limits {
    guint64 record_bytes = 256 << 10; // of one record
    guint64 peers = 512;              // objects that declare or subscribe
    guint64 declarations = 4096;
    guint64 subscriptions = 4096;
    // Of declarations and subscriptions, serialized; and as many of calls that wait.
    guint64 stored_bytes = 16 << 20;
    guint64 questions = 64;                // for a property's state, under way
    guint64 key_names = 16384;             // that nobody had used before: they are never given back
    guint64 total_stored_bytes = 24 << 20; // of all users' declarations
};

// A limit by its name in the configuration, and what it may be set to.
struct LimitName {
    const char *name;
    guint64 Limits::*value;
    guint64 least;
    guint64 most;
};

// A stock bus carries messages of at most 32 MiB. A notification has a record of each kind in it,
// and the answer that lists all declarations has to fit always.
inline constexpr LimitName limit_names[] = {
    {"record_bytes", &Limits::record_bytes, 1024, 8 << 20},
    {"peers", &Limits::peers, 1, G_MAXUINT32},
    {"declarations", &Limits::declarations, 1, G_MAXUINT32},
    {"subscriptions", &Limits::subscriptions, 1, G_MAXUINT32},
    {"stored_bytes", &Limits::stored_bytes, 1024, G_MAXUINT32},
    {"questions", &Limits::questions, 1, G_MAXUINT32},
    {"key_names", &Limits::key_names, 1, G_MAXUINT32},
    {"total_stored_bytes", &Limits::total_stored_bytes, 1024, 28 << 20},
};

} // namespace qandor
