// SPDX-License-Identifier: LGPL-2.1-or-later

// By which of its conditions an alternative is filed.

#include "model/expressionnodes.hpp"

#include <bit>

namespace qandor {
namespace {

constexpr guint8 deepest = 32;
constexpr guint32 provable_values = 16;
// An external declaration has a value for it, which most expressions ask for.
bool is_topic(const KeyName *key)
{
    return are_same_bytes(key->view(), "topic0");
}

// Not so, if absent: then it wants to find an absent one.
bool is_for_any_name_space(const key_value &condition)
{
    OptionalText name_space = condition.attribute(Attribute::NameSpace);
    return name_space.data() && name_space.empty();
}

bool tells_values_apart(const key_value &condition)
{
    return !condition.value_wildcard || wants_name_space(condition);
}

guint count_positives(Bucket bucket, guint limit)
{
    guint count = 0;
    for (const key_value &condition : bucket) {
        count += condition.negated ? 0 : 1;
        if (count >= limit)
            break;
    }
    return count;
}

bool is_positive(Bucket bucket)
{
    return count_positives(bucket, 1) > 0;
}

// Whether the key must have one of certain values.
bool names_values(Bucket bucket)
{
    if (bucket.count() > considered_values)
        return false;
    for (const key_value &condition : bucket)
        if (!condition.negated && !tells_values_apart(condition))
            return false;
    return true;
}

} // namespace

bool ExpressionIndex::Steps::has_passed(Kind kind, const KeyName *key,
                                        const std::string *value) const
{
    for (const Node *at = &node_; at; at = at->parent)
        if (at->is(kind, key, value))
            return true;
    return false;
}

bool ExpressionIndex::Steps::has_passed(const KeyName *key, const key_value &condition) const
{
    if (condition.negated)
        return has_passed(Unless, key, forbidden_value(key, condition));
    if (key && condition.value_wildcard)
        return has_passed(Key, key);
    return has_passed(Value, key, &condition.value);
}

// Of the positive conditions on a key one is enough.
bool ExpressionIndex::Steps::is_proven(const KeyName *key, Bucket bucket) const
{
    if (bucket.count() > provable_values)
        return false;
    bool is_wanted = false, is_there = false;
    for (const key_value &condition : bucket) {
        if (key && !is_for_any_name_space(condition))
            return false;
        bool is_passed = has_passed(key, condition);
        if (condition.negated && !is_passed)
            return false;
        is_wanted = is_wanted || !condition.negated;
        is_there = is_there || (!condition.negated && is_passed);
    }
    return is_there || !is_wanted;
}

bool ExpressionIndex::Steps::is_proven() const
{
    for (Bucket bucket : conditions_.keyed())
        if (!is_proven(bucket.key(), bucket))
            return false;
    for (Bucket bucket : conditions_.wildcards())
        if (!is_proven(nullptr, bucket))
            return false;
    return true;
}

// Being filed once for each value of a key and then again for each of another would be too often.
bool ExpressionIndex::Steps::has_forked() const
{
    for (const Node *at = &node_; at; at = at->parent)
        if (at->kind == Value && at->key && count_positives(conditions_.find(at->key), 2) > 1)
            return true;
    return false;
}

int ExpressionIndex::Steps::spread(const KeyName *key) const
{
    const KeySpread *known = index_.find_spread(key);
    return known ? std::popcount(known->values) : 0;
}

int ExpressionIndex::Steps::rank(Bucket bucket) const
{
    constexpr int most = 65;
    if (!names_values(bucket))
        return 0;
    if (is_topic(bucket.key()))
        return most;
    int values = spread(bucket.key());
    return index_.containers_ == Containers::Events ? values : most - values;
}

// The conditions of a key of the way that was taken, when the value is what tells more.
Bucket ExpressionIndex::Steps::values_of(const KeyName *key) const
{
    if (!key) {
        for (Bucket bucket : conditions_.wildcards())
            if (is_positive(bucket))
                return bucket;
        return Bucket(nullptr);
    }
    Bucket bucket = conditions_.find(key);
    bool is_way = names_values(bucket) && (count_positives(bucket, 2) == 1 || !has_forked());
    return is_way ? bucket : Bucket(nullptr);
}

ExpressionIndex::Step ExpressionIndex::Steps::step_to_key() const
{
    Step best;
    int best_rank = -1;
    for (std::size_t i = 0; i < considered(conditions_.keyed()); ++i) {
        Bucket bucket = conditions_.keyed()[i];
        if (has_passed(Key, bucket.key()) || !is_positive(bucket))
            continue;
        int its_rank = rank(bucket);
        if (its_rank > best_rank) {
            best = {.kind = Key, .key = bucket.key()};
            best_rank = its_rank;
        }
    }
    if (!best && !has_passed(Key, nullptr) && values_of(nullptr))
        best = {.kind = Key};
    return best;
}

void ExpressionIndex::Steps::consider(const KeyName *key, Bucket bucket, Step &best,
                                      int &best_spread) const
{
    if (bucket.count() > considered_values)
        return;
    for (const key_value &condition : bucket) {
        const std::string *value = forbidden_value(key, condition);
        if (!condition.negated || has_passed(Unless, key, value))
            continue;
        int its_spread = value ? spread(key) : 0;
        if (best && its_spread >= best_spread)
            continue;
        best = {.kind = Unless, .key = key, .value = value};
        best_spread = its_spread;
    }
}

// What many expressions forbid comes first: one look then says no to all of them.
ExpressionIndex::Step ExpressionIndex::Steps::step_past_negated() const
{
    Step best;
    int best_spread = 0;
    for (std::size_t i = 0; i < considered(conditions_.keyed()); ++i)
        consider(conditions_.keyed()[i].key(), conditions_.keyed()[i], best, best_spread);
    for (std::size_t i = 0; i < considered(conditions_.wildcards()); ++i)
        consider(nullptr, conditions_.wildcards()[i], best, best_spread);
    return best;
}

ExpressionIndex::Step ExpressionIndex::Steps::next() const
{
    if (node_.depth >= deepest)
        return {};
    if (node_.kind == Key)
        if (Bucket values = values_of(node_.key))
            return {.kind = Value, .key = node_.key, .values = values};
    if (Step to_key = step_to_key())
        return to_key;
    return step_past_negated();
}

} // namespace qandor
