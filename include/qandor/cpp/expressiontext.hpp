// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Expressions as people write them:
 *
 *     topic0=Device & state!=off | *=critical
 *
 *     key=value  key!=value   the key has the value; lacks it or has another one
 *     key  !key               the key is there; is not there
 *     *=value  *!=value       any key has the value; none has it
 *     space:key...            a key in a name space
 *     &  |                    and; or, which binds less
 *     *                       alone: everything
 *     "a \"text\""            what has odd characters in it, or none; \" and \\ stand for " and \
 *
 * Every expression has a text, and comes back from it as it was.
 */
#pragma once

#include <qandor/cpp/expression.hpp>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace qandor {

/** What is wrong with a text, and the byte at which it goes wrong. */
struct ExpressionFault {
    std::size_t place;
    std::string what;

    /** The text with a mark under the place, and what is wrong, as lines for a terminal. */
    std::string shown(std::string_view text) const
    {
        std::string mark;
        for (char character : text.substr(0, place))
            if ((character & 0xC0) != 0x80) // one column for each character of UTF-8
                mark += character == '\t' ? '\t' : ' ';
        return std::string(text) + "\n" + mark + "^ " + what + "\n";
    }
};

namespace detail {

/** What a word may consist of without quotes; a value may have colons as well. */
inline bool is_plain(char character, bool in_value)
{
    return g_ascii_isalnum(character) || (character & 0x80) ||
           (character != '\0' && std::strchr("_-./+@%,~#$;<>?[]{}^`", character)) ||
           (in_value && character == ':');
}

inline std::string quoted(std::string_view word, bool in_value)
{
    bool plain = !word.empty();
    for (char character : word)
        plain = plain && is_plain(character, in_value);
    if (plain)
        return std::string(word);
    std::string text = "\"";
    for (char character : word) {
        if (character == '"' || character == '\\')
            text += '\\';
        text += character;
    }
    return text + '"';
}

inline std::string to_text(const Condition &condition)
{
    if (!condition.key)
        return (condition.negated ? "*!=" : "*=") + quoted(condition.value.value_or(""), true);
    std::string key = quoted(*condition.key, false);
    if (!condition.name_space.empty())
        key.insert(0, quoted(condition.name_space, false) + ":");
    if (!condition.value)
        return condition.negated ? "!" + key : key;
    return key + (condition.negated ? "!=" : "=") + quoted(*condition.value, true);
}

class ExpressionReader {
public:
    explicit ExpressionReader(std::string_view text) : text_(text) {}

    std::variant<Expression, ExpressionFault> read()
    {
        std::vector<Conditions> alternatives;
        do {
            if (!read_group(alternatives.emplace_back()))
                return *fault_;
        } while (take('|'));
        if (!at_end())
            return ExpressionFault{place_, "expected is '&', '|' or the end"};
        return Expression(std::move(alternatives));
    }

private:
    bool at_end()
    {
        while (place_ < text_.size() && g_ascii_isspace(text_[place_]))
            ++place_;
        return place_ == text_.size();
    }
    bool take(char character)
    {
        if (at_end() || text_[place_] != character)
            return false;
        ++place_;
        return true;
    }
    bool fail(std::size_t place, const char *what)
    {
        fault_ = ExpressionFault{place, what};
        return false;
    }

    bool read_group(Conditions &conditions)
    {
        std::size_t begin = place_;
        if (take('*') && (at_end() || text_[place_] == '|'))
            return true;
        place_ = begin;
        do
            if (!read_condition(conditions))
                return false;
        while (take('&'));
        return true;
    }

    bool read_condition(Conditions &conditions)
    {
        Condition condition;
        bool is_absent = take('!');
        bool is_any = !is_absent && take('*');
        if (!is_any && !read_key(condition))
            return false;
        std::size_t place = place_;
        if (take('!')) {
            condition.negated = true;
            if (place_ == text_.size() || text_[place_] != '=')
                return fail(place, "expected is '!='");
        }
        if (is_absent && take('='))
            return fail(place, "a key that is not there has no value");
        condition.negated = condition.negated || is_absent;
        if (take('=')) {
            condition.value.emplace();
            if (!read_word(*condition.value, true, "expected is a value"))
                return false;
        } else if (is_any) {
            return fail(place, "expected is '=' or '!=' with the value that any key may have");
        }
        conditions.push_back(std::move(condition));
        return true;
    }

    bool read_key(Condition &condition)
    {
        condition.key.emplace();
        if (!read_word(*condition.key, false, "expected is a key"))
            return false;
        if (place_ == text_.size() || text_[place_] != ':')
            return true;
        ++place_;
        condition.name_space = std::exchange(*condition.key, "");
        return read_word(*condition.key, false, "expected is a key in the name space");
    }

    bool read_word(std::string &word, bool in_value, const char *expectation)
    {
        if (at_end())
            return fail(place_, expectation);
        if (text_[place_] == '"')
            return read_quoted(word);
        std::size_t begin = place_;
        while (place_ < text_.size() && is_plain(text_[place_], in_value))
            word += text_[place_++];
        return place_ > begin || fail(place_, expectation);
    }

    bool read_quoted(std::string &word)
    {
        std::size_t begin = place_++;
        for (; place_ < text_.size() && text_[place_] != '"'; ++place_) {
            if (text_[place_] == '\\' && place_ + 1 < text_.size() &&
                std::strchr("\"\\", text_[place_ + 1]))
                ++place_;
            word += text_[place_];
        }
        if (place_ == text_.size())
            return fail(begin, "this quote is not closed");
        ++place_;
        return true;
    }

    std::string_view text_;
    std::size_t place_ = 0;
    std::optional<ExpressionFault> fault_;
};

inline std::optional<std::string> optional_string(const gchar *text)
{
    return text ? std::optional<std::string>(text) : std::nullopt;
}

} // namespace detail

/** The text of an expression. That it is clandestine is not part of it. */
inline std::string to_text(const Expression &expression)
{
    std::string text;
    for (const Conditions &group : expression.alternatives()) {
        if (!text.empty())
            text += " | ";
        std::string conditions;
        for (const Condition &condition : group)
            conditions += (conditions.empty() ? "" : " & ") + detail::to_text(condition);
        text += conditions.empty() ? "*" : conditions;
    }
    return text;
}

/** The expression that a text says. */
inline std::variant<Expression, ExpressionFault> parse_expression(std::string_view text)
{
    return detail::ExpressionReader(text).read();
}

/** The conditions of an expression of the C interface. */
inline Expression expression_of(const ::subscribe_expression *source)
{
    GList *raw = subscribe_expression_get_raw(source);
    std::vector<Conditions> alternatives;
    for (GList *list = g_list_last(raw); list; list = list->prev) {
        Conditions &group = alternatives.emplace_back();
        for (GList *link = g_list_last(static_cast<GList *>(list->data)); link; link = link->prev) {
            const auto *condition = static_cast<const key_value_raw *>(link->data);
            group.push_back({detail::optional_string(condition->key),
                             detail::optional_string(condition->value), condition->negated != FALSE,
                             detail::string_of(condition->name_space)});
        }
    }
    subscribe_expression_free_raw(raw);
    Expression expression(std::move(alternatives));
    return subscribe_expression_get_clandestine(source) ? expression.clandestine() : expression;
}

} // namespace qandor
