// SPDX-License-Identifier: LGPL-2.1-or-later

// Matching and comparing of two records, held against the naive matcher.

#include "properties/pairs.hpp"

#include "properties/messagesubjects.hpp"

namespace qandor::test {

NaiveInspectable naive(const PlainInspectable &content)
{
    NaiveInspectable made;
    for (const PlainAndList &list : content.and_lists) {
        NaiveAndList &its = made.emplace_back();
        for (const PlainBuckets *buckets : {&list.keyed, &list.wildcards})
            for (const auto &[name, bucket] : *buckets)
                for (const PlainKeyValue &one : bucket)
                    its.push_back({one.key, one.value, one.name_space, one.key_wildcard != 0,
                                   one.value_wildcard != 0, one.negated != 0});
    }
    return made;
}

namespace {

// The messages' own questions, where one is asked with the other.
void check_messages(const Subject &one, const Subject &other, bool is_contained)
{
    const auto *expression = dynamic_cast<const ExpressionSubject *>(&other);
    if (!expression)
        return;
    if (const auto *its = dynamic_cast<const EventSubject *>(&one))
        require_same<long long>(event_contains(its->record(), expression->record()), is_contained,
                                "event contains");
    if (const auto *its = dynamic_cast<const DeclarationSubject *>(&one))
        require_same<long long>(event_declaration_contains(its->record(), expression->record()),
                                is_contained, "declaration contains");
}

void check_single(const KeyValuePair &one, const KeyValuePair &other)
{
    const auto &[real1, plain1] = one;
    const auto &[real2, plain2] = other;
    require_same<long long>(key_value_is_equal(real1, real2), are_equal(plain1, plain2),
                            "key-values are equal");
    if (plain1.key_wildcard || plain2.key_wildcard)
        return; // fatal
    bool excluded = false, matched = false;
    NaiveKeyValue container{
        plain1.key,         plain1.value, plain1.name_space, false, plain1.value_wildcard != 0,
        plain1.negated != 0};
    NaiveKeyValue condition{
        plain2.key,         plain2.value, plain2.name_space, false, plain2.value_wildcard != 0,
        plain2.negated != 0};
    naive_contained(&container, condition, excluded, matched);
    // On its own, a value that differs excludes.
    bool is_positive = !plain1.negated && !plain2.negated;
    gboolean is_excluded = FALSE, is_matched = FALSE;
    key_value_is_contained(real1, real2, &is_excluded, &is_matched);
    require_same<long long>(is_matched, matched, "matched");
    require_same<long long>(is_excluded, excluded || (is_positive && !matched), "excluded");
}

} // namespace

void check_pair(const Subject &one, const Subject &other)
{
    if (one.single() && other.single()) {
        check_single(*one.single(), *other.single());
        return;
    }
    if (!one.content() || !other.content())
        return;
    bool is_contained = naive_contains(naive(*one.plain_content()), naive(*other.plain_content()));
    require_same<long long>(inspectable_contains(one.content(), other.content()), is_contained,
                            one.name() + " contains " + other.name());
    require_same<long long>(inspectable_is_equal(one.content(), other.content()),
                            are_equal(*one.plain_content(), *other.plain_content()),
                            one.name() + " equals " + other.name());
    check_messages(one, other, is_contained);
}

} // namespace qandor::test
