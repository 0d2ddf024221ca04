// SPDX-License-Identifier: LGPL-2.1-or-later

// The declaration files of installed types: one folder that is part of the system and is only read,
// one to which types are added. A type of the former hides one of the same name in the latter.
#pragma once

#include "switch/folderwatch.hpp"
#include "switch/records.hpp"

#include <sys/stat.h>

#include <map>
#include <memory>
#include <string>

namespace qandor {

enum class TypeResult { Done, BadName, Unreadable, Exists, NotFound, ReadOnly, Failed };

class TypeFolders {
public:
    TypeFolders(std::string read_only, std::string writable)
        : read_only_(std::move(read_only)), writable_(std::move(writable))
    {
    }

    // From now on lists are answered from memory as long as nothing changes in the folders.
    void watch(sd_event *event);

    // Writes the declaration's file, whole or not at all.
    TypeResult add(const std::string &type, const event_declaration *declaration);
    TypeResult remove(const std::string &type);

    // The declarations of all types as a serialized list, by name. A file that cannot be read is
    // left out, which is logged once for each state of the file.
    const std::string &list();

private:
    struct Known {
        timespec changed;
        off_t size;
        ino_t number;
        std::string bytes; // empty for a file that cannot be read
        guint64 reading;   // in which it was there last
    };

    std::map<std::string, std::string> find_files() const;
    const std::string &read(const std::string &path);

    std::string read_only_;
    std::string writable_;
    std::map<std::string, Known> known_; // by path
    guint64 reading_ = 0;
    std::string list_;
    std::unique_ptr<FolderWatch> watch_;
};

} // namespace qandor
