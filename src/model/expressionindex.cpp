// SPDX-License-Identifier: LGPL-2.1-or-later

// The expressions that are filed, and what is known of their keys.

#include "model/expressionindex.hpp"

#include "model/expressionnodes.hpp"

#include <algorithm>

namespace qandor {

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
    if (room_ > 4 && size_ < room_ / 4) {
        room_ /= 2;
        many_ = g_renew(Filed *, many_, room_);
    }
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

// One alternative without conditions says all; too many are looked at together.
void ExpressionIndex::add(guint32 id, const inspectable &expression)
{
    remove(id);
    if (!root_)
        root_ = std::make_unique<Node>();
    FiledExpression &made =
        *std::make_unique<FiledExpression>(id, ++last_order_, expression).release();
    expressions_.add(made);
    const AndLists &alternatives = expression.and_lists;
    for (const AndList &conditions : alternatives)
        if (conditions.keyed().empty() && conditions.wildcards().empty())
            return file(made, conditions, false);
    if (alternatives.size() > most_alternatives)
        return file(made, *alternatives.begin(), true);
    for (const AndList &conditions : alternatives)
        file(made, conditions, false);
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
