// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/installedtypes.hpp"

#include "cli/failure.hpp"
#include "cli/nearest.hpp"
#include "cli/xmlcheck.hpp"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>

namespace qandor::cli {
namespace {

constexpr const char *suffix = ".xml";

std::set<std::string> names_in(const std::string &folder)
{
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(folder, ignored))
        if (entry.path().extension() == suffix && is_type_name(entry.path().stem()))
            names.insert(entry.path().stem());
    return names;
}

InstalledTypes::Type read_type(const std::string &name, const std::string &path, bool is_system)
{
    return {name, path, is_system, read_declaration_file(path)};
}

} // namespace

bool is_type_name(const std::string &name)
{
    auto fits = [](char letter) { return g_ascii_isalnum(letter) || std::strchr("._-", letter); };
    return !name.empty() && name.size() <= 128 && name[0] != '.' &&
           std::all_of(name.begin(), name.end(), fits);
}

void InstalledTypes::add_options(Options &options)
{
    options.text({"types-read-only", 0, "where the types of the system are", "DIR"}, system_);
    options.text({"types-writable", 0, "where the types that were added are", "DIR"}, added_);
}

std::string InstalledTypes::system_folder() const
{
    return system_.value_or("/usr/share/event/declarations.d");
}

std::string InstalledTypes::added_folder() const
{
    return added_.value_or("/etc/event_switch/declarations.d");
}

std::string InstalledTypes::system_path(const std::string &name) const
{
    return system_folder() + "/" + name + suffix;
}

std::string InstalledTypes::added_path(const std::string &name) const
{
    return added_folder() + "/" + name + suffix;
}

std::vector<InstalledTypes::Type> InstalledTypes::all() const
{
    std::vector<Type> types;
    std::set<std::string> system = names_in(system_folder());
    std::set<std::string> names = names_in(added_folder());
    names.insert(system.begin(), system.end());
    for (const std::string &name : names) {
        bool is_system = system.count(name) > 0;
        types.push_back(
            read_type(name, is_system ? system_path(name) : added_path(name), is_system));
    }
    return types;
}

std::vector<std::string> InstalledTypes::hidden() const
{
    std::set<std::string> system = names_in(system_folder());
    std::vector<std::string> paths;
    for (const std::string &name : names_in(added_folder()))
        if (system.count(name) > 0)
            paths.push_back(added_path(name));
    return paths;
}

InstalledTypes::Type InstalledTypes::find(const std::string &name) const
{
    std::vector<std::string> names;
    for (Type &type : all()) {
        if (type.name == name)
            return std::move(type);
        names.push_back(type.name);
    }
    std::string suggestion = did_you_mean(name, names);
    throw Failure(EX_NOINPUT, "There is no type '" + name + "'",
                  (suggestion.empty() ? "" : suggestion + " ") +
                      "'qandor types' shows what is installed.");
}

} // namespace qandor::cli
