// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Expressions as they are said:
 *
 *     key("topic0") == "Device" && key("state") != "off"
 *     key("load").in("com.vemo.device").exists() || any_key == "critical"
 *
 * Conditions on values compare texts; numbers and truth values are written as events carry them.
 * `!=` also holds for an event without the key. Several `==` on one key, joined by &&, are
 * alternatives to one another: that is how a group of conditions works, see docs/matching.md.
 */
#pragma once

#include <qandor/cpp/record.hpp>
#include <qandor/cpp/value.hpp>
#include <qandor/subscribeexpression.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qandor {

/** One condition on a key and its value. */
struct Condition {
    std::optional<std::string> key;   // nothing: any key
    std::optional<std::string> value; // nothing: any value
    bool negated = false;
    std::string name_space = {}; // "": any

    bool operator==(const Condition &) const = default;
};

/** Conditions that hold together. */
using Conditions = std::vector<Condition>;

class Expression {
public:
    /** What every event satisfies. */
    Expression() : alternatives_(1) {}
    Expression(Condition condition) : alternatives_{{std::move(condition)}} {}
    /** Alternatives, of which there is at least one. */
    explicit Expression(std::vector<Conditions> alternatives)
        : alternatives_(std::move(alternatives))
    {
    }

    const std::vector<Conditions> &alternatives() const { return alternatives_; }
    bool is_clandestine() const { return clandestine_; }

    /** The same for a subscription that does not count as a subscriber. */
    Expression clandestine() const
    {
        Expression hidden = *this;
        hidden.clandestine_ = true;
        return hidden;
    }

    /** Distributes over the alternatives of both, of which the product's number comes out. */
    friend Expression operator&&(const Expression &one, const Expression &other)
    {
        std::vector<Conditions> product;
        for (const Conditions &first : one.alternatives_) {
            for (const Conditions &second : other.alternatives_) {
                Conditions both = first;
                both.insert(both.end(), second.begin(), second.end());
                product.push_back(std::move(both));
            }
        }
        return joined(std::move(product), one, other);
    }
    friend Expression operator||(const Expression &one, const Expression &other)
    {
        std::vector<Conditions> sum = one.alternatives_;
        sum.insert(sum.end(), other.alternatives_.begin(), other.alternatives_.end());
        return joined(std::move(sum), one, other);
    }

    bool operator==(const Expression &) const = default;

    using C = detail::Record<::subscribe_expression, subscribe_expression_copy,
                             subscribe_expression_free>;

    /**
     * The expression for functions of the C interface. An Error when two conditions on one key in
     * one group both want a name space, which the C interface cannot say.
     */
    Result<C> try_build() const
    {
        C made(subscribe_expression_new_full(clandestine_));
        for (std::size_t i = 0; i < alternatives_.size(); ++i) {
            if (i > 0)
                subscribe_expression_or(made.c());
            Conditions conditions = alternatives_[i];
            // A name space is set on the first condition of its key.
            std::stable_partition(conditions.begin(), conditions.end(), has_name_space);
            for (const Condition &condition : conditions)
                if (Result<void> added = add(made.c(), conditions, condition); !added)
                    return added.error();
        }
        return made;
    }
    C build() const { return try_build().value(); }

private:
    static bool has_name_space(const Condition &condition) { return !condition.name_space.empty(); }

    static Expression joined(std::vector<Conditions> alternatives, const Expression &one,
                             const Expression &other)
    {
        Expression made(std::move(alternatives));
        made.clandestine_ = one.clandestine_ || other.clandestine_;
        return made;
    }

    static Result<void> add(::subscribe_expression *to, const Conditions &group,
                            const Condition &condition)
    {
        const char *key = condition.key ? condition.key->c_str() : nullptr;
        const char *value = condition.value ? condition.value->c_str() : nullptr;
        if (!key && !value)
            return detail::usage_error("A condition names neither a key nor a value");
        if (!key)
            condition.negated ? subscribe_expression_add_not_value(to, value)
                              : subscribe_expression_add_value(to, value);
        else if (!value)
            condition.negated ? subscribe_expression_add_not_key(to, key)
                              : subscribe_expression_add_key(to, key);
        else
            condition.negated ? subscribe_expression_add_key_not_value(to, key, value)
                              : subscribe_expression_add_key_value(to, key, value);
        if (condition.name_space.empty())
            return {};
        if (!key)
            return detail::usage_error("A name space goes with a key");
        auto same = [&](const Condition &other) {
            return has_name_space(other) && other.key == condition.key;
        };
        if (std::count_if(group.begin(), group.end(), same) > 1)
            return detail::usage_error("Two conditions on the key '" + *condition.key +
                                       "' in one group have a name space");
        subscribe_expression_set_name_space(to, key, condition.name_space.c_str());
        return {};
    }

    std::vector<Conditions> alternatives_;
    bool clandestine_ = false;
};

/** A key to make conditions from. */
class Key {
public:
    explicit Key(std::string name) : name_(std::move(name)) {}

    /** The same key in a name space. */
    Key in(std::string name_space) const
    {
        Key key = *this;
        key.name_space_ = std::move(name_space);
        return key;
    }

    /** The event has the key, with any value. */
    Expression exists() const { return Condition{name_, std::nullopt, false, name_space_}; }
    /** The event does not have the key. */
    Expression is_absent() const { return Condition{name_, std::nullopt, true, name_space_}; }

    template <EventValue T> friend Expression operator==(const Key &key, const T &value)
    {
        return Condition{key.name_, detail::text_of(value), false, key.name_space_};
    }
    template <EventValue T> friend Expression operator!=(const Key &key, const T &value)
    {
        return Condition{key.name_, detail::text_of(value), true, key.name_space_};
    }

private:
    std::string name_;
    std::string name_space_;
};

inline Key key(std::string name)
{
    return Key(std::move(name));
}

/** Any key: the event has, or has not, a value whatever its key is. */
struct AnyKey {
    template <EventValue T> friend Expression operator==(AnyKey, const T &value)
    {
        return Condition{std::nullopt, detail::text_of(value), false};
    }
    template <EventValue T> friend Expression operator!=(AnyKey, const T &value)
    {
        return Condition{std::nullopt, detail::text_of(value), true};
    }
};
inline constexpr AnyKey any_key;

} // namespace qandor
