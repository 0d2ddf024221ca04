// SPDX-License-Identifier: LGPL-2.1-or-later

// Whether the nodes down to where an alternative is filed say all that it wants.

#include "model/expressionnodes.hpp"

namespace qandor {
namespace {

// Not so, if absent: then it wants to find an absent one.
bool is_for_any_name_space(const key_value &condition)
{
    OptionalText name_space = condition.attribute(Attribute::NameSpace);
    return name_space.data() && name_space.empty();
}

} // namespace

bool ExpressionIndex::Node::has_passed(Kind its_kind, const KeyName *its_key,
                                       const std::string *its_value) const
{
    for (const Node *at = this; at; at = at->parent)
        if (at->is(its_kind, its_key, its_value))
            return true;
    return false;
}

bool ExpressionIndex::Node::says(const KeyName *its_key, const key_value &condition) const
{
    if (condition.negated)
        return has_passed(Unless, its_key, forbidden_value(its_key, condition));
    if (its_key && condition.value_wildcard)
        return has_passed(Key, its_key);
    return has_passed(Value, its_key, &condition.value);
}

// Of the positive conditions on a key one is enough.
bool ExpressionIndex::Node::says_all_of(const KeyName *its_key, Bucket bucket) const
{
    if (bucket.count() > considered_values)
        return false;
    bool is_wanted = false, is_there = false;
    for (const key_value &condition : bucket) {
        if (its_key && !is_for_any_name_space(condition))
            return false;
        bool is_passed = says(its_key, condition);
        if (condition.negated && !is_passed)
            return false;
        is_wanted = is_wanted || !condition.negated;
        is_there = is_there || (!condition.negated && is_passed);
    }
    return is_there || !is_wanted;
}

bool ExpressionIndex::is_proven(const Filed &filed, const Node &node)
{
    const AndList &conditions = *filed.conditions;
    if (filed.is_whole || conditions.keyed().size() + conditions.wildcards().size() > node.depth)
        return false;
    for (Bucket bucket : conditions.keyed())
        if (!node.says_all_of(bucket.key(), bucket))
            return false;
    for (Bucket bucket : conditions.wildcards())
        if (!node.says_all_of(nullptr, bucket))
            return false;
    return true;
}

} // namespace qandor
