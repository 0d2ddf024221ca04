// SPDX-License-Identifier: LGPL-2.1-or-later

// One look at how much comes of what: as a table for people and as JSON for programs.
#pragma once

#include "cli/json.hpp"
#include "cli/subscribers.hpp"

#include <string>
#include <vector>

namespace qandor::cli {

struct TopRow {
    const Declaration *declaration;
    std::string topics;
    double events_a_second;
    double bytes_a_second;
    guint64 events; // since the start
    std::optional<Subscribers> subscribers;
};

struct TopTable {
    std::vector<TopRow> rows;
    double seconds = 1; // that it is about
    bool has_switch = true;

    // The busiest first.
    void sort();
    std::string title() const;
    std::vector<std::string> lines() const;
    Json json() const;
};

} // namespace qandor::cli
