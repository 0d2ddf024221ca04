// SPDX-License-Identifier: LGPL-2.1-or-later

// The one critical that a call with a wrong argument logs.
#pragma once

#include "support/logcapture.hpp"

#include <string>

namespace qandor::test {

template <class Call> std::string critical_of(Call call)
{
    LogCapture log;
    call();
    std::vector<std::string> criticals = log.criticals();
    return criticals.size() == 1 ? criticals.front()
                                 : std::to_string(criticals.size()) + " criticals";
}

inline std::string refusal(const std::string &function, const std::string &condition)
{
    return function + ": assertion '" + condition + "' failed";
}

} // namespace qandor::test

// Expects that a function returns what it must and names itself and the condition. The arguments
// stand in parentheses.
#define EXPECT_REFUSAL(function, arguments, expected, condition)                                   \
    EXPECT_EQ(qandor::test::critical_of([&] { EXPECT_EQ(function arguments, expected); }),         \
              qandor::test::refusal(#function, condition))

// The same for a function that returns nothing.
#define EXPECT_VOID_REFUSAL(function, arguments, condition)                                        \
    EXPECT_EQ(qandor::test::critical_of([&] { function arguments; }),                              \
              qandor::test::refusal(#function, condition))
