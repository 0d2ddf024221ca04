// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/completion.hpp"

#include "cli/argumentcompletion.hpp"

namespace qandor::cli {
namespace {

Candidates option_names(const std::vector<Options::Words> &options)
{
    Candidates names;
    for (const Options::Words &option : options)
        names.push_back({std::string("--") + option.name, option.help});
    names.push_back({"--help", "how the command is used"});
    return names;
}

// Which argument comes next; a declaration that is given stands for the type.
std::optional<Argument> next_argument(const CommandEntry &entry, const GivenWords &given)
{
    std::size_t place = given.arguments().size() + (given.value("declare") ? 1 : 0);
    if (place < entry.arguments.size())
        return entry.arguments[place];
    bool goes_on = std::string_view(entry.usage).ends_with("...");
    return goes_on && !entry.arguments.empty() ? std::optional(entry.arguments.back())
                                               : std::nullopt;
}

// A value that is joined to its option by '='.
Completion complete_joined(const std::vector<Options::Words> &options, const GivenWords &given,
                           const std::string &begun)
{
    std::size_t equals = begun.find('=');
    GivenWords option(options, {begun.substr(0, equals)});
    if (!option.waiting())
        return {};
    Completion completion =
        complete_value(option.waiting()->argument, given, begun.substr(equals + 1));
    for (Candidate &candidate : completion.candidates)
        candidate.word.insert(0, begun, 0, equals + 1);
    return completion;
}

Completion complete_for(const CommandEntry &entry, const std::vector<std::string> &before,
                        const std::string &begun)
{
    Options options;
    auto command = entry.make();
    command->add_options(options);
    std::vector<Options::Words> all = options.all();
    GivenWords given(all, before);
    if (given.waiting())
        return complete_value(given.waiting()->argument, given, begun);
    if (begun.starts_with('-') && !given.are_options_over())
        return begun.find('=') == std::string::npos
                   ? Completion{beginning_with(begun, option_names(all))}
                   : complete_joined(all, given, begun);
    auto argument = next_argument(entry, given);
    return argument ? complete_argument(*argument, given, begun) : Completion();
}

} // namespace

Completion complete(const std::vector<std::string> &words)
{
    const std::string &begun = words.back();
    if (words.size() == 1) {
        Candidates first = command_names();
        first.push_back({"--help", "what commands there are"});
        first.push_back({"--version", "the version"});
        return {beginning_with(begun, first)};
    }
    return complete_for(find_command(words[0]), {words.begin() + 1, words.end() - 1}, begun);
}

} // namespace qandor::cli
