// SPDX-License-Identifier: LGPL-2.1-or-later

// What the index of expressions consists of.
#pragma once

#include "model/andlists.hpp"
#include "model/expressionindex.hpp"
#include "model/inspectable.hpp"
#include "model/keyedhash.hpp"
#include "model/linkedlist.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace qandor {

// What bounds the work and the memory that one expression takes, however long it is:
//   of its conditions on a key, and of its keys, so many are looked at;
//   one of more alternatives is looked at by the plain matcher in every search;
//   it is filed so many times at most, by its alternatives and the values that they name;
//   and no deeper.
constexpr guint32 considered_values = 256;
constexpr std::size_t considered_keys = 32;
constexpr std::size_t most_alternatives = 16;
constexpr std::size_t most_entries = 256;
constexpr std::size_t deepest = 16;

inline std::size_t considered(Buckets buckets)
{
    return std::min(buckets.size(), considered_keys);
}

// The place that one alternative takes of what an expression may.
inline std::size_t most_values(const inspectable &expression)
{
    return most_entries / std::max<std::size_t>(expression.and_lists.size(), 1);
}

// One alternative of an expression, where it is filed. One that is satisfied by any of several
// values of a key is filed once for each.
struct ExpressionIndex::Filed : SliceAllocated {
    const AndList *conditions = nullptr;
    FiledExpression *owner = nullptr;
    Node *node = nullptr;
    Filed *next_of_owner = nullptr;
    guint32 position = 0; // in the node's list
    // The nodes down to here say all that the alternative wants: where they hold, so does it.
    bool is_proven = false;
    bool is_whole = false; // stands for all alternatives
    bool is_fork = false;  // one of several, which stay where they are

    // Nodes that few depend on are given up, see ExpressionIndex::gather(). A fork keeps its own.
    static constexpr guint32 few = 2;
    guint32 weight() const { return is_fork ? few + 1 : 1; }
};

// What is filed at a node, side by side, so that a search need not go from one to the next. Mostly
// it is one.
class ExpressionIndex::FiledList {
public:
    FiledList() = default;
    FiledList(const FiledList &) = delete;
    FiledList &operator=(const FiledList &) = delete;
    ~FiledList()
    {
        if (room_ > 0)
            g_free(many_);
    }

    guint32 size() const { return size_; }
    Filed *const *begin() const { return room_ > 0 ? many_ : &one_; }
    Filed *const *end() const { return begin() + size_; }

    void append(Filed &filed);
    // Puts the last one in its place.
    void remove(const Filed &filed);

private:
    guint32 size_ = 0;
    guint32 room_ = 0; // of many, once there have been more than one
    union {
        Filed *one_ = nullptr;
        Filed **many_;
    };
};

// The hash is the id.
struct ExpressionIndex::FiledExpression : Chained, SliceAllocated {
    FiledExpression(guint32 id, guint64 order, const inspectable &expression)
        : Chained(Root, id), order(order), expression(&expression)
    {
    }

    Filed &file_another(const AndList &conditions);

    guint64 order;
    const inspectable *expression;
    Filed first; // nearly all are filed once
};

// What all that is filed below has in common, apart from what the nodes above say:
//   Key     the key is there (any key, when NULL), and has a value that is not negated
//   Value   the key of the node above has this value; without one: some value of this hash, which
//           stands for a name space, too
//   Unless  the key (any key, when NULL) does not have this value; without one: any value
struct ExpressionIndex::Node : Chained, SliceAllocated {
    struct Children {
        LinkedList<Node> values, keys, unless;
        std::size_t key_count = 0;
        bool empty() const { return values.empty() && keys.empty() && unless.empty(); }
    };

    Node() : Chained(Root, 0), depth(0) {}
    Node(Kind kind, guint32 hash, Node &parent, const KeyName *key)
        : Chained(kind, hash), depth(static_cast<guint8>(parent.depth + 1)), parent(&parent),
          key(key)
    {
    }

    guint32 hash_of_child(Kind its_kind, guint64 what) const
    {
        return mixed(reinterpret_cast<std::uintptr_t>(this) + its_kind, what);
    }
    guint32 hash_of_key(const KeyName *its_key) const
    {
        return hash_of_child(Key, reinterpret_cast<std::uintptr_t>(its_key));
    }

    LinkedList<Node> &siblings() const
    {
        Children &all = *parent->children;
        return kind == Value ? all.values : kind == Key ? all.keys : all.unless;
    }

    bool is(Kind its_kind, const KeyName *its_key, const std::string *its_value) const
    {
        if (kind != its_kind || key != its_key)
            return false;
        if (!value || !its_value)
            return !value && !its_value;
        return are_same_bytes(*value, *its_value);
    }

    // Whether the nodes from the root down to here say it of the container.
    bool has_passed(Kind its_kind, const KeyName *its_key,
                    const std::string *its_value = nullptr) const;
    bool says(const KeyName *its_key, const key_value &condition) const;
    bool says_all_of(const KeyName *its_key, Bucket bucket) const;

    guint8 depth;
    guint32 weight = 0; // of all that is filed here and below
    Node *parent = nullptr;
    const KeyName *key = nullptr;
    FiledList filed;
    std::unique_ptr<Children> children;
    std::unique_ptr<const std::string> value;
    Node *next = nullptr;
    Node *previous = nullptr;
};

// How many values of a key are asked for, roughly: a bit for each, which some share.
struct ExpressionIndex::KeySpread : Chained, SliceAllocated {
    explicit KeySpread(const KeyName *key) : Chained(Spread, hash_of_key(key)), key(key) {}
    static guint32 hash_of_key(const KeyName *key) { return key ? key->hash : 0; }

    const KeyName *key;
    guint64 values = 0;
};

// From a node to the next.
struct ExpressionIndex::Step {
    bool is_fork() const { return kind == Value && forks; }

    Kind kind = Root;
    const KeyName *key = nullptr;
    Bucket values = Bucket(nullptr);    // Value
    const std::string *value = nullptr; // Unless
    bool forks = false;                 // there are several values
};

// The way of an alternative on from a node, chosen once. What tells most comes first; a long
// expression is filed by its beginning:
//
//   keys that must have one certain value   those first that tell most, see rank()
//   keys that must be there
//   a value that any key must have
//   a key that must have one of several     here the way forks, and each of its ends is one
//   what is negated                         what most expressions forbid comes first
class ExpressionIndex::Way {
public:
    Way() = default;
    Way(const ExpressionIndex &index, const Node &node, const Filed &filed);

    bool is_at_end() const { return at_ == count_; }
    const Step &next() const { return steps_[at_]; }
    void take_step() { ++at_; }

private:
    class Chooser;

    std::array<Step, deepest> steps_;
    std::size_t count_ = 0;
    std::size_t at_ = 0;
};

// What is on its way to where it will be filed.
struct ExpressionIndex::Going {
    Filed *filed = nullptr;
    Way way{};
};

inline bool wants_name_space(const key_value &condition)
{
    return !condition.attribute(Attribute::NameSpace).empty();
}

inline guint32 hash_in_name_space(guint32 hash, std::string_view name_space)
{
    return mixed(hash, hash_of(name_space));
}

// Stands for the value where only the name space matters.
constexpr guint32 hash_of_any_value = 1;

// Of a condition on any key only the value counts.
inline const std::string *forbidden_value(const KeyName *key, const key_value &negated)
{
    return key && negated.value_wildcard ? nullptr : &negated.value;
}

} // namespace qandor
