// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/expressions.hpp"

#include "cli/failure.hpp"
#include "cli/terminal.hpp"

namespace qandor::cli {

Expression parse_argument(const std::string &text)
{
    auto parsed = parse_expression(text);
    if (const auto *fault = std::get_if<ExpressionFault>(&parsed)) {
        // The mark stands under its place also where characters are replaced by what can be shown.
        std::string before = printable(std::string_view(text).substr(0, fault->place));
        std::string shown = before + printable(std::string_view(text).substr(fault->place));
        throw Failure(EX_USAGE, "This is no expression:",
                      ExpressionFault{before.size(), fault->what}.shown(shown) +
                          "See 'qandor help expressions'.");
    }
    auto expression = std::get<Expression>(std::move(parsed));
    if (auto built = expression.try_build(); !built)
        throw Failure(EX_USAGE, built.error().message(), "See 'qandor help expressions'.");
    return expression;
}

Expression any_of(const std::vector<std::string> &texts)
{
    if (texts.empty())
        return {};
    Expression sum = parse_argument(texts[0]);
    for (std::size_t i = 1; i < texts.size(); ++i)
        sum = sum || parse_argument(texts[i]);
    return sum;
}

} // namespace qandor::cli
