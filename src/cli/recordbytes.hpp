// SPDX-License-Identifier: LGPL-2.1-or-later

// Records from bytes of strangers.
#pragma once

#include "cli/recordfile.hpp"

#include "model/checker.hpp"

namespace qandor::cli {

// The record that the bytes are; a Failure that shows the byte at which they go wrong.
Record read_bytes(const std::string &bytes, const std::string &name);

// What keeps the bytes from being a whole record of the kind; nothing when they are one.
std::optional<Malformation> malformation_of(RecordKind kind, const std::string &bytes);
// The record of the kind. The bytes have been found to be one.
Record read_checked(RecordKind kind, const std::string &bytes);

} // namespace qandor::cli
