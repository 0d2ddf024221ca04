// SPDX-License-Identifier: LGPL-2.1-or-later

// Searching the index of expressions. Nothing is written but the matches. No node is visited twice
// for an and-list of the container, however often that has a value; an expression with several ways
// to match may be found once for each, which is put right whenever there are too many.

#include "model/expressionnodes.hpp"
#include "model/matching.hpp"

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

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

bool is_asserted(Bucket bucket)
{
    for (const key_value &present : bucket)
        if (!present.negated)
            return true;
    return false;
}

int compare_places(const void *one, const void *other)
{
    auto place1 = load<std::uintptr_t>(one), place2 = load<std::uintptr_t>(other);
    return place1 < place2 ? -1 : place1 > place2 ? 1 : 0;
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

ExpressionIndex::Node *ExpressionIndex::find_child(const Node &parent, Kind kind, guint32 hash,
                                                   const KeyName *key,
                                                   const std::string *value) const
{
    for (Chained *at = nodes_.chain(hash); at; at = at->next_in_chain) {
        if (at->hash != hash || at->kind != kind)
            continue;
        auto *node = static_cast<Node *>(at);
        if (node->parent == &parent && node->is(kind, key, value))
            return node;
    }
    return nullptr;
}

// For one and-list of the container.
class ExpressionIndex::Search {
public:
    Search(const ExpressionIndex &index, const AndList &present, Containment &containment,
           Matches &matches)
        : index_(index), present_(present), containment_(containment),
          is_simple_(!has_negated(present)), matches_(matches)
    {
    }

    void visit(const Node &node);
    std::size_t steps() const { return steps_; }

private:
    using Nodes = std::vector<const Node *>;

    void take(const FiledList &list);
    void visit_all(const LinkedList<Node> &nodes);
    void visit_each_once(Nodes &nodes);
    void find_value(const Node &parent, guint32 hash, const std::string *value, Nodes &found) const;
    void find_values(const Node &parent, const key_value &present, Nodes &found);
    void visit_key(const Node &parent, const KeyName *key);
    void visit_key(const Node &node);
    void visit_keys(const Node &parent);
    void visit_values(const Node &parent, Bucket bucket);
    void visit_value(const Node &parent, const key_value &present);
    void visit_values_of_any(const Node &parent);
    bool is_broken(const Node &unless);
    guint32 hash_of_value(const key_value &present);

    const ExpressionIndex &index_;
    const AndList &present_;
    Containment &containment_;
    const bool is_simple_;
    Matches &matches_;
    std::size_t steps_ = 0;
    std::vector<std::pair<const key_value *, guint32>> hashes_; // of very long values
};

void ExpressionIndex::Search::take(const FiledList &list)
{
    steps_ += list.size();
    for (const Filed *filed : list) {
        const FiledExpression &owner = *filed->owner;
        matches_.push_back(
            {owner.order, owner.expression, owner.hash, is_simple_ && filed->is_proven});
    }
    constexpr std::size_t some = 64;
    if (matches_.size() > 2 * index_.expressions_.size() + some)
        sort_matches(matches_);
}

void ExpressionIndex::Search::visit(const Node &node)
{
    ++steps_;
    take(node.filed);
    if (!node.children)
        return;
    if (!node.children->keys.empty())
        visit_keys(node);
    for (const Node *child = node.children->unless.first(); child; child = child->next) {
        ++steps_;
        if (!is_broken(*child))
            visit(*child);
    }
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
        steps_ += parent.children->key_count;
        for (const Node *child = parent.children->keys.first(); child; child = child->next)
            visit_key(*child);
        return;
    }
    steps_ += 1 + present_.keyed().size();
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

// A value is hashed anew for each node, but for those of which that would take long.
guint32 ExpressionIndex::Search::hash_of_value(const key_value &present)
{
    constexpr std::size_t very_long = 1024;
    if (present.value.size() < very_long)
        return hash_of(present.value);
    for (const auto &[known, hash] : hashes_)
        if (known == &present)
            return hash;
    return hashes_.emplace_back(&present, hash_of(present.value)).second;
}

void ExpressionIndex::Search::find_value(const Node &parent, guint32 hash, const std::string *value,
                                         Nodes &found) const
{
    if (const Node *child =
            index_.find_child(parent, Value, parent.hash_of_child(Value, hash), parent.key, value))
        found.push_back(child);
}

// A condition may want the value, the name space, or both.
void ExpressionIndex::Search::find_values(const Node &parent, const key_value &present,
                                          Nodes &found)
{
    guint32 value = hash_of_value(present);
    find_value(parent, value, &present.value, found);
    if (!parent.key || !index_.has_name_spaces_ || !wants_name_space(present))
        return;
    OptionalText name_space = present.attribute(Attribute::NameSpace);
    find_value(parent, hash_in_name_space(value, name_space), nullptr, found);
    find_value(parent, hash_in_name_space(hash_of_any_value, name_space), nullptr, found);
}

void ExpressionIndex::Search::visit_each_once(Nodes &nodes)
{
    if (nodes.empty())
        return;
    // In C, as matches are: a template for it would make the library larger.
    std::qsort(nodes.data(), nodes.size(), sizeof nodes[0], compare_places);
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    for (const Node *node : nodes)
        visit(*node);
}

// Nearly all keys have one value, and no name space.
void ExpressionIndex::Search::visit_value(const Node &parent, const key_value &present)
{
    if (index_.has_name_spaces_ && wants_name_space(present)) {
        Nodes found;
        find_values(parent, present, found);
        visit_each_once(found);
        return;
    }
    guint32 hash = parent.hash_of_child(Value, hash_of_value(present));
    if (const Node *child = index_.find_child(parent, Value, hash, parent.key, &present.value))
        visit(*child);
}

void ExpressionIndex::Search::visit_values(const Node &parent, Bucket bucket)
{
    if (has_open_value(bucket)) {
        visit_all(parent.children->values);
        return;
    }
    steps_ += bucket.count();
    if (bucket.count() == 1) {
        if (has_value(bucket.first()))
            visit_value(parent, bucket.first());
        return;
    }
    Nodes found;
    for (const key_value &present : bucket)
        if (has_value(present))
            find_values(parent, present, found);
    visit_each_once(found);
}

void ExpressionIndex::Search::visit_values_of_any(const Node &parent)
{
    Nodes found;
    for (Bucket bucket : present_.keyed()) {
        if (has_open_value(bucket)) {
            visit_all(parent.children->values);
            return;
        }
        steps_ += bucket.count();
        for (const key_value &present : bucket)
            if (has_value(present))
                find_values(parent, present, found);
    }
    visit_each_once(found);
}

bool ExpressionIndex::Search::is_broken(const Node &unless)
{
    if (!unless.key)
        return containment_.has_exactly(present_, *unless.value);
    Bucket bucket = present_.find(unless.key);
    if (!bucket)
        return false;
    if (!unless.value)
        return is_asserted(bucket);
    if (bucket.count() == 1)
        return has_value(bucket.first()) && are_same_bytes(bucket.first().value, *unless.value);
    return containment_.has_exactly(bucket, *unless.value);
}

std::size_t ExpressionIndex::search(const inspectable &container, Containment &containment,
                                    Matches &matches) const
{
    matches.clear();
    std::size_t steps = 0;
    for (const AndList &present : container.and_lists) {
        if (!root_ || !present.wildcards().empty())
            continue;
        Search search(*this, present, containment, matches);
        search.visit(*root_);
        steps += search.steps();
    }
    sort_matches(matches);
    give_back_room(matches);
    return steps;
}

std::size_t ExpressionIndex::find_candidates(const inspectable &container, Matches &matches) const
{
    Containment containment(container);
    std::size_t steps = search(container, containment, matches);
    return steps + containment.comparisons();
}

std::size_t ExpressionIndex::find(const inspectable &container, Matches &matches) const
{
    Containment containment(container);
    std::size_t steps = search(container, containment, matches);
    std::erase_if(matches, [&containment](const Match &match) {
        return !match.is_proven && !containment.satisfies(*match.record);
    });
    return steps + containment.comparisons();
}

} // namespace qandor
