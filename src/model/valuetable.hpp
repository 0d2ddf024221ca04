// SPDX-License-Identifier: LGPL-2.1-or-later

// The values of a container that has so many that looking at each for every condition would take
// long: they are put into a table once.
#pragma once

#include "model/andlist.hpp"

#include <array>
#include <vector>

namespace qandor {

// Key-values that have a value, by it. Equal ones that are negated alike stand there once.
class ValueTable {
public:
    void add(const key_value &key_value);

    template <class Visit> void for_each_of(std::string_view value, const Visit &visit) const
    {
        if (places_.empty())
            return;
        guint32 hash = hash_of(value);
        for (std::size_t at = place_of(hash); places_[at].present; at = after(at))
            if (places_[at].hash == hash && are_same_bytes(places_[at].present->value, value))
                visit(*places_[at].present);
    }

private:
    struct Place {
        const key_value *present = nullptr;
        guint32 hash = 0;
    };

    // Whose number is a power of two, at least half of them empty.
    std::size_t place_of(guint32 hash) const { return hash & (places_.size() - 1); }
    std::size_t after(std::size_t at) const { return (at + 1) & (places_.size() - 1); }
    void put(const Place &place);
    void grow();

    std::vector<Place> places_;
    std::size_t count_ = 0;
};

// The key-values of one key. What a condition comes to with all of them is what it comes to with a
// few: those that have its value, and of all others one of each sort.
//
//   the first, and one of another name space   a condition with a name space refuses one of the two
//   one that is open                           it may have any value
//   one that is negated in all values          it may have none
//   one that has a value, whichever            a condition that forbids all refuses it
class BucketValues {
public:
    explicit BucketValues(Bucket bucket);

    template <class Visit>
    void for_each_that_counts(const key_value &condition, const Visit &visit) const
    {
        for (const key_value *one : one_of_each_)
            if (one)
                visit(*one);
        if (!condition.value_wildcard)
            table_.for_each_of(condition.value, visit);
    }

    template <class Visit> void for_each_of(std::string_view value, const Visit &visit) const
    {
        table_.for_each_of(value, visit);
    }

private:
    enum Sort : std::size_t { First, OfAnotherNameSpace, Open, NegatedInAll, WithValue };

    std::array<const key_value *, 5> one_of_each_{};
    ValueTable table_;
};

} // namespace qandor
