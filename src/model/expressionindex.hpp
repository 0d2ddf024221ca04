// SPDX-License-Identifier: LGPL-2.1-or-later

// Finds among many subscribe expressions those that one event, or one declaration, satisfies,
// without looking at each.
//
// A tree of conditions. Each alternative of an expression is filed under as many of its conditions
// as are needed to be nearly alone: a node says that a key is there, that it has a value, or that a
// negated condition is not broken. A search goes down where the container has it so, and comes to
// each node once. What it comes
// to is mostly only a candidate, which the plain matcher checks: a node may say less than the
// condition it stands for, never more. Where the nodes say all that an alternative of simple
// conditions wants, and the container is simple too, there is nothing left to check.
//
// A search takes at most twice the steps of looking at each alternative of each expression. It goes
// down once for each and-list of the container: events and declarations have one.
//
// Several threads may search at once. Adding and removing are nobody else's business meanwhile.
#pragma once

#include "model/hashchains.hpp"
#include "model/matches.hpp"

#include <qandor/inspectable.h>

#include <memory>
#include <span>
#include <string>

namespace qandor {

class AndList;
class Bucket;
class Containment;
struct KeyName;

class ExpressionIndex {
public:
    // What the containers are. Events have all their values, so that the conditions that differ
    // most from expression to expression come first. Declarations leave values open, and have to be
    // looked for under all that were ever asked of such a key: few come first.
    enum class Containers { Events, Declarations };

    explicit ExpressionIndex(Containers containers);
    ExpressionIndex(const ExpressionIndex &) = delete;
    ExpressionIndex &operator=(const ExpressionIndex &) = delete;
    ~ExpressionIndex();

    // Files an expression, in the place of one of the same id. It stays the caller's, and stays as
    // it is and where it is until it is removed.
    void add(guint32 id, const inspectable &expression);
    // Does nothing when the id is unknown.
    void remove(guint32 id);
    void clear();

    // Puts into matches those expressions that the container satisfies, in the order of addition.
    // Returns its steps: how many nodes, entries, keys and values it has looked at, and compared.
    std::size_t find(const inspectable &container, Matches &matches) const;

    // The same without having asked the matcher: those that are not proven may turn out not to be
    // satisfied.
    std::size_t find_candidates(const inspectable &container, Matches &matches) const;

    // What an index keeps for an expression at most, in bytes, whatever else is in it.
    static std::size_t most_memory_for(const inspectable &expression);

    // How many records of its own it holds.
    std::size_t record_count() const { return expressions_.size() + nodes_.size(); }

private:
    enum Kind : guint8 { Root, Key, Value, Unless, Spread };

    struct Filed;
    class FiledList;
    struct Node;
    struct FiledExpression;
    struct KeySpread;
    struct Step;
    class Way;
    struct Going;
    class Search;

    Node *find_child(const Node &parent, Kind kind, guint32 hash, const KeyName *key,
                     const std::string *value) const;
    Node &child(Node &parent, Kind kind, guint32 hash, const KeyName *key,
                const std::string *value);
    Node &child_for_value(Node &parent, const key_value &condition);
    Node &child_for(Node &parent, const Step &step);
    void file(FiledExpression &owner, const AndList &conditions, bool is_whole);
    void go_on(std::span<Going *> arriving, Node &node);
    void split(std::span<Going *> arriving, Node &node);
    void go_down(std::span<Going *> group, Node &node);
    void fork(Filed &filed, Node &node, const Step &step);
    static void rest(Filed &filed, Node &node, bool is_proven);
    static bool is_proven(const Filed &filed, const Node &node);
    void take_out(Filed &filed);
    void gather(Node &node, Node &from);
    void drop_empty(Node *node);
    std::size_t search(const inspectable &container, Containment &containment,
                       Matches &matches) const;

    KeySpread *find_spread(const KeyName *key) const;
    void note_values(const KeyName *key, Bucket bucket);
    void note_conditions(const AndList &conditions);
    FiledExpression *find_expression(guint32 id) const;

    const Containers containers_;
    bool has_name_spaces_ = false; // some condition has one
    guint64 last_order_ = 0;
    HashChains expressions_;
    HashChains nodes_; // and what is known of keys
    std::unique_ptr<Node> root_;
};

} // namespace qandor
