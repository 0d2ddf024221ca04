// SPDX-License-Identifier: LGPL-2.1-or-later

// What the indexes find. Whoever asks often keeps one and lends it to every question, so that its
// memory is got once.
#pragma once

#include <glib.h>

#include <vector>

struct inspectable;

namespace qandor {

struct Match {
    guint64 order; // by which the index sorts: that of addition
    const inspectable *record;
    guint32 id;
    bool is_proven; // or else the plain matcher is to be asked
};

using Matches = std::vector<Match>;

// Sorts, and leaves each record once.
void sort_matches(Matches &matches);

// Of candidates: keeps no more room than a search usually takes, when one before had very many.
void give_back_room(Matches &matches);

} // namespace qandor
