// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/andlist.hpp"

#include "platform/check.hpp"

#include <algorithm>

namespace qandor {
namespace {

constexpr std::size_t first_room = 4;

} // namespace

AndList::AndList(const AndList &other)
{
    std::size_t count = other.key_values_.size();
    for (const auto &segment : other.more_key_values_)
        count += segment.size();
    key_values_.reserve(count);
    copy_buckets(other.keyed_, keyed_);
    copy_buckets(other.wildcards_, wildcards_);
    note_places();
}

void AndList::copy_buckets(const std::vector<BucketPlace> &from, std::vector<BucketPlace> &to)
{
    to.reserve(from.size());
    for (const BucketPlace &place : from) {
        key_value *first = make(*place.first);
        first->begin_chain();
        to.push_back({place.key, first});
        for (key_value *source = place.first->next; source; source = source->next)
            extend(Bucket(first), make(*source));
    }
}

void AndList::reserve(std::size_t count)
{
    key_values_.reserve(count);
    keyed_.reserve(count);
}

std::vector<key_value> &AndList::add_room()
{
    if (key_values_.capacity() == 0) {
        key_values_.reserve(first_room);
        return key_values_;
    }
    std::size_t room = key_values_.capacity();
    if (!more_key_values_.empty()) {
        auto &last = more_key_values_.back();
        if (last.size() < last.capacity())
            return last;
        room = last.capacity();
    }
    auto &segment = more_key_values_.emplace_back();
    segment.reserve(2 * room);
    return segment;
}

void AndList::extend(Bucket bucket, key_value *added)
{
    CHECK_TEXT(bucket.key() == added->key, "bucket->key == key_value->key");
    key_value &first = bucket.first();
    first.last->next = added;
    first.last = added;
    ++first.count;
}

std::size_t AndList::find_place(std::string_view key) const
{
    if (places_) {
        const KeyName *name = KeyName::find(key);
        return name ? find_place(name) : keyed_.size();
    }
    std::size_t place = 0;
    while (place < keyed_.size() && !are_same_bytes(keyed_[place].key->view(), key))
        ++place;
    return place;
}

void AndList::add(key_value key_value)
{
    Bucket bucket = key_value.key_wildcard ? find_wildcard(key_value.value) : find(key_value.key);
    struct key_value *made = make(std::move(key_value));
    if (bucket)
        extend(bucket, made);
    else
        begin_bucket(made);
}

void AndList::replace(key_value key_value)
{
    Bucket bucket = find(key_value.key);
    if (!bucket) {
        begin_bucket(make(std::move(key_value)));
        return;
    }
    bucket.first() = std::move(key_value);
    bucket.first().begin_chain();
}

void AndList::put_bucket(key_value *first)
{
    std::size_t place =
        first->key_wildcard ? find_wildcard_place(first->value) : find_place(first->key);
    auto &buckets = first->key_wildcard ? wildcards_ : keyed_;
    if (place < buckets.size()) {
        buckets[place] = {first->key, first};
        return;
    }
    buckets.push_back({first->key, first});
    note_places();
}

} // namespace qandor
