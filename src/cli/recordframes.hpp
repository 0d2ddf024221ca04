// SPDX-License-Identifier: LGPL-2.1-or-later

// What is put around a part of a record so that it can be checked and read as a whole one.
#pragma once

#include "model/checker.hpp"

#include <string>
#include <vector>

namespace qandor::cli {

// What has to stand around a part of a record to make a whole one of the kind.
struct Frame {
    RecordKind kind;
    std::string before;
    std::string behind{};
};

// In what frames the bytes may be a record; none for a first byte with which no record begins.
std::vector<Frame> frames_for(const std::string &bytes);

} // namespace qandor::cli
