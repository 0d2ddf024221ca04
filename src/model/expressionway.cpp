// SPDX-License-Identifier: LGPL-2.1-or-later

// By which of its conditions an alternative is filed.

#include "model/expressionnodes.hpp"

#include <bit>

namespace qandor {
namespace {

// Of the negated conditions on a key.
constexpr std::size_t considered_negated = 16;

// An external declaration has a value for it, which most expressions ask for.
bool is_topic(const KeyName *key)
{
    return are_same_bytes(key->view(), "topic0");
}

bool tells_values_apart(const key_value &condition)
{
    return !condition.value_wildcard || wants_name_space(condition);
}

bool is_positive(Bucket bucket)
{
    for (const key_value &condition : bucket)
        if (!condition.negated)
            return true;
    return false;
}

// How many values a key may have; none when it may have any, or more than can be looked at.
std::size_t count_named(Bucket bucket, std::size_t limit)
{
    if (bucket.count() > considered_values)
        return 0;
    std::size_t count = 0;
    for (const key_value &condition : bucket) {
        if (condition.negated)
            continue;
        if (!tells_values_apart(condition) || ++count > limit)
            return 0;
    }
    return count;
}

} // namespace

class ExpressionIndex::Way::Chooser {
public:
    Chooser(const ExpressionIndex &index, const Node &node, const Filed &filed, Way &way)
        : index_(index), node_(node), conditions_(*filed.conditions),
          most_values_(most_values(*filed.owner->expression)), way_(way)
    {
    }

    void choose();

private:
    struct Candidate {
        Bucket bucket = Bucket(nullptr);
        std::size_t named = 0; // values
        int rank = 0;
    };

    int rank(const KeyName *key) const;
    int spread(const KeyName *key) const;
    Bucket positive_wildcards() const;

    void push(const Step &step);
    void push_value(const KeyName *key, Bucket values, std::size_t named);
    void go_on_from_key();
    void collect();
    void take_certain();
    void take_keys();
    void take_any_key();
    void take_fork();
    void take_negated();
    void consider_negated(const KeyName *key, Bucket bucket);
    void insert_negated(const Step &step, int its_spread);

    const ExpressionIndex &index_;
    const Node &node_;
    const AndList &conditions_;
    const std::size_t most_values_;
    Way &way_;
    bool has_forked_ = false;
    std::array<Candidate, considered_keys> candidates_{};
    std::size_t candidate_count_ = 0;
    const Candidate *fork_ = nullptr;
    std::array<int, deepest> spreads_{}; // of the negated steps
    std::size_t first_negated_ = 0;
};

int ExpressionIndex::Way::Chooser::spread(const KeyName *key) const
{
    const KeySpread *known = index_.find_spread(key);
    return known ? std::popcount(known->values) : 0;
}

int ExpressionIndex::Way::Chooser::rank(const KeyName *key) const
{
    constexpr int most = 65;
    if (is_topic(key))
        return most;
    int values = spread(key);
    return index_.containers_ == Containers::Events ? values : most - values;
}

void ExpressionIndex::Way::Chooser::push(const Step &step)
{
    if (node_.depth + way_.count_ < deepest)
        way_.steps_[way_.count_++] = step;
}

void ExpressionIndex::Way::Chooser::push_value(const KeyName *key, Bucket values, std::size_t named)
{
    has_forked_ = named > 1;
    push({.kind = Value, .key = key, .values = values, .forks = has_forked_});
}

Bucket ExpressionIndex::Way::Chooser::positive_wildcards() const
{
    for (std::size_t i = 0; i < considered(conditions_.wildcards()); ++i)
        if (is_positive(conditions_.wildcards()[i]))
            return conditions_.wildcards()[i];
    return Bucket(nullptr);
}

// The value of the key that was stepped to last.
void ExpressionIndex::Way::Chooser::go_on_from_key()
{
    if (node_.kind != Key)
        return;
    if (!node_.key) {
        push_value(nullptr, positive_wildcards(), 1);
        return;
    }
    Bucket bucket = conditions_.find(node_.key);
    if (std::size_t named = count_named(bucket, most_values_); named > 0)
        push_value(node_.key, bucket, named);
}

// Sorted by rank; those of one rank as they came.
void ExpressionIndex::Way::Chooser::collect()
{
    for (std::size_t i = 0; i < considered(conditions_.keyed()); ++i) {
        Bucket bucket = conditions_.keyed()[i];
        if (node_.has_passed(Key, bucket.key()) || !is_positive(bucket))
            continue;
        Candidate candidate{bucket, count_named(bucket, most_values_), rank(bucket.key())};
        std::size_t place = candidate_count_++;
        for (; place > 0 && candidates_[place - 1].rank < candidate.rank; --place)
            candidates_[place] = candidates_[place - 1];
        candidates_[place] = candidate;
    }
    for (std::size_t i = candidate_count_; i-- > 0;)
        if (candidates_[i].named > 1)
            fork_ = &candidates_[i];
}

void ExpressionIndex::Way::Chooser::take_certain()
{
    for (std::size_t i = 0; i < candidate_count_; ++i) {
        const Candidate &one = candidates_[i];
        if (one.named != 1)
            continue;
        push({.kind = Key, .key = one.bucket.key()});
        push_value(one.bucket.key(), one.bucket, one.named);
    }
}

void ExpressionIndex::Way::Chooser::take_keys()
{
    for (std::size_t i = 0; i < candidate_count_; ++i)
        if (candidates_[i].named != 1 && &candidates_[i] != fork_)
            push({.kind = Key, .key = candidates_[i].bucket.key()});
}

void ExpressionIndex::Way::Chooser::take_any_key()
{
    if (node_.has_passed(Key, nullptr))
        return;
    if (Bucket values = positive_wildcards()) {
        push({.kind = Key});
        push_value(nullptr, values, 1);
    }
}

void ExpressionIndex::Way::Chooser::take_fork()
{
    if (!fork_)
        return;
    push({.kind = Key, .key = fork_->bucket.key()});
    push_value(fork_->bucket.key(), fork_->bucket, fork_->named);
}

// Those that few values are forbidden of come first; those of as many as they came.
void ExpressionIndex::Way::Chooser::insert_negated(const Step &step, int its_spread)
{
    std::size_t place = way_.count_;
    if (node_.depth + place == deepest) {
        if (place == first_negated_ || spreads_[place - 1] <= its_spread)
            return;
        --place;
    } else {
        ++way_.count_;
    }
    for (; place > first_negated_ && spreads_[place - 1] > its_spread; --place) {
        way_.steps_[place] = way_.steps_[place - 1];
        spreads_[place] = spreads_[place - 1];
    }
    way_.steps_[place] = step;
    spreads_[place] = its_spread;
}

void ExpressionIndex::Way::Chooser::consider_negated(const KeyName *key, Bucket bucket)
{
    std::size_t left = considered_negated;
    for (const key_value &condition : bucket) {
        if (left-- == 0)
            return;
        const std::string *value = forbidden_value(key, condition);
        if (condition.negated && !node_.has_passed(Unless, key, value))
            insert_negated({.kind = Unless, .key = key, .value = value}, value ? spread(key) : 0);
    }
}

// What many expressions forbid comes first: one look then says no to all of them.
void ExpressionIndex::Way::Chooser::take_negated()
{
    first_negated_ = way_.count_;
    for (std::size_t i = 0; i < considered(conditions_.keyed()); ++i)
        consider_negated(conditions_.keyed()[i].key(), conditions_.keyed()[i]);
    for (std::size_t i = 0; i < considered(conditions_.wildcards()); ++i)
        consider_negated(nullptr, conditions_.wildcards()[i]);
}

void ExpressionIndex::Way::Chooser::choose()
{
    go_on_from_key();
    if (has_forked_)
        return;
    collect();
    take_certain();
    take_keys();
    take_any_key();
    take_fork();
    if (!has_forked_)
        take_negated();
}

ExpressionIndex::Way::Way(const ExpressionIndex &index, const Node &node, const Filed &filed)
{
    if (!filed.is_whole && !filed.is_fork)
        Chooser(index, node, filed, *this).choose();
}

} // namespace qandor
