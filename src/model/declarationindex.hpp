// SPDX-License-Identifier: LGPL-2.1-or-later

// The other way round: finds among many declarations those that may satisfy one subscribe
// expression, without looking at each.
//
// Every value that a declaration has is filed under its key and value, every open one under its
// key. An alternative looks through the declarations of the condition that has fewest, and the
// plain matcher checks them. Where there is no such condition, or as many to look through as there
// are declarations, a search looks at each declaration once, whatever the expression.
//
// Several threads may search at once. Adding and removing are nobody else's business meanwhile.
#pragma once

#include "model/hashchains.hpp"
#include "model/linkedlist.hpp"
#include "model/matches.hpp"

#include <qandor/inspectable.h>

namespace qandor {

class AndList;
class Bucket;
struct KeyName;

class DeclarationIndex {
public:
    DeclarationIndex() = default;
    DeclarationIndex(const DeclarationIndex &) = delete;
    DeclarationIndex &operator=(const DeclarationIndex &) = delete;
    ~DeclarationIndex();

    // Files a declaration, in the place of one of the same id. It stays the caller's, and stays as
    // it is and where it is until it is removed.
    void add(guint32 id, const inspectable &declaration);
    // Does nothing when the id is unknown.
    void remove(guint32 id);
    void clear();

    // Puts into matches those declarations that satisfy the expression, in the order of addition.
    void find(const inspectable &expression, Matches &matches) const;

    // What an index keeps for a declaration at most, in bytes, whatever else is in it.
    static std::size_t most_memory_for(const inspectable &declaration);

    // The same without having asked the matcher: some of them may not satisfy it. Never more than
    // there are declarations. Returns its steps: how many conditions, places and declarations it
    // has looked at.
    std::size_t find_candidates(const inspectable &expression, Matches &matches) const;

    // How many records of its own it holds.
    std::size_t record_count() const { return records_.size(); }

private:
    enum Kind : guint8 { Key, Value, Declaration };

    struct FiledValue;
    struct Values;
    struct FiledDeclaration;
    class Places;

    Values *find_values(Kind kind, const KeyName *key, guint32 value) const;
    Values &values(Kind kind, const KeyName *key, guint32 value, Values *of_key);
    void file(FiledDeclaration &declaration, const AndList &content);
    void take_out(FiledValue &filed);
    void drop_if_empty(Values &values);
    FiledDeclaration *find_declaration(guint32 id) const;

    bool find_places(const inspectable &expression, Places &places) const;
    bool add_places_for(const AndList &alternative, Places &places) const;
    static void take(const Values &values, Matches &matches);
    void take_all(Matches &matches) const;

    guint64 last_order_ = 0;
    HashChains records_;
    LinkedList<FiledDeclaration> declarations_;
    std::size_t declaration_count_ = 0;
};

} // namespace qandor
