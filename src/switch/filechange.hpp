// SPDX-License-Identifier: LGPL-2.1-or-later

// A change in a folder of types: a file that is written, whole or not at all, or removed. It is
// done for good when apply() returns, which waits for the disk; it may run on a thread of its own.
#pragma once

#include <optional>
#include <string>

namespace qandor {

struct FileChange {
    std::string folder;
    std::string path;                   // of a file in the folder
    std::optional<std::string> content; // nothing: the file is removed

    // 0, or the errno of what failed.
    int apply() const;
};

} // namespace qandor
