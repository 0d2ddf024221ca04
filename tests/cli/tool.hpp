// SPDX-License-Identifier: LGPL-2.1-or-later

// Runs the command-line tool as a user does, on a terminal of 80 columns that is none: its exit
// code, what it says, and whether that fits.
#pragma once

#include "support/childprocess.hpp"

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace qandor::test {

struct ToolRun {
    int code = 0; // minus the signal that ended it
    std::string out;
    std::string err;

    // The output parsed back; of --json lines the one with the number.
    nlohmann::json json() const { return nlohmann::json::parse(out); }
    nlohmann::json json_line(std::size_t number) const;
    // The longest line of both, in columns.
    std::size_t width() const;
};
std::ostream &operator<<(std::ostream &stream, const ToolRun &run);

// Runs the tool to its end, with an input. One that takes more than a minute is ended.
ToolRun tool(const std::vector<std::string> &arguments, const std::string &input = "");
// The same for a line as a shell reads it, in a folder; 'qandor' in it is the tool.
ToolRun shell(const std::string &line, const std::string &folder);

// Starts the tool, which goes on; its standard output can be read.
ChildProcess start_tool(const std::vector<std::string> &arguments);

} // namespace qandor::test
