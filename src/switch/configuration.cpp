// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/configuration.hpp"

#include "platform/owners.hpp"

#include <pwd.h>

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
constexpr std::string_view user_group = "user ";
constexpr guint64 max_uid = G_MAXUINT32 - 1; // the highest number stands for nobody

struct FolderName {
    const char *name;
    std::string Configuration::*value;
};
constexpr FolderName folder_names[] = {
    {"read_only", &Configuration::types_read_only},
    {"writable", &Configuration::types_writable},
};

std::string list_of(const std::vector<std::string> &names)
{
    std::string list;
    for (const std::string &name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

std::string folder_list()
{
    std::vector<std::string> names;
    for (const FolderName &one : folder_names)
        names.emplace_back(one.name);
    return list_of(names);
}

std::string limit_list(bool of_user)
{
    std::vector<std::string> names;
    for (const LimitName &one : limit_names)
        if (one.for_each_user || !of_user)
            names.emplace_back(one.name);
    return list_of(names);
}

bool is_user_group(const std::string &group)
{
    return group.starts_with(user_group);
}

// The user id of a name or a number. A number needs no entry in the user database.
std::optional<guint32> find_user(const std::string &name)
{
    guint64 uid = 0;
    if (g_ascii_string_to_unsigned(name.c_str(), 10, 0, max_uid, &uid, nullptr))
        return static_cast<guint32>(uid);
    const passwd *user = getpwnam(name.c_str());
    return user ? std::optional<guint32>(user->pw_uid) : std::nullopt;
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
    bool read_limit(const std::string &group, const std::string &key, Limits &limits);
    bool read_group(const std::string &group, Configuration &configuration);
    bool read_user(const std::string &group, UserLimits &limits);
    bool is_wrong(std::size_t line, const std::string &what);
    std::size_t line_of(const std::string &group, const std::string &key = "") const;
    std::vector<std::string> names(gchar **found) const;
    std::vector<std::string> groups() const;
    std::vector<std::string> keys(const std::string &group) const;
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

// An invalid line is found by reading one line more each time.
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
        return is_wrong(i + 1, "expected a comment, a [group] or KEY=VALUE, got '" +
                                   stripped(lines_[i]) + "'");
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

std::vector<std::string> Reading::groups() const
{
    return names(g_key_file_get_groups(file_.get(), nullptr));
}

std::vector<std::string> Reading::keys(const std::string &group) const
{
    return names(g_key_file_get_keys(file_.get(), group.c_str(), nullptr, nullptr));
}

bool Reading::read_folder(const std::string &key, Configuration &configuration)
{
    auto known = std::find_if(std::begin(folder_names), std::end(folder_names),
                              [&](const FolderName &one) { return key == one.name; });
    std::size_t line = line_of(folders_group, key);
    if (known == std::end(folder_names))
        return is_wrong(line, "unknown folder '" + key + "': expected one of " + folder_list());
    std::string value = value_of(folders_group, key);
    if (!g_path_is_absolute(value.c_str()))
        return is_wrong(line, key + ": expected an absolute path, got '" + value + "'");
    configuration.*known->value = value;
    return true;
}

bool Reading::read_limit(const std::string &group, const std::string &key, Limits &limits)
{
    bool of_user = is_user_group(group);
    auto known =
        std::find_if(std::begin(limit_names), std::end(limit_names), [&](const LimitName &one) {
            return key == one.name && (one.for_each_user || !of_user);
        });
    std::size_t line = line_of(group, key);
    if (known == std::end(limit_names))
        return is_wrong(line, "unknown limit '" + key + (of_user ? "' of a user" : "'") +
                                  ": expected one of " + limit_list(of_user));
    std::string value = value_of(group, key);
    guint64 number = 0;
    if (!g_ascii_string_to_unsigned(value.c_str(), 10, known->least, known->most, &number, nullptr))
        return is_wrong(line, key + ": expected a whole number from " +
                                  std::to_string(known->least) + " to " +
                                  std::to_string(known->most) + ", got '" + value + "'");
    limits.*known->value = number;
    return true;
}

// What the group leaves out is as it is for everybody.
bool Reading::read_user(const std::string &group, UserLimits &limits)
{
    std::string name = stripped(group.substr(user_group.size()));
    std::optional<guint32> uid = find_user(name);
    if (!uid)
        return is_wrong(line_of(group), "unknown user '" + name +
                                            "': expected the name of a user or a user id from 0 "
                                            "to " +
                                            std::to_string(max_uid));
    auto [own, is_new] = limits.by_uid.try_emplace(*uid, limits.common);
    if (!is_new)
        return is_wrong(line_of(group), "the user '" + name +
                                            "' has another group already: "
                                            "expected one group for each user");
    for (const std::string &key : keys(group))
        if (!read_limit(group, key, own->second))
            return false;
    return true;
}

bool Reading::read_group(const std::string &group, Configuration &configuration)
{
    if (group != folders_group && group != limits_group && !is_user_group(group))
        return is_wrong(line_of(group), "unknown group '" + group + "': expected one of " +
                                            folders_group + ", " + limits_group + ", user NAME");
    for (const std::string &key : keys(group))
        if (group == folders_group
                ? !read_folder(key, configuration)
                : group == limits_group && !read_limit(group, key, configuration.limits.common))
            return false;
    return true;
}

// The users come last: wherever it stands, [limits] is what they start from.
bool Reading::read(Configuration &configuration)
{
    for (const std::string &group : groups())
        if (!read_group(group, configuration))
            return false;
    for (const std::string &group : groups())
        if (is_user_group(group) && !read_user(group, configuration.limits))
            return false;
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
