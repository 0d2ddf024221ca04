// SPDX-License-Identifier: LGPL-2.1-or-later

// How much the switch keeps on behalf of others. All limits but the last are for each user, so that
// no user can starve another; a user may have limits of its own.
#pragma once

#include <glib.h>

#include <map>

namespace qandor {

struct Limits {
    guint64 record_bytes = 256 << 10; // of one record
    guint64 peers = 512;              // objects that declare or subscribe
    guint64 declarations = 4096;
    guint64 subscriptions = 4096;
    // Of memory for declarations and subscriptions; and as many for calls that wait.
    guint64 stored_bytes = 32 << 20;
    guint64 questions = 64;                // for a property's state, under way
    guint64 key_names = 16384;             // that nobody had used before: they are never given back
    guint64 total_stored_bytes = 24 << 20; // of all users' declarations, serialized
};

// The limits of everybody, and in their place those of single users, by user id.
struct UserLimits {
    const Limits &of(guint32 uid) const
    {
        auto own = by_uid.find(uid);
        return own == by_uid.end() ? common : own->second;
    }

    Limits common;
    std::map<guint32, Limits> by_uid;
};

// A limit by its name in the configuration, and what it may be set to.
struct LimitName {
    const char *name;
    guint64 Limits::*value;
    guint64 least;
    guint64 most;
    bool for_each_user = true;
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
    {"total_stored_bytes", &Limits::total_stored_bytes, 1024, 28 << 20, false},
};

} // namespace qandor
