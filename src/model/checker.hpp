// SPDX-License-Identifier: LGPL-2.1-or-later

// Checks bytes of strangers before they are read. The readers end the process on malformed bytes;
// what passes here they read, and what they make of it can be matched, copied, printed, turned into
// XML and written again without ending the process either. Nothing is built on the way.
#pragma once

#include <glib.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qandor {

enum class RecordKind { Event, EventDeclaration, SubscribeExpression, PropertyState, Notification };

// The first thing wrong with a record, and the byte at which it goes wrong.
struct Malformation {
    std::size_t offset;
    std::string what;
};

// What a record consists of, by number: many parts take much memory and time for few bytes. Which
// numbers are too many is for the caller to say.
struct RecordShape {
    guint32 alternatives = 0;       // and-lists
    guint32 empty_alternatives = 0; // those without a condition
    guint32 buckets = 0;            // different keys, and different values of key wildcards
    guint32 longest_bucket = 0;     // most key-values of one key (of one value)
    guint32 key_values = 0;         // key wildcards included
    guint32 key_wildcards = 0;
    guint32 tags = 0;       // of keys and of the object
    guint32 attributes = 0; // texts that are not empty: name spaces, nice names and the like
    bool internal = false;
    guint32 local_id = 0; // of a declaration
};

// Whether the bytes are one whole well-formed record of the kind, with nothing left over; nothing
// is returned for a record that is. Names of keys are added to key_names, where they are wanted:
// they point into the bytes. What the record consists of is added to shape, where it is wanted,
// nested records included; of a malformed record that is what came before the fault.
std::optional<Malformation> check_record(RecordKind kind, const guint8 *bytes, std::size_t size,
                                         std::vector<std::string_view> *key_names = nullptr,
                                         RecordShape *shape = nullptr);

} // namespace qandor
