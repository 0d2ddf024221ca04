// SPDX-License-Identifier: LGPL-2.1-or-later

// What a word of the command line can become.
#pragma once

#include <string>
#include <vector>

namespace qandor::cli {

struct Candidate {
    std::string word; // the whole one
    std::string about;
};
using Candidates = std::vector<Candidate>;

struct Completion {
    Candidates candidates;
    bool is_file = false; // a file's name belongs there, which shells know better
};

// The words behind 'qandor', of which the last is to be completed.
Completion complete(const std::vector<std::string> &words);

} // namespace qandor::cli
