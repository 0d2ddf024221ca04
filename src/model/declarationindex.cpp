// SPDX-License-Identifier: LGPL-2.1-or-later

#include "model/declarationindex.hpp"

#include "model/andlists.hpp"
#include "model/footprint.hpp"
#include "model/inspectable.hpp"
#include "model/keyedhash.hpp"

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

std::size_t DeclarationIndex::most_memory_for(const inspectable &declaration)
{
    const std::size_t of_value =
        block_size(sizeof(FiledValue)) + block_size(sizeof(Values)) + HashChains::memory_for_record;
    const std::size_t of_key = block_size(sizeof(Values)) + HashChains::memory_for_record;
    std::size_t size = block_size(sizeof(FiledDeclaration)) + HashChains::memory_for_record;
    for (const AndList &content : declaration.and_lists)
        for (Bucket bucket : content.keyed())
            size += of_key + bucket.count() * of_value;
    return size;
}

// How many declarations have a value for the conditions on one key, or may get one.
std::size_t DeclarationIndex::count(Bucket conditions) const
{
    const Values *of_key = find_values(Key, conditions.key(), 0);
    if (!of_key)
        return 0;
    if (wants_any_value(conditions))
        return of_key->count + of_key->count_of_values;
    std::size_t count = of_key->count;
    for (const key_value &condition : conditions)
        if (!condition.negated)
            if (const Values *with = find_values(Value, condition.key, hash_of(condition.value)))
                count += with->count;
    return count;
}

void DeclarationIndex::take(const Values &values, Matches &matches)
{
    for (const FiledValue *filed = values.filed.first(); filed; filed = filed->next)
        matches.push_back(filed->owner->match());
}

void DeclarationIndex::take(Bucket conditions, Matches &matches) const
{
    const Values *of_key = find_values(Key, conditions.key(), 0);
    if (!of_key)
        return;
    take(*of_key, matches);
    if (wants_any_value(conditions)) {
        for (const Values *with = of_key->with_values.first(); with; with = with->next)
            take(*with, matches);
        return;
    }
    for (const key_value &condition : conditions)
        if (!condition.negated)
            if (const Values *with = find_values(Value, condition.key, hash_of(condition.value)))
                take(*with, matches);
}

void DeclarationIndex::take_all(Matches &matches) const
{
    for (const FiledDeclaration *one = declarations_.first(); one; one = one->next)
        matches.push_back(one->match());
}

void DeclarationIndex::take_for(const AndList &alternative, Matches &matches) const
{
    Bucket best(nullptr);
    std::size_t fewest = 0;
    for (Bucket conditions : alternative.keyed()) {
        if (!is_positive(conditions))
            continue;
        std::size_t its_count = count(conditions);
        if (!best || its_count < fewest) {
            best = conditions;
            fewest = its_count;
        }
    }
    if (best)
        take(best, matches);
    else
        take_all(matches);
}

void DeclarationIndex::find(const inspectable &expression, Matches &matches) const
{
    matches.clear();
    for (const AndList &alternative : expression.and_lists)
        take_for(alternative, matches);
    sort_matches(matches);
    std::erase_if(matches, [&expression](const Match &match) {
        return !inspectable_contains(match.record, &expression);
    });
}

} // namespace qandor
