// SPDX-License-Identifier: LGPL-2.1-or-later

// What one container satisfies. Asked about once, or about many expressions one after another:
// whatever tables it takes to keep each answer linear in both are then made once.
//
// Nothing is marked in the inspectables, so several threads may ask about the same ones at once,
// each with a containment of its own. They stay as they are meanwhile.
#pragma once

#include "model/andlist.hpp"

#include <qandor/inspectable.h>

#include <memory>

namespace qandor {

class AnyKeyValues;
class BucketValues;

class Containment {
public:
    explicit Containment(const inspectable &container) : container_(container) {}
    Containment(const Containment &) = delete;
    Containment &operator=(const Containment &) = delete;

    bool satisfies(const inspectable &expression);

    // How conditions are weighed that are not alone on their key, or on no key.
    bool several_are_satisfied(Bucket present, Bucket conditions);
    bool wildcards_are_satisfied(const AndList &present, Buckets wildcards);

    // Whether a key (some key) has exactly this value, not negated.
    bool has_exactly(Bucket bucket, std::string_view value);
    bool has_exactly(const AndList &present, std::string_view value);

    // How many comparisons of values it has taken so far, where a key had more than one.
    std::size_t comparisons() const { return comparisons_; }

private:
    struct Tables;
    struct DropTables {
        void operator()(Tables *tables) const;
    };

    bool is_worth_a_table(std::size_t values, std::size_t conditions);
    const BucketValues *values_of(Bucket present, std::size_t conditions);
    const AnyKeyValues *values_of_any_key(const AndList &present, std::size_t conditions);
    Tables &tables();

    const inspectable &container_;
    std::unique_ptr<Tables, DropTables> tables_;
    std::size_t comparisons_ = 0;
};

} // namespace qandor
