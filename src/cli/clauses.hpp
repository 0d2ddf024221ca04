// SPDX-License-Identifier: LGPL-2.1-or-later

// Why an expression is satisfied or is not, condition by condition.
#pragma once

#include "cli/json.hpp"
#include "cli/keyview.hpp"

#include <functional>
#include <string>
#include <vector>

namespace qandor::cli {

// What an expression is held against: an event, or the declaration of some.
struct Subject {
    std::string title;
    std::vector<KeyView> keys;
    std::function<bool(const Expression &)> matches;
    Json json;
};

Subject subject_of(const Event &event);
Subject subject_of(const Declaration &declaration);

// What holds together on one key: of several positive conditions one is enough.
struct Clause {
    Conditions conditions;
    bool holds = false;
    std::string why;
};

// Conditions on one key stand together, as the matching has them; those on any key each alone.
std::vector<Clause> clauses_of(const Conditions &group, const Subject &subject);

// The expression that a group of conditions is alone.
Expression expression_of(const Conditions &conditions);

} // namespace qandor::cli
