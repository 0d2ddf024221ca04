// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/configuration.hpp"

#include "platform/owners.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace qandor {
namespace {

using KeyFileOwner = Owner<GKeyFile, g_key_file_unref>;
using NamesOwner = Owner<gchar *, g_strfreev>;

constexpr const char *usual_file = "/etc/event_switch/event-switch.conf";
constexpr const char *folders_group = "folders";
constexpr const char *limits_group = "limits";

struct FolderName {
    const char *name;
    std::string Configuration::*value;
};
constexpr FolderName folder_names[] = {
    {"read_only", &Configuration::types_read_only},
    {"writable", &Configuration::types_writable},
};

template <class Names> std::string list_of(const Names &names)
{
    std::string list;
    for (const auto &one : names)
        list += (list.empty() ? "" : ", ") + std::string(one.name);
    return list;
}

std::vector<std::string> split_lines(const std::string &text)
{
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines.push_back(text.substr(begin, end - begin));
    lines.push_back(text.substr(begin));
    return lines;
}

std::string stripped(std::string text)
{
    return g_strstrip(text.data());
}

// A file that is being read. The key file does not tell where a key stands, so its lines are kept.
class Reading {
public:
    Reading(const std::string &path, const std::string &text)
        : path_(path), lines_(split_lines(text))
    {
    }

    bool parse();
    bool read(Configuration &configuration);
    const ConfigurationFault &fault() const { return fault_; }

private:
    bool read_folder(const std::string &key, Configuration &configuration);
    bool read_limit(const std::string &key, Limits &limits);
    bool read_key(const std::string &group, const std::string &key, Configuration &configuration);
    bool is_wrong(std::size_t line, const std::string &what);
    std::size_t line_of(const std::string &group, const std::string &key = "") const;
    std::vector<std::string> names(gchar **found) const;
    std::string value_of(const std::string &group, const std::string &key) const;

    const std::string &path_;
    std::vector<std::string> lines_;
    KeyFileOwner file_;
    ConfigurationFault fault_;
};

bool Reading::is_wrong(std::size_t line, const std::string &what)
{
    fault_.text = path_ + ":" + std::to_string(line) + ": " + what;
    return false;
}

// The last line that says it: a key that comes twice counts as it does there.
std::size_t Reading::line_of(const std::string &group, const std::string &key) const
{
    std::string current;
    std::size_t found = 0;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        std::string line = stripped(lines_[i]);
        if (line.starts_with('[')) {
            current = line.substr(1, line.find(']') - 1);
            if (key.empty() && current == group)
                return i + 1;
        } else if (current == group && stripped(line.substr(0, line.find('='))) == key) {
            found = i + 1;
        }
    }
    return found;
}

// A line that is none is found by leaving lines away from the end on.
bool Reading::parse()
{
    std::string text;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        text += lines_[i] + "\n";
        file_.reset(g_key_file_new());
        GError *error = nullptr;
        if (g_key_file_load_from_data(file_.get(), text.data(), text.size(), G_KEY_FILE_NONE,
                                      &error))
            continue;
        ErrorOwner owner(error);
        return is_wrong(i + 1, "'" + stripped(lines_[i]) +
                                   "' is neither a comment nor a [group] nor a key with its value");
    }
    return true;
}

std::vector<std::string> Reading::names(gchar **found) const
{
    NamesOwner owner(found);
    std::vector<std::string> names;
    for (gchar **name = found; name && *name; ++name)
        names.emplace_back(*name);
    return names;
}

std::string Reading::value_of(const std::string &group, const std::string &key) const
{
    TextOwner value(g_key_file_get_value(file_.get(), group.c_str(), key.c_str(), nullptr));
    return value ? value.get() : "";
}

bool Reading::read_folder(const std::string &key, Configuration &configuration)
{
    auto known = std::find_if(std::begin(folder_names), std::end(folder_names),
                              [&](const FolderName &one) { return key == one.name; });
    std::size_t line = line_of(folders_group, key);
    if (known == std::end(folder_names))
        return is_wrong(line,
                        "'" + key + "' is no folder; expected is one of " + list_of(folder_names));
    std::string value = value_of(folders_group, key);
    if (!g_path_is_absolute(value.c_str()))
        return is_wrong(line,
                        key + ": expected is a path that begins with '/', not '" + value + "'");
    configuration.*known->value = value;
    return true;
}

bool Reading::read_limit(const std::string &key, Limits &limits)
{
    auto known = std::find_if(std::begin(limit_names), std::end(limit_names),
                              [&](const LimitName &one) { return key == one.name; });
    std::size_t line = line_of(limits_group, key);
    if (known == std::end(limit_names))
        return is_wrong(line,
                        "'" + key + "' is no limit; expected is one of " + list_of(limit_names));
    std::string value = value_of(limits_group, key);
    guint64 number = 0;
    if (!g_ascii_string_to_unsigned(value.c_str(), 10, known->least, known->most, &number, nullptr))
        return is_wrong(line, key + ": expected is a whole number from " +
                                  std::to_string(known->least) + " to " +
                                  std::to_string(known->most) + ", not '" + value + "'");
    limits.*known->value = number;
    return true;
}

bool Reading::read_key(const std::string &group, const std::string &key,
                       Configuration &configuration)
{
    return group == folders_group ? read_folder(key, configuration)
                                  : read_limit(key, configuration.limits);
}

bool Reading::read(Configuration &configuration)
{
    for (const std::string &group : names(g_key_file_get_groups(file_.get(), nullptr))) {
        if (group != folders_group && group != limits_group)
            return is_wrong(line_of(group), "'" + group + "' is no group; expected is one of " +
                                                folders_group + ", " + limits_group);
        for (const std::string &key :
             names(g_key_file_get_keys(file_.get(), group.c_str(), nullptr, nullptr)))
            if (!read_key(group, key, configuration))
                return false;
    }
    return true;
}

} // namespace

std::variant<Configuration, ConfigurationFault> read_configuration(const std::string &path)
{
    gchar *content = nullptr;
    gsize length = 0;
    GError *error = nullptr;
    if (!g_file_get_contents(path.c_str(), &content, &length, &error)) {
        ErrorOwner owner(error);
        return ConfigurationFault{error->message};
    }
    TextOwner owner(content);
    Reading reading(path, std::string(content, length));
    Configuration configuration;
    if (!reading.parse() || !reading.read(configuration))
        return reading.fault();
    return configuration;
}

std::variant<Configuration, ConfigurationFault> find_configuration(const Options &options)
{
    Configuration configuration;
    bool is_usual_there = g_file_test(usual_file, G_FILE_TEST_EXISTS);
    if (options.configuration || is_usual_there) {
        auto read = read_configuration(options.configuration.value_or(usual_file));
        if (std::holds_alternative<ConfigurationFault>(read))
            return read;
        configuration = std::get<Configuration>(std::move(read));
    }
    if (options.types_read_only)
        configuration.types_read_only = *options.types_read_only;
    if (options.types_writable)
        configuration.types_writable = *options.types_writable;
    return configuration;
}

} // namespace qandor
