// SPDX-License-Identifier: LGPL-2.1-or-later

// An and-list: the key-values that hold together, grouped into buckets by key, and key wildcards
// grouped into buckets by value. Buckets keep the order in which their keys came.
//
// The key-values stand side by side and never move, so that they can be handed out; a bucket is the
// chain that begins with its first key-value.
#pragma once

#include "model/keyvalue.hpp"

#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qandor {

// The key-values of one key (or, of key wildcards, of one value) in the order in which they came.
// There is always at least one.
class Bucket {
public:
    class Iterator {
    public:
        explicit Iterator(key_value *at) : at_(at) {}
        key_value &operator*() const { return *at_; }
        Iterator &operator++()
        {
            at_ = at_->next;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return at_ != other.at_; }

    private:
        key_value *at_;
    };

    explicit Bucket(key_value *first) : first_(first) {}

    explicit operator bool() const { return first_ != nullptr; }
    const KeyName *key() const { return first_->key; }
    key_value &first() const { return *first_; }
    guint32 count() const { return first_->count; }
    Iterator begin() const { return Iterator(first_); }
    Iterator end() const { return Iterator(nullptr); }

private:
    key_value *first_;
};

// Where a bucket begins, with its key beside it: looking for a key looks at nothing else.
struct BucketPlace {
    const KeyName *key;
    key_value *first;
};

// The buckets of one table.
class Buckets {
public:
    class Iterator {
    public:
        explicit Iterator(const BucketPlace *at) : at_(at) {}
        Bucket operator*() const { return Bucket(at_->first); }
        Iterator &operator++()
        {
            ++at_;
            return *this;
        }
        bool operator!=(const Iterator &other) const { return at_ != other.at_; }

    private:
        const BucketPlace *at_;
    };

    explicit Buckets(const std::vector<BucketPlace> &places) : places_(places) {}

    bool empty() const { return places_.empty(); }
    std::size_t size() const { return places_.size(); }
    Bucket operator[](std::size_t place) const { return Bucket(places_[place].first); }
    Iterator begin() const { return Iterator(places_.data()); }
    Iterator end() const { return Iterator(places_.data() + places_.size()); }

private:
    const std::vector<BucketPlace> &places_;
};

class AndList {
public:
    AndList() = default;
    AndList(AndList &&) = default;
    AndList &operator=(AndList &&) = default;
    // Equal tags of a key-value collapse in the copy.
    AndList(const AndList &other);

    Buckets keyed() const { return Buckets(keyed_); }
    Buckets wildcards() const { return Buckets(wildcards_); }

    // The bucket of a key (of a value), which is false when there is none.
    Bucket find(const KeyName *key) const
    {
        if (places_) [[unlikely]]
            return find_in_places(key);
        for (const BucketPlace &place : keyed_)
            if (place.key == key)
                return Bucket(place.first);
        return Bucket(nullptr);
    }
    Bucket find_wildcard(std::string_view value) const;
    // Where the bucket of a key stands among the keyed ones, or their number when there is none.
    std::size_t find_place(std::string_view key) const;

    // Makes room, where so many keys are to come.
    void reserve(std::size_t count);

    // Adds to the bucket of the key (of the value for a key wildcard), making it when needed.
    void add(key_value key_value);
    // Puts the key-value in the place of all that its key had.
    void replace(key_value key_value);

    // The same in two steps: a key-value is made in its place, and then begins a bucket, in the
    // place of one of the same key (of the same value), or extends one of its own key.
    template <class... Arguments> key_value *make(Arguments &&...arguments)
    {
        return &segment_with_room().emplace_back(std::forward<Arguments>(arguments)...);
    }
    Bucket begin_bucket(key_value *first)
    {
        first->begin_chain();
        if (first->key_wildcard || places_ || keyed_.size() >= many || find(first->key))
            put_bucket(first);
        else
            keyed_.push_back({first->key, first});
        return Bucket(first);
    }
    void extend(Bucket bucket, key_value *added);

private:
    friend class Footprint;

    // From here on a table is cheaper than looking at every bucket, and adding many stays linear.
    static constexpr std::size_t many = 16;

    // Where a key's (a value's) bucket stands, once there are too many to look at one by one.
    struct Places {
        std::unordered_map<const KeyName *, std::size_t, KeyNameHash> keyed;
        std::unordered_map<std::string_view, std::size_t, TextHash> wildcards;
    };

    void put_bucket(key_value *first);
    Bucket find_in_places(const KeyName *key) const;
    std::size_t find_place(const KeyName *key) const;
    std::size_t find_wildcard_place(std::string_view value) const;
    std::vector<key_value> &segment_with_room()
    {
        return key_values_.size() < key_values_.capacity() ? key_values_ : add_room();
    }
    std::vector<key_value> &add_room();
    void copy_buckets(const std::vector<BucketPlace> &from, std::vector<BucketPlace> &to);
    void note_places();

    std::vector<key_value> key_values_; // never grows beyond the room it has: then there are more
    std::vector<std::vector<key_value>> more_key_values_;
    std::vector<BucketPlace> keyed_;
    std::vector<BucketPlace> wildcards_;
    std::unique_ptr<Places> places_;
};

} // namespace qandor
