// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/givenwords.hpp"

#include <utility>

namespace qandor::cli {

GivenWords::GivenWords(const std::vector<Options::Words> &options,
                       const std::vector<std::string> &words)
    : options_(options)
{
    for (const std::string &word : words)
        take(word);
}

std::optional<std::string> GivenWords::value(const std::string &option) const
{
    auto found = values_.find(option);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void GivenWords::take(const std::string &word)
{
    if (waiting_)
        values_[std::exchange(waiting_, nullptr)->name] = word;
    else if (are_over_ || !word.starts_with('-') || word == "-")
        arguments_.push_back(word);
    else if (word == "--")
        are_over_ = true;
    else
        take_option(word);
}

void GivenWords::take_option(const std::string &word)
{
    std::size_t equals = word.find('=');
    for (const Options::Words &option : options_) {
        bool is_letter = word.size() == 2 && word[1] == option.letter;
        if (!is_letter && word.substr(0, equals) != std::string("--") + option.name)
            continue;
        if (equals != std::string::npos)
            values_[option.name] = word.substr(equals + 1);
        else if (option.argument)
            waiting_ = &option;
    }
}

} // namespace qandor::cli
