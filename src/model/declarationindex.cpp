// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/declarationindex.hpp"

#include "model/andlists.hpp"
#include "model/footprint.hpp"
#include "model/inspectable.hpp"
#include "model/keyedhash.hpp"

#include <algorithm>
#include <compare>
#include <vector>

namespace qandor {

struct DeclarationIndex::FiledValue : SliceAllocated {
    Values *values;
    FiledDeclaration *owner;
    FiledValue *next = nullptr;
    FiledValue *previous = nullptr;
    FiledValue *next_of_owner;

    FiledValue(Values &values, FiledDeclaration &owner, FiledValue *next_of_owner)
        : values(&values), owner(&owner), next_of_owner(next_of_owner)
    {
    }
};

// The declarations that have a key open, or with one value. Values that share a hash share one.
struct DeclarationIndex::Values : Chained, SliceAllocated {
    Values(Kind kind, guint32 hash, const KeyName *key, Values *of_key)
        : Chained(kind, hash), key(key), of_key(of_key)
    {
    }
    static guint32 hash_for(Kind kind, const KeyName *key, guint32 value)
    {
        return mixed(reinterpret_cast<std::uintptr_t>(key) + kind, value);
    }

    const KeyName *key;
    Values *of_key; // of a value: its key's
    LinkedList<FiledValue> filed;
    std::size_t count = 0;           // of what is filed here
    std::size_t count_of_values = 0; // of a key: of what is filed with values
    LinkedList<Values> with_values;
    Values *next = nullptr;
    Values *previous = nullptr;
};

// The hash is the id.
struct DeclarationIndex::FiledDeclaration : Chained, SliceAllocated {
    FiledDeclaration(guint32 id, guint64 order, const inspectable &declaration)
        : Chained(Declaration, id), order(order), declaration(&declaration)
    {
    }
    Match match() const { return {order, declaration, hash, false}; }

    guint64 order;
    const inspectable *declaration;
    FiledValue *first = nullptr;
    FiledDeclaration *next = nullptr;
    FiledDeclaration *previous = nullptr;
};

// What the declarations are taken from, in the end.
class DeclarationIndex::Places {
public:
    void consider(const DeclarationIndex &index, Bucket conditions);
    void add_all(const Places &others);
    void leave_each_once();
    void take(Matches &matches) const;

    // How many declarations there are to take, one that is in several places with each.
    std::size_t count() const { return count_; }
    void note_steps(std::size_t steps) { steps_ += steps; }
    std::size_t steps() const { return steps_; }

private:
    struct Place {
        const Values *values;
        bool with_values; // of a key: those of all its values, too
        auto operator<=>(const Place &) const = default;
    };

    void add(Place place);
    void clear();

    std::vector<Place> places_;
    std::size_t count_ = 0;
    std::size_t steps_ = 0;
};

namespace {

bool is_positive(Bucket conditions)
{
    for (const key_value &condition : conditions)
        if (!condition.negated)
            return true;
    return false;
}

bool wants_any_value(Bucket conditions)
{
    for (const key_value &condition : conditions)
        if (!condition.negated && condition.value_wildcard)
            return true;
    return false;
}

} // namespace

DeclarationIndex::~DeclarationIndex()
{
    clear();
}

DeclarationIndex::FiledDeclaration *DeclarationIndex::find_declaration(guint32 id) const
{
    Chained *at = records_.chain(id);
    while (at && (at->hash != id || at->kind != Declaration))
        at = at->next_in_chain;
    return static_cast<FiledDeclaration *>(at);
}

DeclarationIndex::Values *DeclarationIndex::find_values(Kind kind, const KeyName *key,
                                                        guint32 value) const
{
    guint32 hash = Values::hash_for(kind, key, value);
    for (Chained *at = records_.chain(hash); at; at = at->next_in_chain)
        if (at->hash == hash && at->kind == kind && static_cast<Values *>(at)->key == key)
            return static_cast<Values *>(at);
    return nullptr;
}

DeclarationIndex::Values &DeclarationIndex::values(Kind kind, const KeyName *key, guint32 value,
                                                   Values *of_key)
{
    if (Values *known = find_values(kind, key, value))
        return *known;
    guint32 hash = Values::hash_for(kind, key, value);
    Values &made = *std::make_unique<Values>(kind, hash, key, of_key).release();
    records_.add(made);
    if (of_key)
        of_key->with_values.append(made);
    return made;
}

// What is negated satisfies no positive condition.
void DeclarationIndex::file(FiledDeclaration &declaration, const AndList &content)
{
    for (Bucket bucket : content.keyed()) {
        for (const key_value &present : bucket) {
            if (present.negated)
                continue;
            Values &of_key = values(Key, present.key, 0, nullptr);
            Values &its = present.value_wildcard
                              ? of_key
                              : values(Value, present.key, hash_of(present.value), &of_key);
            if (its.count > 0 && its.filed.last()->owner == &declaration)
                continue; // the same value once more
            declaration.first =
                std::make_unique<FiledValue>(its, declaration, declaration.first).release();
            its.filed.append(*declaration.first);
            ++its.count;
            of_key.count_of_values += its.of_key ? 1 : 0;
        }
    }
}

void DeclarationIndex::add(guint32 id, const inspectable &declaration)
{
    remove(id);
    FiledDeclaration &made =
        *std::make_unique<FiledDeclaration>(id, ++last_order_, declaration).release();
    records_.add(made);
    declarations_.append(made);
    ++declaration_count_;
    for (const AndList &content : declaration.and_lists)
        if (content.wildcards().empty())
            file(made, content);
}

void DeclarationIndex::drop_if_empty(Values &values)
{
    if (values.count > 0 || values.count_of_values > 0)
        return;
    std::unique_ptr<Values> gone(&values);
    if (gone->of_key)
        gone->of_key->with_values.remove(*gone);
    records_.remove(*gone);
}

void DeclarationIndex::take_out(FiledValue &filed)
{
    Values &values = *filed.values;
    Values *of_key = values.of_key;
    values.filed.remove(filed);
    --values.count;
    drop_if_empty(values);
    if (of_key) {
        --of_key->count_of_values;
        drop_if_empty(*of_key);
    }
}

void DeclarationIndex::remove(guint32 id)
{
    std::unique_ptr<FiledDeclaration> gone(find_declaration(id));
    if (!gone)
        return;
    records_.remove(*gone);
    declarations_.remove(*gone);
    --declaration_count_;
    while (std::unique_ptr<FiledValue> filed{gone->first}) {
        gone->first = filed->next_of_owner;
        take_out(*filed);
    }
}

void DeclarationIndex::clear()
{
    while (FiledDeclaration *declaration = declarations_.first())
        remove(declaration->hash);
}

// What is filed under a key is one record for all who have it.
std::size_t DeclarationIndex::most_memory_for(const inspectable &declaration)
{
    const std::size_t of_value = block_size(sizeof(Values)) + HashChains::memory_for_record;
    std::size_t size = block_size(sizeof(FiledDeclaration)) + HashChains::memory_for_record;
    for (const AndList &content : declaration.and_lists)
        for (Bucket bucket : content.keyed())
            for (const key_value &present : bucket)
                size += block_size(sizeof(FiledValue)) + (present.value_wildcard ? 0 : of_value);
    return size;
}

// Whose declarations may satisfy the conditions on one key: those that have it open, and those of
// one of the values, or of any.
void DeclarationIndex::Places::consider(const DeclarationIndex &index, Bucket conditions)
{
    clear();
    const Values *of_key = index.find_values(Key, conditions.key(), 0);
    if (!of_key)
        return;
    if (wants_any_value(conditions)) {
        add({of_key, true});
        return;
    }
    add({of_key, false});
    for (const key_value &condition : conditions)
        if (!condition.negated)
            if (const Values *with =
                    index.find_values(Value, condition.key, hash_of(condition.value)))
                add({with, false});
}

void DeclarationIndex::Places::add(Place place)
{
    places_.push_back(place);
    count_ += place.values->count + (place.with_values ? place.values->count_of_values : 0);
}

void DeclarationIndex::Places::clear()
{
    places_.clear();
    count_ = 0;
}

// Alternatives often want the same.
void DeclarationIndex::Places::add_all(const Places &others)
{
    places_.insert(places_.end(), others.places_.begin(), others.places_.end());
    count_ += others.count_;
}

void DeclarationIndex::Places::leave_each_once()
{
    std::vector<Place> all = std::exchange(places_, {});
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    clear();
    for (const Place &place : all)
        add(place);
}

void DeclarationIndex::Places::take(Matches &matches) const
{
    for (const Place &place : places_) {
        DeclarationIndex::take(*place.values, matches);
        if (!place.with_values)
            continue;
        const Values *with = place.values->with_values.first();
        for (; with; with = with->next)
            DeclarationIndex::take(*with, matches);
    }
}

void DeclarationIndex::take(const Values &values, Matches &matches)
{
    for (const FiledValue *filed = values.filed.first(); filed; filed = filed->next)
        matches.push_back(filed->owner->match());
}

void DeclarationIndex::take_all(Matches &matches) const
{
    for (const FiledDeclaration *one = declarations_.first(); one; one = one->next)
        matches.push_back(one->match());
}

// Adds those of the condition that has fewest declarations; false when any declaration may do.
bool DeclarationIndex::add_places_for(const AndList &alternative, Places &places) const
{
    Places best, its;
    bool has_best = false;
    places.note_steps(1);
    for (Bucket conditions : alternative.keyed()) {
        places.note_steps(conditions.count());
        if (!is_positive(conditions))
            continue;
        its.consider(*this, conditions);
        if (!has_best || its.count() < best.count())
            std::swap(best, its);
        has_best = true;
    }
    places.add_all(best);
    return has_best;
}

// False when looking at all declarations takes no longer.
bool DeclarationIndex::find_places(const inspectable &expression, Places &places) const
{
    for (const AndList &alternative : expression.and_lists)
        if (!add_places_for(alternative, places))
            return false;
    places.leave_each_once();
    return places.count() < declaration_count_;
}

std::size_t DeclarationIndex::find_candidates(const inspectable &expression, Matches &matches) const
{
    matches.clear();
    Places places;
    if (find_places(expression, places))
        places.take(matches);
    else
        take_all(matches);
    places.note_steps(matches.size());
    sort_matches(matches);
    give_back_room(matches);
    return places.steps();
}

void DeclarationIndex::find(const inspectable &expression, Matches &matches) const
{
    find_candidates(expression, matches);
    std::erase_if(matches, [&expression](const Match &match) {
        return !inspectable_contains(match.record, &expression);
    });
}

} // namespace qandor
