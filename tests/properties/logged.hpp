// SPDX-License-Identifier: LGPL-2.1-or-later

// The log lines of one call.
#pragma once

#include "properties/trace.hpp"
#include "support/logcapture.hpp"

namespace qandor::test {

template <class Print> std::vector<std::string> lines_of(const Print &print)
{
    LogCapture capture;
    print();
    return capture.messages();
}

// A call that is to log this warning, or critical, and nothing else.
template <class Call>
auto expecting(GLogLevelFlags level, const std::string &line, const Call &call)
{
    LogCapture capture;
    auto result = call();
    require_same(capture.texts(static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK)), {line}, "log");
    require_same(capture.texts(level).size(), std::size_t(1), "level of '" + line + "'");
    return result;
}

} // namespace qandor::test
