// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/declaring.hpp"

#include "cli/describe.hpp"

namespace qandor::cli {
namespace {

constexpr double declaring_seconds = 30;

} // namespace

bool can_be_declared(const Declaration &declaration)
{
    return declaration.is_internal() || declaration.sample().has("topic0");
}

std::vector<Publication> declare_and_wait(EventProducer &producer, MainLoop &loop,
                                          const std::vector<Declaration> &declarations)
{
    std::vector<Publication> publications;
    publications.reserve(declarations.size());
    auto unknown = std::make_shared<std::size_t>(declarations.size());
    for (const Declaration &declaration : declarations)
        publications.push_back(producer.declare(declaration, [&loop, unknown] {
            if (--*unknown == 0)
                loop.quit();
        }));
    if (declarations.empty() || loop.run(declaring_seconds))
        return publications;
    if (loop.is_interrupted())
        return {};
    std::string count = counted(*unknown, "declaration", "declarations");
    throw Failure(EX_TEMPFAIL, "The switch does not make " + count + " known",
                  "'qandor status' shows the limits in use.");
}

} // namespace qandor::cli
