// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/matches.hpp"

#include <algorithm>
#include <cstdlib>

namespace qandor {
namespace {

bool is_before(const Match &one, const Match &other)
{
    return one.order < other.order;
}

bool is_same(const Match &one, const Match &other)
{
    return one.order == other.order;
}

int compare(const void *one, const void *other)
{
    const auto &match1 = *static_cast<const Match *>(one);
    const auto &match2 = *static_cast<const Match *>(other);
    return is_before(match1, match2) ? -1 : is_before(match2, match1) ? 1 : 0;
}

} // namespace

// They mostly are in order: what is filed together has been filed one after another.
void sort_matches(Matches &matches)
{
    if (!std::is_sorted(matches.begin(), matches.end(), is_before))
        std::qsort(matches.data(), matches.size(), sizeof(Match), compare);
    matches.erase(std::unique(matches.begin(), matches.end(), is_same), matches.end());
}

void give_back_room(Matches &matches)
{
    constexpr std::size_t usual = 4096;
    if (matches.capacity() > usual && matches.size() < matches.capacity() / 4)
        Matches(matches).swap(matches);
}

} // namespace qandor
