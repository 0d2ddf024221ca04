// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/argumentcompletion.hpp"

#include "cli/conditioncompletion.hpp"
#include "cli/describe.hpp"
#include "cli/installedtypes.hpp"
#include "cli/recordfile.hpp"
#include "cli/switchbus.hpp"

#include <algorithm>
#include <cstring>

namespace qandor::cli {
namespace {

// A switch is not started for this.
std::vector<Declaration> what_is_declared()
{
    SwitchBus bus;
    return bus.owner() ? bus.declarations() : std::vector<Declaration>();
}

InstalledTypes types_for(const GivenWords &given)
{
    InstalledTypes types;
    Options options;
    types.add_options(options);
    std::vector<std::string> folders;
    for (const Options::Words &option : options.all())
        if (auto folder = given.value(option.name))
            folders.push_back(std::string("--") + option.name + "=" + *folder);
    options.parse("types", folders);
    return types;
}

Candidates type_names(const GivenWords &given)
{
    Candidates names;
    for (const InstalledTypes::Type &type : types_for(given).all())
        names.push_back(
            {type.name, type.declaration ? topic_path(keys_of(type.declaration->sample())) : ""});
    return names;
}

std::vector<KeyView> keys_to_send(const GivenWords &given)
{
    if (auto file = given.value("declare"))
        return keys_of(read_declaration(*file).sample());
    if (given.arguments().empty())
        return {};
    InstalledTypes::Type type = types_for(given).find(given.arguments()[0]);
    return type.declaration ? keys_of(type.declaration->sample()) : std::vector<KeyView>();
}

Candidates values_to_send(const GivenWords &given)
{
    Candidates values;
    for (const KeyView &key : keys_to_send(given)) {
        const std::vector<std::string> &words = given.arguments();
        bool is_given = std::any_of(words.begin(), words.end(), [&](const std::string &word) {
            return word.starts_with(key.key + "=");
        });
        if (key.has_value || is_given)
            continue;
        if (key.type == VALUE_TYPE_BOOL)
            for (const char *truth : {"true", "false"})
                values.push_back({key.key + "=" + truth, key.nice_name});
        else
            values.push_back({key.key + "=", type_name(key.type)});
    }
    return values;
}

} // namespace

Candidates beginning_with(const std::string &begun, const Candidates &all)
{
    Candidates candidates;
    std::copy_if(all.begin(), all.end(), std::back_inserter(candidates),
                 [&](const Candidate &one) { return one.word.starts_with(begun); });
    return candidates;
}

Candidates command_names()
{
    Candidates names;
    for (const CommandEntry &entry : commands())
        if (!entry.is_for_shells)
            names.push_back({entry.name, entry.summary});
    return names;
}

Completion complete_value(const char *what, const GivenWords &given, const std::string &begun)
{
    if (std::strcmp(what, "FILE") == 0 || std::strcmp(what, "DIR") == 0)
        return {{}, true};
    Candidates keys;
    if (std::strcmp(what, "KEY") == 0)
        for (const KeyView &key : keys_to_send(given))
            keys.push_back({key.key, type_name(key.type)});
    return {beginning_with(begun, keys)};
}

Completion complete_argument(Argument argument, const GivenWords &given, const std::string &begun)
{
    switch (argument) {
    case Argument::Command:
        return {beginning_with(begun, command_names())};
    case Argument::Expression:
        return {complete_condition(begun, what_is_declared())};
    case Argument::Type:
        return {beginning_with(begun, type_names(given))};
    case Argument::TypeChange:
        return {beginning_with(begun, {{"add", "installs a type"}, {"remove", "removes one"}})};
    case Argument::Value:
        return {beginning_with(begun, values_to_send(given))};
    case Argument::File:
        break;
    }
    return {{}, true};
}

} // namespace qandor::cli
