// SPDX-License-Identifier: LGPL-2.1-or-later

// Filing expressions and taking them out again.

#include "model/expressionindex.hpp"

#include "model/expressionnodes.hpp"

#include <algorithm>
#include <array>

namespace qandor {
namespace {

// So many together are looked at one by one.
constexpr guint32 few = 4;

} // namespace

ExpressionIndex::ExpressionIndex(Containers containers) : containers_(containers) {}

ExpressionIndex::~ExpressionIndex()
{
    clear();
}

ExpressionIndex::Filed &
ExpressionIndex::FiledExpression::file_another(const AndList &its_conditions)
{
    Filed *filed = &first;
    if (first.conditions) {
        filed = std::make_unique<Filed>().release();
        filed->next_of_owner = std::exchange(first.next_of_owner, filed);
    }
    filed->conditions = &its_conditions;
    filed->owner = this;
    return *filed;
}

void ExpressionIndex::FiledList::append(Filed &filed)
{
    if (size_ > 0 && size_ >= room_) {
        Filed *one = one_;
        guint32 room = std::max(4U, 2 * room_);
        many_ = g_renew(Filed *, room_ > 0 ? many_ : nullptr, room);
        if (room_ == 0)
            *many_ = one;
        room_ = room;
    }
    filed.position = size_;
    (room_ > 0 ? many_ : &one_)[size_++] = &filed;
}

void ExpressionIndex::FiledList::remove(const Filed &filed)
{
    Filed **all = room_ > 0 ? many_ : &one_;
    Filed *last = all[--size_];
    last->position = filed.position;
    all[filed.position] = last;
}

ExpressionIndex::FiledExpression *ExpressionIndex::find_expression(guint32 id) const
{
    Chained *at = expressions_.chain(id);
    while (at && at->hash != id)
        at = at->next_in_chain;
    return static_cast<FiledExpression *>(at);
}

ExpressionIndex::KeySpread *ExpressionIndex::find_spread(const KeyName *key) const
{
    for (Chained *at = nodes_.chain(KeySpread::hash_of_key(key)); at; at = at->next_in_chain)
        if (at->kind == Spread && static_cast<KeySpread *>(at)->key == key)
            return static_cast<KeySpread *>(at);
    return nullptr;
}

void ExpressionIndex::note_values(const KeyName *key, Bucket bucket)
{
    if (bucket.count() > considered_values)
        return;
    KeySpread *spread = find_spread(key);
    if (!spread) {
        spread = std::make_unique<KeySpread>(key).release();
        nodes_.add(*spread);
    }
    for (const key_value &condition : bucket)
        if (!condition.value_wildcard)
            spread->values |= G_GUINT64_CONSTANT(1) << (hash_of(condition.value) % 64);
}

void ExpressionIndex::note_conditions(const AndList &conditions)
{
    for (std::size_t i = 0; i < considered(conditions.keyed()); ++i)
        note_values(conditions.keyed()[i].key(), conditions.keyed()[i]);
    for (std::size_t i = 0; i < considered(conditions.wildcards()); ++i)
        note_values(nullptr, conditions.wildcards()[i]);
}

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

// Any one of the values is enough.
void ExpressionIndex::go_down_by_value(Filed &filed, Node &node, Bucket values)
{
    Filed *next = &filed;
    for (const key_value &condition : values) {
        if (condition.negated)
            continue;
        if (!next)
            next = &filed.owner->file_another(*filed.conditions);
        file(*next, child_for_value(node, condition));
        next = nullptr;
        if (!node.key)
            break; // they all want the same value
    }
}

void ExpressionIndex::go_down(Filed &filed, Node &node, const Step &step)
{
    if (step.kind == Value) {
        go_down_by_value(filed, node, step.values);
        return;
    }
    guint32 hash = node.hash_of_key(step.key);
    if (step.kind == Unless)
        hash = node.hash_of_child(
            Unless, mixed(hash, step.value ? hash_of(*step.value) : hash_of_any_value));
    file(filed, child(node, step.kind, hash, step.key, step.value));
}

void ExpressionIndex::split(Node &node)
{
    std::array<Filed *, few> first;
    auto end = std::copy_n(node.filed.begin(), std::min(few, node.filed.size()), first.begin());
    for (auto at = first.begin(); at != end; ++at) {
        Step step = Steps(*this, node, *(*at)->conditions).next();
        if (!step)
            continue;
        node.filed.remove(**at);
        go_down(**at, node, step);
    }
}

// Those that wait at a node until there are too many are among its first few; behind them stand
// those that have no condition left to go by.
void ExpressionIndex::file(Filed &filed, Node &node)
{
    Steps steps(*this, node, *filed.conditions);
    Step step = steps.next();
    if (!step || (!node.children && node.filed.size() < few)) {
        node.filed.append(filed);
        filed.node = &node;
        filed.is_proven = !step && steps.is_proven();
        return;
    }
    if (!node.children)
        split(node);
    go_down(filed, node, step);
}

void ExpressionIndex::add(guint32 id, const inspectable &expression)
{
    remove(id);
    if (!root_)
        root_ = std::make_unique<Node>();
    FiledExpression &made =
        *std::make_unique<FiledExpression>(id, ++last_order_, expression).release();
    expressions_.add(made);
    for (const AndList &conditions : expression.and_lists) {
        note_conditions(conditions);
        file(made.file_another(conditions), *root_);
    }
}

// With the nodes that nothing is below any more.
void ExpressionIndex::take_out(Filed &filed)
{
    Node *node = filed.node;
    node->filed.remove(filed);
    while (node->parent && node->filed.size() == 0 && !node->children) {
        std::unique_ptr<Node> gone(node);
        nodes_.remove(*node);
        node = gone->parent;
        gone->siblings().remove(*gone);
        node->children->key_count -= gone->kind == Key ? 1 : 0;
        if (node->children->empty())
            node->children.reset();
    }
}

void ExpressionIndex::remove(guint32 id)
{
    std::unique_ptr<FiledExpression> gone(find_expression(id));
    if (!gone)
        return;
    expressions_.remove(*gone);
    if (gone->first.conditions)
        take_out(gone->first);
    while (std::unique_ptr<Filed> filed{gone->first.next_of_owner}) {
        gone->first.next_of_owner = filed->next_of_owner;
        take_out(*filed);
    }
}

void ExpressionIndex::clear()
{
    expressions_.take_all([](Chained *record) {
        std::unique_ptr<FiledExpression> gone(static_cast<FiledExpression *>(record));
        while (std::unique_ptr<Filed> filed{gone->first.next_of_owner})
            gone->first.next_of_owner = filed->next_of_owner;
    });
    nodes_.take_all([](Chained *record) {
        if (record->kind == Spread)
            std::unique_ptr<KeySpread>(static_cast<KeySpread *>(record));
        else
            std::unique_ptr<Node>(static_cast<Node *>(record));
    });
    root_.reset();
}

} // namespace qandor
