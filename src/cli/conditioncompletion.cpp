// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/conditioncompletion.hpp"

#include "cli/describe.hpp"

#include <algorithm>
#include <map>

namespace qandor::cli {
namespace {

// Where the last condition of a text begins, and where the group of conditions does that it is in.
struct Places {
    std::size_t group = 0;
    std::size_t condition = 0;
};

Places places_in(const std::string &text)
{
    Places places;
    bool is_quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (is_quoted && text[i] == '\\')
            ++i;
        else if (text[i] == '"')
            is_quoted = !is_quoted;
        else if (!is_quoted && (text[i] == '&' || text[i] == '|'))
            places.condition = i + 1;
        if (!is_quoted && i < text.size() && text[i] == '|')
            places.group = i + 1;
    }
    std::size_t first = text.find_first_not_of(' ', places.condition);
    places.condition = std::min(first, text.size());
    return places;
}

// What the conditions before the last one of its group leave.
bool is_left(const Declaration &declaration, const std::string &before)
{
    auto parsed = parse_expression(before);
    const auto *expression = std::get_if<Expression>(&parsed);
    return !expression || !expression->try_build() || declaration.matches(*expression);
}

class OfferedConditions {
public:
    explicit OfferedConditions(std::string begun) : begun_(std::move(begun)) {}

    void offer(const KeyView &key)
    {
        std::string about = key.nice_name.empty() ? type_name(key.type) : key.nice_name;
        bool has_space = begun_.find(':') != std::string::npos;
        std::string space = has_space ? key.name_space : "";
        if (begun_.find('=') == std::string::npos)
            return offer_key({key.key, std::nullopt, begun_.starts_with('!'), space}, about);
        bool is_negated = begun_.find("!=") != std::string::npos;
        for (const std::string &value : values_of(key)) {
            offer({key.key, value, is_negated, space}, about);
            offer({std::nullopt, value, is_negated}, "");
        }
    }

    Candidates candidates(const std::string &before) const
    {
        Candidates candidates;
        for (const auto &[word, about] : found_)
            candidates.push_back({before + word, about});
        return candidates;
    }

private:
    static std::vector<std::string> values_of(const KeyView &key)
    {
        if (key.has_value)
            return {key.value};
        if (key.type == VALUE_TYPE_BOOL)
            return {"0", "1"};
        return {};
    }

    void offer_key(const Condition &condition, const std::string &about)
    {
        offer_text(to_text(condition) + (condition.negated ? "" : "="), about);
    }
    void offer(const Condition &condition, const std::string &about)
    {
        offer_text(to_text(condition), about);
    }
    void offer_text(const std::string &text, const std::string &about)
    {
        if (text.starts_with(begun_))
            found_.emplace(text, about);
    }

    std::string begun_;
    std::map<std::string, std::string> found_;
};

} // namespace

Candidates complete_condition(const std::string &text, const std::vector<Declaration> &declarations)
{
    Places places = places_in(text);
    std::string before = text.substr(places.group, places.condition - places.group);
    std::size_t joined = before.rfind('&');
    before.resize(joined == std::string::npos ? 0 : joined);
    OfferedConditions conditions(text.substr(places.condition));
    for (const Declaration &declaration : declarations)
        if (before.empty() || is_left(declaration, before))
            for (const KeyView &key : keys_of(declaration.sample()))
                conditions.offer(key);
    return conditions.candidates(text.substr(0, places.condition));
}

} // namespace qandor::cli
