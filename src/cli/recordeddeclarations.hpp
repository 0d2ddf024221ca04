// SPDX-License-Identifier: LGPL-2.1-or-later

// The declarations of a recording, and which of them an event in it is of.
#pragma once

#include "cli/recording.hpp"

#include <qandor/qandor.hpp>

#include <map>
#include <vector>

namespace qandor::cli {

class RecordedDeclarations {
public:
    // Takes in what an entry declares, which is the one with the number.
    void add(const Declaration &declaration, guint64 number);

    // Each once, however often it was declared.
    const std::vector<Declaration> &all() const { return all_; }

    // The place among all of the one that the event in the entry with the number is of. Ids are
    // given anew when the switch restarts, and an event may come before its declaration: it is the
    // nearest before it, or else behind it, that fits.
    std::optional<std::size_t> of(const Event &event, guint64 number) const;

private:
    struct Use {
        guint64 number;
        std::size_t place;
    };

    bool fits(const Event &event, const Use &use) const;

    std::vector<Declaration> all_;
    std::vector<Event> samples_;                // of each
    std::map<std::string, std::size_t> places_; // by what is declared
    std::map<guint32, std::vector<Use>> uses_;  // by global id, in the order of entries
};

} // namespace qandor::cli
