// SPDX-License-Identifier: LGPL-2.1-or-later

// Key names are interned: one permanent record for each name, so that keys compare as pointers and
// a name costs nothing to copy. Like GLib's quarks they are never given back; unlike them they are
// found without a lock and from bytes without a terminator, which reading events off the bus does
// for every key.
#pragma once

#include <glib.h>

#include <string_view>

namespace qandor {

struct KeyName {
    const gchar *text;
    guint32 length;
    guint32 hash;
    const KeyName *next;

    std::string_view view() const { return {text, length}; }

    // Returns the record of the name, made now if there is none yet.
    static const KeyName *intern(std::string_view name);

    // Returns the record of the name, or NULL when nobody has interned it: then no record has the
    // key either.
    static const KeyName *find(std::string_view name);
};

struct KeyNameHash {
    std::size_t operator()(const KeyName *name) const { return name->hash; }
};

} // namespace qandor
