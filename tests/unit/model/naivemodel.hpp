// SPDX-License-Identifier: LGPL-2.1-or-later

// The matching rules a second time, as plainly as they can be written down, to hold the library
// against.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace qandor::test {

struct NaiveKeyValue {
    std::string key; // "" for a key wildcard
    std::string value;
    std::string name_space;
    bool key_wildcard = false;
    bool value_wildcard = false;
    bool negated = false;
    bool operator==(const NaiveKeyValue &) const = default;
};

using NaiveAndList = std::vector<NaiveKeyValue>;
using NaiveInspectable = std::vector<NaiveAndList>;

inline void naive_contained(const NaiveKeyValue *p, const NaiveKeyValue &n, bool &excluded,
                            bool &matched)
{
    if (!p) {
        if (!n.negated)
            excluded = true;
        return;
    }
    if (!n.name_space.empty() && p->name_space != n.name_space) {
        excluded = true;
        return;
    }
    if (p->negated && n.negated)
        return;
    if (!p->negated && !n.negated) {
        if (p->value_wildcard || n.value_wildcard || p->value == n.value)
            matched = true;
        return; // a differing value is no veto for its neighbours
    }
    const NaiveKeyValue &negative = p->negated ? *p : n;
    const NaiveKeyValue &positive = p->negated ? n : *p;
    if (negative.value_wildcard)
        excluded = true;
    else if (!positive.value_wildcard && positive.value == negative.value)
        excluded = true;
}

inline bool naive_pair(const NaiveAndList &a, const NaiveAndList &b)
{
    for (const NaiveKeyValue &present : a)
        if (present.key_wildcard)
            return false;

    std::map<std::string, std::vector<NaiveKeyValue>> buckets;
    for (const NaiveKeyValue &condition : b)
        if (!condition.key_wildcard)
            buckets[condition.key].push_back(condition);
    for (const auto &[key, conditions] : buckets) {
        bool excluded = false, matched = false, all_negated = true, found = false;
        for (const NaiveKeyValue &condition : conditions) {
            all_negated = all_negated && condition.negated;
            for (const NaiveKeyValue &present : a) {
                if (present.key != key)
                    continue;
                found = true;
                naive_contained(&present, condition, excluded, matched);
            }
            if (!found)
                naive_contained(nullptr, condition, excluded, matched);
        }
        if (excluded || (!matched && !all_negated))
            return false;
    }

    for (const NaiveKeyValue &condition : b) {
        if (!condition.key_wildcard)
            continue;
        bool evaluated = false;
        for (const NaiveKeyValue &present : a) {
            if (present.negated)
                continue;
            if (present.value_wildcard)
                evaluated = evaluated || !condition.negated;
            else
                evaluated = evaluated || present.value == condition.value;
        }
        if (evaluated == condition.negated)
            return false;
    }
    return true;
}

inline bool naive_contains(const NaiveInspectable &container, const NaiveInspectable &containee)
{
    for (const NaiveAndList &a : container)
        for (const NaiveAndList &b : containee)
            if (naive_pair(a, b))
                return true;
    return false;
}

// Lists that hold the same elements in any order.
template <class Element, class AreEqual>
bool naive_same(std::vector<Element> one, std::vector<Element> other, AreEqual are_equal)
{
    if (one.size() != other.size())
        return false;
    for (const Element &element : one) {
        std::size_t i = 0;
        while (i < other.size() && !are_equal(element, other[i]))
            ++i;
        if (i == other.size())
            return false;
        other.erase(other.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return true;
}

inline bool naive_equal(const NaiveInspectable &one, const NaiveInspectable &other)
{
    return naive_same(one, other, [](const NaiveAndList &a, const NaiveAndList &b) {
        return naive_same(a, b,
                          [](const NaiveKeyValue &x, const NaiveKeyValue &y) { return x == y; });
    });
}

} // namespace qandor::test
