// SPDX-License-Identifier: LGPL-2.1-or-later

// What a sequence does, and how it ends when a record and its plain model differ.
#pragma once

#include <glib.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace qandor::test {

// Prints every step as it happens, when one sequence runs alone: the last line before a crash is
// the step that crashed.
class Trace {
public:
    explicit Trace(bool prints) : prints_(prints) {}

    void note(const std::string &step) const
    {
        if (prints_)
            std::fprintf(stderr, "    %s\n", step.c_str());
    }

private:
    bool prints_;
};

struct Difference : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using MaybeText = std::optional<std::string>;

inline MaybeText maybe(const gchar *text)
{
    return text ? MaybeText(text) : std::nullopt;
}

inline std::string shown(const std::string &text)
{
    return "'" + text + "'";
}
inline std::string shown(const MaybeText &text)
{
    return text ? shown(*text) : "NULL";
}
inline std::string shown(long long number)
{
    return std::to_string(number);
}
inline std::string shown(const std::vector<std::string> &texts)
{
    std::string all = "[";
    for (const std::string &text : texts)
        all += (all.size() > 1 ? ", " : "") + shown(text);
    return all + "]";
}

inline void require(bool holds, const std::string &what)
{
    if (!holds)
        throw Difference(what);
}

template <class Value>
void require_same(const Value &actual, const Value &expected, const std::string &what)
{
    if (actual != expected)
        throw Difference(what + ": got " + shown(actual) + ", expected " + shown(expected));
}

} // namespace qandor::test
