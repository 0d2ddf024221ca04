// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/andlist.hpp"

#include "platform/check.hpp"

namespace qandor {
namespace {

// From here on a table is cheaper than looking at every bucket, and adding many stays linear.
constexpr std::size_t many = 16;

template <class Place, class NameOf>
void note_place(std::unordered_map<Place, std::size_t> &places, const std::vector<Bucket> &buckets,
                NameOf name_of)
{
    if (buckets.size() <= many)
        return;
    for (std::size_t i = places.size(); i < buckets.size(); ++i)
        places.emplace(name_of(buckets[i]), i);
}

const KeyName *key_of(const Bucket &bucket)
{
    return bucket.key;
}

std::string_view value_of(const Bucket &bucket)
{
    return bucket.first().value;
}

} // namespace

Bucket &Bucket::operator=(Bucket &&other) noexcept
{
    std::swap(key, other.key);
    std::swap(first_, other.first_);
    std::swap(last_, other.last_);
    std::swap(count_, other.count_);
    return *this;
}

Bucket::~Bucket()
{
    while (first_)
        KeyValuePtr(std::exchange(first_, first_->next));
}

void Bucket::add(KeyValuePtr key_value)
{
    const Bucket *bucket = this;
    CHECK(bucket->key == key_value->key);
    last_->next = key_value.release();
    last_ = last_->next;
    ++count_;
}

AndList::AndList(const AndList &other)
{
    auto copy = [](const Bucket &source) {
        Bucket bucket(std::make_unique<key_value>(source.first()));
        for (auto at = ++source.begin(); at != source.end(); ++at)
            bucket.add(std::make_unique<key_value>(*at));
        return bucket;
    };
    keyed_.reserve(other.keyed_.size());
    for (const Bucket &bucket : other.keyed_)
        keyed_.push_back(copy(bucket));
    wildcards_.reserve(other.wildcards_.size());
    for (const Bucket &bucket : other.wildcards_)
        wildcards_.push_back(copy(bucket));
    note_place(keyed_places_, keyed_, key_of);
    note_place(wildcard_places_, wildcards_, value_of);
}

const Bucket *AndList::find(const KeyName *key) const
{
    if (!keyed_places_.empty()) {
        auto place = keyed_places_.find(key);
        return place == keyed_places_.end() ? nullptr : &keyed_[place->second];
    }
    for (const Bucket &bucket : keyed_)
        if (bucket.key == key)
            return &bucket;
    return nullptr;
}

const Bucket *AndList::find(std::string_view key) const
{
    const KeyName *name = KeyName::find(key);
    return name ? find(name) : nullptr;
}

const Bucket *AndList::find_wildcard(std::string_view value) const
{
    if (!wildcard_places_.empty()) {
        auto place = wildcard_places_.find(value);
        return place == wildcard_places_.end() ? nullptr : &wildcards_[place->second];
    }
    for (const Bucket &bucket : wildcards_)
        if (bucket.first().value == value)
            return &bucket;
    return nullptr;
}

void AndList::append_keyed(Bucket bucket)
{
    keyed_.push_back(std::move(bucket));
    note_place(keyed_places_, keyed_, key_of);
}

void AndList::append_wildcard(Bucket bucket)
{
    wildcards_.push_back(std::move(bucket));
    note_place(wildcard_places_, wildcards_, value_of);
}

void AndList::add(KeyValuePtr key_value)
{
    bool wildcard = key_value->key_wildcard;
    Bucket *bucket =
        wildcard ? find_wildcard_to_change(key_value->value) : find_to_change(key_value->key);
    if (bucket)
        bucket->add(std::move(key_value));
    else if (wildcard)
        append_wildcard(Bucket(std::move(key_value)));
    else
        append_keyed(Bucket(std::move(key_value)));
}

void AndList::replace(KeyValuePtr key_value)
{
    put_keyed(Bucket(std::move(key_value)));
}

void AndList::put_keyed(Bucket bucket)
{
    if (Bucket *old = find_to_change(bucket.key))
        *old = std::move(bucket);
    else
        append_keyed(std::move(bucket));
}

void AndList::put_wildcard(Bucket bucket)
{
    Bucket *old = find_wildcard_to_change(value_of(bucket));
    if (!old) {
        append_wildcard(std::move(bucket));
        return;
    }
    // The table names the place by a text of the old bucket.
    if (!wildcard_places_.empty()) {
        auto place = wildcard_places_.extract(value_of(*old));
        place.key() = value_of(bucket);
        wildcard_places_.insert(std::move(place));
    }
    *old = std::move(bucket);
}

} // namespace qandor
