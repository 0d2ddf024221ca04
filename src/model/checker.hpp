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

// Whether the bytes are one whole well-formed record of the kind, with nothing left over; nothing
// is returned for a record that is. Names of keys are added to key_names, where they are wanted:
// they point into the bytes.
std::optional<Malformation> check_record(RecordKind kind, const guint8 *bytes, std::size_t size,
                                         std::vector<std::string_view> *key_names = nullptr);

} // namespace qandor
