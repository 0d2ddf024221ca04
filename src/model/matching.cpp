// SPDX-License-Identifier: LGPL-2.1-or-later

// Whether one inspectable satisfies the conditions of another. Nothing is allocated and nothing is
// marked in the inspectables, so several threads may ask about the same ones at once.

#include "model/inspectable.hpp"

#include "platform/check.hpp"

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

void weigh_condition(Bucket present, const key_value &condition, BucketVerdict &verdict)
{
    if (!present) {
        verdict.take(weigh(nullptr, condition));
        return;
    }
    for (const key_value &container : present) {
        verdict.take(weigh(&container, condition));
        if (verdict.excluded())
            return;
    }
}

[[gnu::noinline]] bool several_are_satisfied(Bucket present, Bucket conditions)
{
    BucketVerdict verdict;
    bool all_negated = true;
    for (const key_value &condition : conditions) {
        weigh_condition(present, condition, verdict);
        if (verdict.excluded())
            return false;
        all_negated = all_negated && condition.negated;
    }
    return verdict.matched() || all_negated;
}

// A condition alone on its key, as most are, against the one key-value that is there.
bool condition_is_satisfied(Bucket present, const key_value &condition)
{
    Verdict verdict = weigh(present ? &present.first() : nullptr, condition);
    return verdict == Verdict::Matched || (verdict != Verdict::Excluded && condition.negated);
}

bool bucket_is_satisfied(const AndList &container, Bucket conditions)
{
    Bucket present = container.find(conditions.key());
    if (conditions.count() == 1 && (!present || present.count() == 1))
        return condition_is_satisfied(present, conditions.first());
    return several_are_satisfied(present, conditions);
}

// How the values of a container meet the key wildcards of one value.
struct Evaluated {
    bool has_value = false;    // some key has exactly the value
    bool has_wildcard = false; // some key has any value
};

Evaluated bucket_evaluate(const AndList &container, const std::string &value)
{
    Evaluated evaluated;
    for (Bucket bucket : container.keyed()) {
        for (const key_value &present : bucket) {
            if (present.negated)
                continue;
            if (present.value_wildcard)
                evaluated.has_wildcard = true;
            else if (present.value == value)
                evaluated.has_value = true;
        }
    }
    return evaluated;
}

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

// Most expressions have none, and should not pay for it.
[[gnu::noinline]] bool wildcards_are_satisfied(const AndList &container, Buckets wildcards)
{
    for (Bucket bucket : wildcards)
        if (!bucket_check_evaluated(bucket, bucket_evaluate(container, bucket.first().value)))
            return false;
    return true;
}

bool and_list_contains(const AndList &container, const AndList &conditions)
{
    if (!container.wildcards().empty())
        return false;
    for (Bucket bucket : conditions.keyed())
        if (!bucket_is_satisfied(container, bucket))
            return false;
    return conditions.wildcards().empty() ||
           wildcards_are_satisfied(container, conditions.wildcards());
}

} // namespace

gboolean inspectable_contains(const inspectable *container, const inspectable *containee)
{
    CHECK(container != NULL);
    CHECK(containee != NULL);
    CHECK_TYPE_IS_VALID(container);
    CHECK_TYPE_IS_VALID(containee);
    for (const AndList &present : container->and_lists)
        for (const AndList &conditions : containee->and_lists)
            if (and_list_contains(present, conditions))
                return TRUE;
    return FALSE;
}

gboolean inspectable_is_complete(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT);
    CHECK_TEXT(inspect->and_lists.size() == 1, "g_list_length(inspect->and_lists) == 1");
    for (Bucket bucket : inspect->current()->keyed())
        if (bucket.first().is_open())
            return FALSE;
    return TRUE;
}
