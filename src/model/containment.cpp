// SPDX-License-Identifier: LGPL-2.1-or-later

// What is not ordinary about matching: several conditions or values of a key, and key wildcards.
// Where a container has many values, and there are many conditions on them, tables keep the work
// linear in both.

#include "model/inspectable.hpp"
#include "model/matching.hpp"
#include "model/matchingrules.hpp"
#include "model/valuetable.hpp"

#include <unordered_map>

using namespace qandor;

namespace {

// What all conditions on one key come to. Within a bucket they are alternatives for a match, while
// any one that excludes is a veto.
class BucketVerdict {
public:
    void take(Verdict verdict)
    {
        excluded_ = excluded_ || verdict == Verdict::Excluded;
        matched_ = matched_ || verdict == Verdict::Matched;
    }
    bool excluded() const { return excluded_; }
    bool matched() const { return matched_; }

private:
    bool excluded_ = false;
    bool matched_ = false;
};

// How the values of a container meet the key wildcards of one value.
struct Evaluated {
    bool has_value = false;    // some key has exactly the value
    bool has_wildcard = false; // some key has any value
};

Evaluated bucket_evaluate(const AndList &container, std::string_view value)
{
    Evaluated evaluated;
    for (Bucket bucket : container.keyed()) {
        for (const key_value &present : bucket) {
            if (present.negated)
                continue;
            if (present.value_wildcard)
                evaluated.has_wildcard = true;
            else if (are_same_bytes(present.value, value))
                evaluated.has_value = true;
        }
    }
    return evaluated;
}

} // namespace

// The same of all values at once.
class qandor::AnyKeyValues {
public:
    explicit AnyKeyValues(const AndList &container)
    {
        for (Bucket bucket : container.keyed())
            for (const key_value &present : bucket)
                if (!present.negated)
                    add(present);
    }
    Evaluated evaluate(std::string_view value) const
    {
        Evaluated evaluated{.has_wildcard = has_wildcard_};
        table_.for_each_of(value, [&](const key_value &) { evaluated.has_value = true; });
        return evaluated;
    }

private:
    void add(const key_value &present)
    {
        if (present.value_wildcard)
            has_wildcard_ = true;
        else
            table_.add(present);
    }

    ValueTable table_;
    bool has_wildcard_ = false;
};

namespace {

// A key of any value stands in for a condition's value, but does not break a negated condition.
bool bucket_check_evaluated(Bucket conditions, Evaluated evaluated)
{
    for (const key_value &condition : conditions) {
        bool holds = condition.negated ? !evaluated.has_value
                                       : evaluated.has_value || evaluated.has_wildcard;
        if (!holds)
            return false;
    }
    return true;
}

std::size_t count_values(const AndList &container)
{
    std::size_t count = 0;
    for (Bucket bucket : container.keyed())
        count += bucket.count();
    return count;
}

} // namespace

struct Containment::Tables {
    std::unordered_map<const key_value *, BucketValues> of_keys; // by the first of the bucket
    std::unordered_map<const AndList *, AnyKeyValues> of_any_key;
};

void Containment::DropTables::operator()(Tables *tables) const
{
    std::default_delete<Tables>()(tables);
}

Containment::Tables &Containment::tables()
{
    if (!tables_)
        tables_.reset(std::make_unique<Tables>().release());
    return *tables_;
}

// A few values are compared with every condition, and many with the first few conditions: a table
// is dear to make.
bool Containment::is_worth_a_table(std::size_t values, std::size_t conditions)
{
    constexpr std::size_t few = 8, enough = 512;
    std::size_t comparisons = values * conditions;
    if (values > few && comparisons_ + comparisons > enough)
        return true;
    comparisons_ += comparisons;
    return false;
}

// NULL while it is better to look at each.
const BucketValues *Containment::values_of(Bucket present, std::size_t conditions)
{
    if (!is_worth_a_table(present.count(), conditions))
        return nullptr;
    return &tables().of_keys.try_emplace(&present.first(), present).first->second;
}

bool Containment::has_exactly(Bucket bucket, std::string_view value)
{
    bool is_there = false;
    auto note = [&](const key_value &one) {
        is_there = is_there || (!one.negated && !one.value_wildcard && one.value == value);
    };
    if (const BucketValues *values = values_of(bucket, 1))
        values->for_each_of(value, note);
    else
        for (const key_value &one : bucket)
            note(one);
    return is_there;
}

bool Containment::several_are_satisfied(Bucket present, Bucket conditions)
{
    BucketVerdict verdict;
    const BucketValues *values = present ? values_of(present, conditions.count()) : nullptr;
    bool all_negated = true;
    for (const key_value &condition : conditions) {
        auto take = [&](const key_value &one) { verdict.take(weigh(&one, condition)); };
        if (!present)
            verdict.take(weigh(nullptr, condition));
        else if (values)
            values->for_each_that_counts(condition, take);
        else
            for (const key_value &one : present)
                take(one);
        if (verdict.excluded())
            return false;
        all_negated = all_negated && condition.negated;
    }
    return verdict.matched() || all_negated;
}

// NULL while it is better to look at each.
const AnyKeyValues *Containment::values_of_any_key(const AndList &present, std::size_t conditions)
{
    if (tables_)
        if (auto known = tables_->of_any_key.find(&present); known != tables_->of_any_key.end())
            return &known->second;
    if (!is_worth_a_table(count_values(present), conditions))
        return nullptr;
    return &tables().of_any_key.try_emplace(&present, present).first->second;
}

bool Containment::has_exactly(const AndList &present, std::string_view value)
{
    const AnyKeyValues *values = values_of_any_key(present, 1);
    return (values ? values->evaluate(value) : bucket_evaluate(present, value)).has_value;
}

bool Containment::wildcards_are_satisfied(const AndList &present, Buckets wildcards)
{
    const AnyKeyValues *values = values_of_any_key(present, wildcards.size());
    for (Bucket bucket : wildcards) {
        std::string_view value = bucket.first().value;
        Evaluated evaluated = values ? values->evaluate(value) : bucket_evaluate(present, value);
        if (!bucket_check_evaluated(bucket, evaluated))
            return false;
    }
    return true;
}

namespace {

struct Everything {
    Answer weigh(Bucket present, Bucket conditions)
    {
        return answer(containment.several_are_satisfied(present, conditions));
    }
    Answer weigh(const AndList &present, Buckets wildcards)
    {
        return answer(containment.wildcards_are_satisfied(present, wildcards));
    }

    Containment &containment;
};

} // namespace

bool Containment::satisfies(const inspectable &expression)
{
    return weigh(container_, expression, Everything{*this}) == Answer::Yes;
}
