// SPDX-License-Identifier: LGPL-2.1-or-later

// The folders of installed types as they lie on the disk. A type that is part of the system hides
// one of the same name that was added.
#pragma once

#include "cli/options.hpp"

#include <qandor/qandor.hpp>

#include <optional>
#include <string>
#include <vector>

namespace qandor::cli {

class InstalledTypes {
public:
    struct Type {
        std::string name;
        std::string path;
        bool is_system = false;
        std::optional<Declaration> declaration; // nothing when the file cannot be read
    };

    // Options that name other folders than the usual ones.
    void add_options(Options &options);

    // All types by name, without hidden ones.
    std::vector<Type> all() const;
    // The files that are hidden by one of the system.
    std::vector<std::string> hidden() const;
    // The type of the name; a Failure that names the nearest one when there is none.
    Type find(const std::string &name) const;

    std::string system_path(const std::string &name) const;
    std::string added_path(const std::string &name) const;

private:
    std::string system_folder() const;
    std::string added_folder() const;

    std::optional<std::string> system_;
    std::optional<std::string> added_;
};

// What a type may be called: 1 to 128 letters, digits, '.', '_', '-', and no '.' in front.
bool is_type_name(const std::string &name);

} // namespace qandor::cli
