// SPDX-License-Identifier: LGPL-2.1-or-later

// The words of a command line that is being written, sorted into options, their values, and
// arguments, as far as it has come.
#pragma once

#include "cli/options.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qandor::cli {

class GivenWords {
public:
    GivenWords(const std::vector<Options::Words> &options, const std::vector<std::string> &words);

    // Of which option the next word is the value; NULL for none.
    const Options::Words *waiting() const { return waiting_; }
    // Whether '--' has ended the options.
    bool are_options_over() const { return are_over_; }
    const std::vector<std::string> &arguments() const { return arguments_; }
    // An option's value; nothing when it is not given.
    std::optional<std::string> value(const std::string &option) const;

private:
    void take(const std::string &word);
    void take_option(const std::string &word);

    const std::vector<Options::Words> &options_;
    const Options::Words *waiting_ = nullptr;
    std::vector<std::string> arguments_;
    std::map<std::string, std::string> values_;
    bool are_over_ = false;
};

} // namespace qandor::cli
