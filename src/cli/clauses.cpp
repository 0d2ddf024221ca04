// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/clauses.hpp"

#include "cli/describe.hpp"
#include "cli/terminal.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

std::string found_value(const KeyView &key)
{
    std::string space = key.name_space.empty() ? "" : printable(key.name_space) + ":";
    std::string name = space + printable(key.key);
    return key.has_value ? name + "=" + printable_word(key.value)
                         : name + ", which is open and may become anything";
}

// About any key: under which one the value is.
std::string why_any(const Condition &condition, const std::vector<KeyView> &keys)
{
    for (const KeyView &key : keys)
        if (key.has_value && key.value == condition.value)
            return "there is " + found_value(key);
    for (const KeyView &key : keys)
        if (!key.has_value)
            return "there is " + found_value(key);
    return "no key has this value";
}

std::string why(const Conditions &conditions, const std::vector<KeyView> &keys)
{
    const Condition &first = conditions[0];
    if (!first.key)
        return why_any(first, keys);
    auto key = std::find_if(keys.begin(), keys.end(),
                            [&](const KeyView &one) { return one.key == *first.key; });
    if (key == keys.end())
        return "there is no key '" + printable(*first.key) + "'";
    for (const Condition &condition : conditions)
        if (!condition.name_space.empty() && condition.name_space != key->name_space)
            return "there is " + found_value(*key) + ": another name space";
    return "there is " + found_value(*key);
}

} // namespace

Subject subject_of(const Event &event)
{
    std::vector<KeyView> keys = keys_of(event);
    return {"event " + topic_path(keys),
            keys,
            [event](const Expression &expression) { return event.matches(expression); },
            {{"topics", topic_path(keys)}}};
}

Subject subject_of(const Declaration &declaration)
{
    std::vector<KeyView> keys = keys_of(declaration.sample());
    std::string id = declaration.global_id() ? " " + std::to_string(declaration.global_id()) : "";
    return {"declaration" + id + " " + topic_path(keys),
            keys,
            [declaration](const Expression &expression) { return declaration.matches(expression); },
            {{"topics", topic_path(keys)}, {"declaration", declaration.global_id()}}};
}

Expression expression_of(const Conditions &conditions)
{
    return Expression(std::vector<Conditions>{conditions});
}

std::vector<Clause> clauses_of(const Conditions &group, const Subject &subject)
{
    std::vector<Clause> clauses;
    for (const Condition &condition : group) {
        auto same = std::find_if(clauses.begin(), clauses.end(), [&](const Clause &clause) {
            return condition.key && clause.conditions[0].key == condition.key;
        });
        if (same == clauses.end())
            clauses.push_back({{condition}, false, ""});
        else
            same->conditions.push_back(condition);
    }
    for (Clause &clause : clauses) {
        clause.holds = subject.matches(expression_of(clause.conditions));
        clause.why = why(clause.conditions, subject.keys);
    }
    return clauses;
}

} // namespace qandor::cli
