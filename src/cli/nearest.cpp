// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/nearest.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

// Letters put in, left out, replaced, or two neighbours exchanged.
std::size_t distance(const std::string &one, const std::string &other)
{
    std::vector<std::size_t> before(other.size() + 1), last(other.size() + 1), row;
    for (std::size_t j = 0; j <= other.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= one.size(); ++i) {
        row.assign(other.size() + 1, i);
        for (std::size_t j = 1; j <= other.size(); ++j) {
            std::size_t differs = one[i - 1] == other[j - 1] ? 0 : 1;
            row[j] = std::min({row[j - 1] + 1, last[j] + 1, last[j - 1] + differs});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = last;
        last = row;
    }
    return last[other.size()];
}

} // namespace

std::string nearest(const std::string &mistyped, const std::vector<std::string> &names)
{
    std::string best;
    std::size_t least = 1 + mistyped.size() / 3;
    for (const std::string &name : names) {
        bool begins = mistyped.size() >= 2 && name.starts_with(mistyped);
        std::size_t steps = begins ? 0 : distance(mistyped, name);
        if (steps < least || (steps == least && best.empty())) {
            least = steps;
            best = name;
        }
    }
    return best;
}

std::string did_you_mean(const std::string &mistyped, const std::vector<std::string> &names)
{
    std::string name = nearest(mistyped, names);
    return name.empty() ? "" : "Did you mean '" + name + "'?";
}

} // namespace qandor::cli
