// SPDX-License-Identifier: LGPL-2.1-or-later

// What looking at records one after another takes, in steps: what an index is measured by.
#pragma once

#include "unit/model/worstshapes.hpp"

#include <vector>

namespace qandor::test {

// One for each alternative, and for each of its conditions.
inline std::size_t size_of(const inspectable &expression)
{
    std::size_t size = 0;
    for (const AndList &conditions : expression.and_lists) {
        ++size;
        for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
            for (Bucket bucket : buckets)
                size += bucket.count();
    }
    return size;
}

// Looks at the conditions of an expression one key after another until it knows.
class PlainScan {
public:
    explicit PlainScan(const inspectable &container)
    {
        for (const AndList &present : container.and_lists) {
            Record &one = and_lists_.emplace_back(record(IT_SUBSCRIBE_EXPRESSION));
            *one->current() = AndList(present);
        }
    }

    std::size_t steps(const inspectable &expression) const { return steps(expression, true); }

    // Without the luck that an alternative holds that comes early.
    std::size_t steps_through_all(const inspectable &expression) const
    {
        return steps(expression, false);
    }

private:
    std::size_t steps(const inspectable &expression, bool stops) const
    {
        std::size_t steps = 1;
        for (const Record &present : and_lists_)
            for (const AndList &conditions : expression.and_lists)
                if (satisfies(*present, conditions, steps) && stops)
                    return steps;
        return steps;
    }
    static bool satisfies(const inspectable &present, const AndList &conditions, std::size_t &steps)
    {
        ++steps;
        for (Buckets buckets : {conditions.keyed(), conditions.wildcards()})
            for (Bucket bucket : buckets) {
                steps += bucket.count();
                if (!holds(present, bucket))
                    return false;
            }
        return present.current()->wildcards().empty();
    }
    // Asked of the matcher itself.
    static bool holds(const inspectable &present, Bucket bucket)
    {
        Record alone = record(IT_SUBSCRIBE_EXPRESSION);
        for (const key_value &condition : bucket)
            alone->current()->add(key_value(condition));
        return inspectable_contains(&present, alone.get());
    }

    std::vector<Record> and_lists_;
};

} // namespace qandor::test
