// SPDX-License-Identifier: LGPL-2.1-or-later

// What the tests of the installed files share: reading their lines, running the tools that read
// them.
#pragma once

#include "support/childprocess.hpp"

#include "platform/owners.hpp"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace qandor::test {

inline constexpr const char *switch_user = "event-switch";
inline constexpr const char *types_folder = "/etc/event_switch/declarations.d";
inline constexpr const char *unit_file = QANDOR_BUILT_DATA "/event-switch.service";

inline std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// The lines that say something, comments left out.
inline std::vector<std::string> lines_of(const std::string &path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line.front() != '#')
            lines.push_back(line);
    return lines;
}

inline std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// What a section of the unit says of a directive, as often as it says it.
inline std::vector<std::string> unit_values(const std::string &section,
                                            const std::string &directive)
{
    std::string current;
    std::vector<std::string> values;
    for (const std::string &line : lines_of(unit_file)) {
        if (line.front() == '[')
            current = line;
        else if (current == "[" + section + "]" && line.starts_with(directive + "="))
            values.push_back(line.substr(directive.size() + 1));
    }
    return values;
}

inline bool is_installed(const char *program)
{
    return TextOwner(g_find_program_in_path(program)) != nullptr;
}

struct Result {
    int code;
    std::string output; // standard error included
};

inline Result run(const std::string &command)
{
    ChildProcess process({"sh", "-c", command + " 2>&1"});
    std::string output;
    while (auto line = process.read_line())
        output += *line + "\n";
    return {process.wait(), output};
}

} // namespace qandor::test
