// SPDX-License-Identifier: LGPL-2.1-or-later

// An and-list: the key-values that hold together, grouped into buckets by key, and key wildcards
// grouped into buckets by value. Buckets keep the order in which their keys came.
#pragma once

#include "model/keyvalue.hpp"

#include <string_view>
#include <unordered_map>
#include <utility>
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

    explicit Bucket(KeyValuePtr first)
        : key(first->key), first_(first.release()), last_(first_), count_(1)
    {
    }
    Bucket(Bucket &&other) noexcept
        : key(other.key), first_(std::exchange(other.first_, nullptr)), last_(other.last_),
          count_(other.count_)
    {
    }
    Bucket &operator=(Bucket &&other) noexcept;
    ~Bucket();

    // The key must be the bucket's own.
    void add(KeyValuePtr key_value);

    key_value &first() const { return *first_; }
    guint32 count() const { return count_; }
    Iterator begin() const { return Iterator(first_); }
    Iterator end() const { return Iterator(nullptr); }

    const KeyName *key;

private:
    key_value *first_;
    key_value *last_;
    guint32 count_;
};

class AndList {
public:
    AndList() = default;
    AndList(AndList &&) = default;
    AndList &operator=(AndList &&) = default;
    // Equal tags of a key-value collapse in the copy.
    AndList(const AndList &other);

    const std::vector<Bucket> &keyed() const { return keyed_; }
    const std::vector<Bucket> &wildcards() const { return wildcards_; }

    const Bucket *find(const KeyName *key) const;
    const Bucket *find(std::string_view key) const;
    const Bucket *find_wildcard(std::string_view value) const;

    // Adds to the bucket of the key (of the value for a key wildcard), making it when needed.
    void add(KeyValuePtr key_value);
    // Puts the key-value in the place of all that its key had.
    void replace(KeyValuePtr key_value);
    // Puts a whole bucket in the place of one of the same key (of the same value).
    void put_keyed(Bucket bucket);
    void put_wildcard(Bucket bucket);

private:
    Bucket *find_to_change(const KeyName *key) { return const_cast<Bucket *>(find(key)); }
    Bucket *find_wildcard_to_change(std::string_view value)
    {
        return const_cast<Bucket *>(find_wildcard(value));
    }
    void append_keyed(Bucket bucket);
    void append_wildcard(Bucket bucket);

    std::vector<Bucket> keyed_;
    std::vector<Bucket> wildcards_;
    // Where a key's (a value's) bucket stands, once there are too many to look at one by one.
    std::unordered_map<const KeyName *, std::size_t> keyed_places_;
    std::unordered_map<std::string_view, std::size_t> wildcard_places_;
};

} // namespace qandor
