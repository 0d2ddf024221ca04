// SPDX-License-Identifier: LGPL-2.1-or-later

// Filing alternatives in the tree and taking them out again.

#include "model/expressionnodes.hpp"

#include <algorithm>
#include <array>

namespace qandor {
namespace {

// So many wait at a node and are looked at one by one.
constexpr guint32 few = 4;
// They go on together with one that comes.
constexpr std::size_t most_together = 2 * few + 1;

} // namespace

ExpressionIndex::Node &ExpressionIndex::child(Node &parent, Kind kind, guint32 hash,
                                              const KeyName *key, const std::string *value)
{
    if (Node *known = find_child(parent, kind, hash, key, value))
        return *known;
    Node &made = *std::make_unique<Node>(kind, hash, parent, key).release();
    if (value)
        made.value = std::make_unique<const std::string>(*value);
    if (!parent.children)
        parent.children = std::make_unique<Node::Children>();
    made.siblings().append(made);
    parent.children->key_count += kind == Key ? 1 : 0;
    nodes_.add(made);
    return made;
}

ExpressionIndex::Node &ExpressionIndex::child_for_value(Node &parent, const key_value &condition)
{
    if (!parent.key || !wants_name_space(condition))
        return child(parent, Value, parent.hash_of_child(Value, hash_of(condition.value)),
                     parent.key, &condition.value);
    has_name_spaces_ = true;
    guint32 value = condition.value_wildcard ? hash_of_any_value : hash_of(condition.value);
    value = hash_in_name_space(value, condition.attribute(Attribute::NameSpace));
    return child(parent, Value, parent.hash_of_child(Value, value), parent.key, nullptr);
}

ExpressionIndex::Node &ExpressionIndex::child_for(Node &parent, const Step &step)
{
    if (step.kind == Value)
        for (const key_value &condition : step.values)
            if (!condition.negated)
                return child_for_value(parent, condition);
    guint32 hash = parent.hash_of_key(step.key);
    if (step.kind == Unless)
        hash = parent.hash_of_child(
            Unless, mixed(hash, step.value ? hash_of(*step.value) : hash_of_any_value));
    return child(parent, step.kind, hash, step.key, step.value);
}

void ExpressionIndex::rest(Filed &filed, Node &node, bool is_proven)
{
    node.filed.append(filed);
    filed.node = &node;
    filed.is_proven = is_proven;
}

// Any one of the values is enough, and proves as much as any other.
void ExpressionIndex::fork(Filed &filed, Node &node, const Step &step)
{
    Filed *next = &filed;
    guint32 weight = 0;
    for (const key_value &condition : step.values) {
        if (condition.negated)
            continue;
        if (!next)
            next = &filed.owner->file_another(*filed.conditions);
        next->is_fork = true;
        Node &its = child_for_value(node, condition);
        its.weight += next->weight();
        weight += next->weight();
        rest(*next, its, next == &filed ? is_proven(filed, its) : filed.is_proven);
        next = nullptr;
    }
    for (Node *at = &node; at; at = at->parent)
        at->weight += weight - 1;
}

// Those that go to the same child go there together.
void ExpressionIndex::go_down(std::span<Going *> group, Node &node)
{
    std::array<Node *, most_together> to{};
    for (std::size_t i = 0; i < group.size(); ++i) {
        Going &going = *group[i];
        if (going.way.is_at_end()) {
            rest(*going.filed, node, is_proven(*going.filed, node));
        } else if (going.way.next().is_fork()) {
            fork(*going.filed, node, going.way.next());
        } else {
            to[i] = &child_for(node, going.way.next());
            going.way.take_step();
        }
    }
    for (std::size_t i = 0; i < group.size(); ++i) {
        Node *child = to[i];
        std::array<Going *, most_together> together{};
        std::size_t count = 0;
        for (std::size_t j = i; child && j < group.size(); ++j)
            if (to[j] == child) {
                together[count++] = group[j];
                to[j] = nullptr;
            }
        if (child)
            go_on({together.data(), count}, *child);
    }
}

// Those that wait at a node are among its first few; behind them stand those that have no condition
// left to go by.
void ExpressionIndex::split(std::span<Going *> arriving, Node &node)
{
    std::array<Filed *, few> first;
    std::array<Going, few> waiting;
    std::array<Going *, most_together> group;
    auto end = std::copy_n(node.filed.begin(), std::min(few, node.filed.size()), first.begin());
    std::size_t size = 0;
    for (auto at = first.begin(); at != end; ++at) {
        Way way(*this, node, **at);
        if (way.is_at_end())
            continue;
        node.filed.remove(**at);
        waiting[size] = {*at, way};
        group[size] = &waiting[size];
        ++size;
    }
    // Behind those that came before: searches then mostly find them in order.
    for (Going *going : arriving)
        group[size++] = going;
    go_down({group.data(), size}, node);
}

// A few wait at a node; when there are more, all go on.
void ExpressionIndex::go_on(std::span<Going *> arriving, Node &node)
{
    node.weight += static_cast<guint32>(arriving.size());
    bool has_further = std::any_of(arriving.begin(), arriving.end(),
                                   [](const Going *going) { return !going->way.is_at_end(); });
    if (node.children)
        go_down(arriving, node);
    else if (has_further && node.filed.size() + arriving.size() > few)
        split(arriving, node);
    else
        for (Going *going : arriving)
            rest(*going->filed, node, going->way.is_at_end() && is_proven(*going->filed, node));
}

void ExpressionIndex::file(FiledExpression &owner, const AndList &conditions, bool is_whole)
{
    if (!is_whole)
        note_conditions(conditions);
    Filed &filed = owner.file_another(conditions);
    filed.is_whole = is_whole;
    Going going{&filed, Way(*this, *root_, filed)};
    Going *arriving[] = {&going};
    go_on(arriving, *root_);
}

void ExpressionIndex::drop_empty(Node *node)
{
    while (node != root_.get() && node->filed.size() == 0 && !node->children) {
        std::unique_ptr<Node> gone(node);
        nodes_.remove(*node);
        node = gone->parent;
        gone->siblings().remove(*gone);
        node->children->key_count -= gone->kind == Key ? 1 : 0;
        if (node->children->empty())
            node->children.reset();
    }
}

// What is below a node comes to wait at it again.
void ExpressionIndex::gather(Node &node, Node &from)
{
    for (LinkedList<Node> *children :
         {&from.children->values, &from.children->keys, &from.children->unless}) {
        while (Node *child = children->first()) {
            std::unique_ptr<Node> gone(child);
            children->remove(*child);
            nodes_.remove(*child);
            if (child->children)
                gather(node, *child);
            for (Filed *filed : child->filed)
                rest(*filed, node, false);
        }
    }
    from.children.reset();
}

// With the nodes that few are below any more: every node that others are below stands for several
// that are filed, so that nobody can leave a long way behind for one.
void ExpressionIndex::take_out(Filed &filed)
{
    Node *node = filed.node;
    node->filed.remove(filed);
    Node *sparse = nullptr;
    for (Node *at = node; at; at = at->parent) {
        at->weight -= filed.weight();
        if (at->children && at->weight <= Filed::few)
            sparse = at;
    }
    if (sparse) {
        gather(*sparse, *sparse);
        node = sparse;
    }
    drop_empty(node);
}

} // namespace qandor
