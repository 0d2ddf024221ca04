// SPDX-License-Identifier: LGPL-2.1-or-later

// Where the buckets of an and-list stand.

#include "model/andlist.hpp"

#include <algorithm>

namespace qandor {

std::size_t AndList::find_place(const KeyName *key) const
{
    if (places_) {
        auto place = places_->keyed.find(key);
        return place == places_->keyed.end() ? keyed_.size() : place->second;
    }
    std::size_t place = 0;
    while (place < keyed_.size() && keyed_[place].key != key)
        ++place;
    return place;
}

Bucket AndList::find_in_places(const KeyName *key) const
{
    auto place = places_->keyed.find(key);
    return Bucket(place == places_->keyed.end() ? nullptr : keyed_[place->second].first);
}

std::size_t AndList::find_wildcard_place(std::string_view value) const
{
    if (places_) {
        auto place = places_->wildcards.find(value);
        return place == places_->wildcards.end() ? wildcards_.size() : place->second;
    }
    std::size_t place = 0;
    while (place < wildcards_.size() && wildcards_[place].first->value != value)
        ++place;
    return place;
}

Bucket AndList::find_wildcard(std::string_view value) const
{
    std::size_t place = find_wildcard_place(value);
    return Bucket(place < wildcards_.size() ? wildcards_[place].first : nullptr);
}

void AndList::note_places()
{
    if (std::max(keyed_.size(), wildcards_.size()) <= many)
        return;
    if (!places_)
        places_ = std::make_unique<Places>();
    for (std::size_t i = places_->keyed.size(); i < keyed_.size(); ++i)
        places_->keyed.emplace(keyed_[i].key, i);
    for (std::size_t i = places_->wildcards.size(); i < wildcards_.size(); ++i)
        places_->wildcards.emplace(wildcards_[i].first->value, i);
}

} // namespace qandor
