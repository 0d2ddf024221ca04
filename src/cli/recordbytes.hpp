// SPDX-License-Identifier: LGPL-2.1-or-later

// Records from bytes of strangers.
#pragma once

#include "cli/recordfile.hpp"

namespace qandor::cli {

// The record that the bytes are; a Failure that shows the byte at which they go wrong.
Record read_bytes(const std::string &bytes, const std::string &name);

} // namespace qandor::cli
