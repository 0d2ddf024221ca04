// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/values.hpp"

#include "cli/describe.hpp"
#include "cli/failure.hpp"
#include "cli/nearest.hpp"
#include "cli/terminal.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

std::string open_keys_hint(const std::vector<KeyView> &keys)
{
    std::string names;
    for (const KeyView &key : keys)
        if (!key.has_value)
            names +=
                (names.empty() ? "" : ", ") + printable(key.key) + " (" + type_name(key.type) + ")";
    return names.empty() ? "No key of this type is open." : "Open are: " + names + ".";
}

[[noreturn]] void refuse_key(const GivenValue &given, const std::vector<KeyView> &keys)
{
    std::vector<std::string> names;
    for (const KeyView &key : keys)
        if (!key.has_value)
            names.push_back(key.key);
    std::string suggestion = did_you_mean(given.key, names);
    throw Failure(EX_USAGE, "The type has no key '" + printable(given.key) + "'",
                  (suggestion.empty() ? "" : suggestion + " ") + open_keys_hint(keys));
}

[[noreturn]] void refuse_value(const GivenValue &given, const char *wanted)
{
    throw Failure(EX_DATAERR, printable(given.key) + ": expected is " + wanted + ", not '" +
                                  printable(given.value) + "'");
}

bool truth_of(const GivenValue &given)
{
    if (given.value == "1" || given.value == "true")
        return true;
    if (given.value != "0" && given.value != "false")
        refuse_value(given, "true or false, 1 or 0");
    return false;
}

template <class T> T number_of(const GivenValue &given, const char *wanted)
{
    auto number = detail::value_of<T>(given.value);
    if (!number)
        refuse_value(given, wanted);
    return *number;
}

void set(Event &event, const KeyView &key, const GivenValue &given)
{
    const char *name = key.key.c_str();
    switch (key.type) {
    case VALUE_TYPE_INT:
        return event.try_set(name, number_of<gint32>(given, "a whole number of 32 bits")).value();
    case VALUE_TYPE_BOOL:
        return event.try_set(name, truth_of(given)).value();
    case VALUE_TYPE_DOUBLE:
        return event.try_set(name, number_of<double>(given, "a number")).value();
    default:
        return event.try_set(name, given.value).value();
    }
}

} // namespace

std::vector<GivenValue> parse_values(const std::vector<std::string> &arguments)
{
    std::vector<GivenValue> values;
    for (const std::string &argument : arguments) {
        std::size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(EX_USAGE, "Expected is key=value, not '" + printable(argument) + "'");
        values.push_back({argument.substr(0, equals), argument.substr(equals + 1)});
        // What events carry is UTF-8 of less than 64 KiB.
        const std::string &value = values.back().value;
        if (value.size() > 65535 || !g_utf8_validate(value.c_str(), -1, nullptr))
            refuse_value(values.back(), "UTF-8 of at most 65535 bytes");
    }
    return values;
}

void fill(Event &event, const std::vector<GivenValue> &values)
{
    std::vector<KeyView> keys = keys_of(event);
    for (const GivenValue &given : values) {
        auto key = std::find_if(keys.begin(), keys.end(),
                                [&](const KeyView &one) { return one.key == given.key; });
        if (key == keys.end())
            refuse_key(given, keys);
        if (key->has_value)
            throw Failure(EX_USAGE,
                          "The key '" + printable(given.key) +
                              "' has its value already: " + printable_word(key->value),
                          open_keys_hint(keys));
        set(event, *key, given);
    }
    if (!event.is_complete())
        throw Failure(EX_USAGE, "These keys have no value", open_keys_hint(keys_of(event)));
}

} // namespace qandor::cli
