// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/valuetable.hpp"

namespace qandor {

void ValueTable::put(const Place &place)
{
    std::size_t at = place_of(place.hash);
    while (places_[at].present)
        at = after(at);
    places_[at] = place;
}

void ValueTable::grow()
{
    constexpr std::size_t first_size = 32;
    std::vector<Place> before(std::max(first_size, 2 * places_.size()));
    before.swap(places_);
    for (const Place &place : before)
        if (place.present)
            put(place);
}

void ValueTable::add(const key_value &key_value)
{
    bool is_known = false;
    for_each_of(key_value.value, [&](const struct key_value &known) {
        is_known = is_known || !known.negated == !key_value.negated;
    });
    if (is_known)
        return;
    if (2 * ++count_ > places_.size())
        grow();
    put({&key_value, hash_of(key_value.value)});
}

BucketValues::BucketValues(Bucket bucket)
{
    OptionalText name_space = bucket.first().attribute(Attribute::NameSpace);
    one_of_each_[First] = &bucket.first();
    for (const key_value &present : bucket) {
        if (!are_same_texts(present.attribute(Attribute::NameSpace), name_space))
            one_of_each_[OfAnotherNameSpace] = &present;
        if (present.value_wildcard) {
            one_of_each_[present.negated ? NegatedInAll : Open] = &present;
            continue;
        }
        if (!present.negated)
            one_of_each_[WithValue] = &present;
        table_.add(present);
    }
}

} // namespace qandor
