// SPDX-License-Identifier: LGPL-2.1-or-later

// Searching the index of expressions. Nothing is written but the matches.

#include "model/expressionnodes.hpp"

namespace qandor {
namespace {

bool has_open_value(Bucket bucket)
{
    for (const key_value &present : bucket)
        if (!present.negated && present.value_wildcard)
            return true;
    return false;
}

bool has_value(const key_value &present)
{
    return !present.negated && !present.value_wildcard;
}

bool has_exactly(Bucket bucket, std::string_view value)
{
    for (const key_value &present : bucket)
        if (has_value(present) && are_same_bytes(present.value, value))
            return true;
    return false;
}

bool is_asserted(Bucket bucket)
{
    for (const key_value &present : bucket)
        if (!present.negated)
            return true;
    return false;
}

// A negated key-value may break what another one of its key satisfies.
bool has_negated(const AndList &present)
{
    for (Bucket bucket : present.keyed())
        for (const key_value &key_value : bucket)
            if (key_value.negated)
                return true;
    return false;
}

} // namespace

// For one and-list of the container.
class ExpressionIndex::Search {
public:
    Search(const ExpressionIndex &index, const AndList &present, Matches &matches)
        : index_(index), present_(present), is_simple_(!has_negated(present)), matches_(matches)
    {
    }

    void visit(const Node &node);

private:
    void take(const FiledList &list);
    void visit_all(const LinkedList<Node> &nodes);
    void visit_value(const Node &parent, guint32 hash, const std::string *value);
    void visit_key(const Node &parent, const KeyName *key);
    void visit_key(const Node &node);
    void visit_keys(const Node &parent);
    void visit_values(const Node &parent, Bucket bucket);
    void visit_value(const Node &parent, const key_value &present);
    void visit_values_of_any(const Node &parent);
    bool is_broken(const Node &unless) const;
    bool is_value_there(std::string_view value) const;

    const ExpressionIndex &index_;
    const AndList &present_;
    const bool is_simple_;
    Matches &matches_;
};

void ExpressionIndex::Search::take(const FiledList &list)
{
    for (const Filed *filed : list) {
        const FiledExpression &owner = *filed->owner;
        matches_.push_back(
            {owner.order, owner.expression, owner.hash, is_simple_ && filed->is_proven});
    }
}

void ExpressionIndex::Search::visit(const Node &node)
{
    take(node.filed);
    if (!node.children)
        return;
    if (!node.children->keys.empty())
        visit_keys(node);
    for (const Node *child = node.children->unless.first(); child; child = child->next)
        if (!is_broken(*child))
            visit(*child);
}

void ExpressionIndex::Search::visit_all(const LinkedList<Node> &nodes)
{
    for (const Node *node = nodes.first(); node; node = node->next)
        visit(*node);
}

// By the fewer: the keys that are asked for or those that are there.
void ExpressionIndex::Search::visit_keys(const Node &parent)
{
    if (parent.children->key_count <= present_.keyed().size()) {
        for (const Node *child = parent.children->keys.first(); child; child = child->next)
            visit_key(*child);
        return;
    }
    visit_key(parent, nullptr);
    for (Bucket bucket : present_.keyed())
        visit_key(parent, bucket.key());
}

void ExpressionIndex::Search::visit_key(const Node &parent, const KeyName *key)
{
    if (const Node *child = index_.find_child(parent, Key, parent.hash_of_key(key), key, nullptr))
        visit_key(*child);
}

void ExpressionIndex::Search::visit_key(const Node &node)
{
    Bucket bucket = node.key ? present_.find(node.key) : Bucket(nullptr);
    if (node.key && (!bucket || !is_asserted(bucket)))
        return;
    visit(node);
    if (!node.children || node.children->values.empty())
        return;
    if (node.key)
        visit_values(node, bucket);
    else
        visit_values_of_any(node);
}

void ExpressionIndex::Search::visit_values(const Node &parent, Bucket bucket)
{
    if (has_open_value(bucket)) {
        visit_all(parent.children->values);
        return;
    }
    for (const key_value &present : bucket)
        if (has_value(present))
            visit_value(parent, present);
}

void ExpressionIndex::Search::visit_value(const Node &parent, guint32 hash,
                                          const std::string *value)
{
    if (const Node *child =
            index_.find_child(parent, Value, parent.hash_of_child(Value, hash), parent.key, value))
        visit(*child);
}

// A condition may want the value, the name space, or both.
void ExpressionIndex::Search::visit_value(const Node &parent, const key_value &present)
{
    guint32 value = hash_of(present.value);
    visit_value(parent, value, &present.value);
    if (!parent.key || !index_.has_name_spaces_ || !wants_name_space(present))
        return;
    OptionalText name_space = present.attribute(Attribute::NameSpace);
    visit_value(parent, hash_in_name_space(value, name_space), nullptr);
    visit_value(parent, hash_in_name_space(hash_of_any_value, name_space), nullptr);
}

void ExpressionIndex::Search::visit_values_of_any(const Node &parent)
{
    for (Bucket bucket : present_.keyed()) {
        if (has_open_value(bucket)) {
            visit_all(parent.children->values);
            return;
        }
    }
    for (Bucket bucket : present_.keyed())
        visit_values(parent, bucket);
}

bool ExpressionIndex::Search::is_value_there(std::string_view value) const
{
    for (Bucket bucket : present_.keyed())
        if (has_exactly(bucket, value))
            return true;
    return false;
}

bool ExpressionIndex::Search::is_broken(const Node &unless) const
{
    if (!unless.key)
        return is_value_there(*unless.value);
    Bucket bucket = present_.find(unless.key);
    if (!bucket)
        return false;
    return unless.value ? has_exactly(bucket, *unless.value) : is_asserted(bucket);
}

void ExpressionIndex::find(const inspectable &container, Matches &matches) const
{
    matches.clear();
    if (!root_)
        return;
    for (const AndList &present : container.and_lists)
        if (present.wildcards().empty())
            Search(*this, present, matches).visit(*root_);
    sort_matches(matches);
    std::erase_if(matches, [&container](const Match &match) {
        return !match.is_proven && !inspectable_contains(&container, match.record);
    });
}

} // namespace qandor
