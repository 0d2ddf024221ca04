// SPDX-License-Identifier: LGPL-2.1-or-later

// Expressions as people write them: what is read is written and read again as it was, through the C
// interface too; what is not is told with a place in the text.

#include "fuzz/target.hpp"

#include <qandor/qandor.hpp>

using namespace qandor;
using namespace qandor::fuzz;

namespace {

// What the C interface cannot say: an expression is refused, or comes back with conditions ordered
// by their keys and the key's own name space.
void use_c_interface(const Expression &expression)
{
    auto built = expression.try_build();
    if (!built)
        return;
    Expression first = expression_of(built.value().c());
    std::string text = to_text(first);
    auto again = parse_expression(text);
    must(std::holds_alternative<Expression>(again), "the text of a built expression is read");
    must(std::get<Expression>(again) == first, "a built expression comes back from its text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    std::string_view text(reinterpret_cast<const char *>(bytes), size);
    auto read = parse_expression(text);
    if (const auto *fault = std::get_if<ExpressionFault>(&read)) {
        must(fault->place <= size, "a fault lies in the text");
        must(!fault->shown(text).empty(), "a fault is shown");
        return 0;
    }
    const auto &expression = std::get<Expression>(read);
    auto again = parse_expression(to_text(expression));
    must(std::holds_alternative<Expression>(again), "what was written is read");
    must(std::get<Expression>(again) == expression, "what was read comes back from its text");
    if (text.find('\0') == std::string_view::npos)
        use_c_interface(expression);
    return 0;
}
