// SPDX-License-Identifier: LGPL-2.1-or-later

// What declarations, events and subscriptions of the simulation say, so plain that the test sees by
// itself what matches.
//
// A declaration has the keys "who" (its own name), "b" (a fixed value) and "a" and "n" (open: a
// value, and the number of the event).
#pragma once

#include "simulation/random.hpp"
#include "support/records.hpp"

#include <optional>
#include <string>
#include <vector>

namespace qandor::simulation {

struct Values {
    std::string who, b;
    std::optional<std::string> a; // open in a declaration

    std::optional<std::string> of(const std::string &key) const
    {
        return key == "who" ? who : key == "b" ? b : a;
    }
};

class Wanted {
public:
    static Wanted choose(Random &random, const std::vector<std::string> &names)
    {
        Wanted wanted;
        for (std::size_t i = 1 + random.below(2); i > 0; --i)
            wanted.alternatives_.push_back(choose_alternative(random, names));
        // The switch refuses several alternatives that have no condition.
        if (wanted.alternatives_.front().empty())
            wanted.alternatives_.resize(1);
        return wanted;
    }
    static Wanted everything()
    {
        Wanted wanted;
        wanted.alternatives_.emplace_back();
        return wanted;
    }

    test::Owned<subscribe_expression> expression() const
    {
        test::Owned<subscribe_expression> made(subscribe_expression_new());
        for (const Alternative &alternative : alternatives_) {
            if (&alternative != &alternatives_.front())
                subscribe_expression_or(made.get());
            for (const Condition &condition : alternative)
                add(made.get(), condition);
        }
        return made;
    }

    bool holds_for(const Values &values) const
    {
        for (const Alternative &alternative : alternatives_)
            if (holds(alternative, values))
                return true;
        return false;
    }

private:
    struct Condition {
        std::string key;
        std::optional<std::string> value; // any, when it is missing
        bool negated;
    };
    using Alternative = std::vector<Condition>; // conditions on different keys

    static Alternative choose_alternative(Random &random, const std::vector<std::string> &names)
    {
        Alternative alternative;
        if (random.one_in(3) && !names.empty())
            alternative.push_back({"who", names[random.below(names.size())], random.one_in(4)});
        for (const char *key : {"a", "b"}) {
            if (random.one_in(2))
                continue;
            Condition condition{key, std::nullopt, false};
            if (!random.one_in(4)) {
                condition.value = std::to_string(random.below(3));
                condition.negated = random.one_in(4);
            }
            alternative.push_back(condition);
        }
        return alternative;
    }

    static void add(subscribe_expression *expression, const Condition &condition)
    {
        const char *key = condition.key.c_str();
        if (!condition.value)
            subscribe_expression_add_key(expression, key);
        else if (condition.negated)
            subscribe_expression_add_key_not_value(expression, key, condition.value->c_str());
        else
            subscribe_expression_add_key_value(expression, key, condition.value->c_str());
    }

    // What is open may get any value.
    static bool holds(const Alternative &alternative, const Values &values)
    {
        for (const Condition &condition : alternative) {
            std::optional<std::string> value = values.of(condition.key);
            if (condition.value && value && (*value == *condition.value) == condition.negated)
                return false;
        }
        return true;
    }

    std::vector<Alternative> alternatives_;
};

} // namespace qandor::simulation
