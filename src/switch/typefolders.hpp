// SPDX-License-Identifier: LGPL-2.1-or-later

// The declaration files of installed types: one folder that is part of the system and is only read,
// one to which types are added. A type of the former hides one of the same name in the latter.
#pragma once

#include "switch/filechange.hpp"
#include "switch/folderwatch.hpp"
#include "switch/records.hpp"

#include <sys/stat.h>

#include <map>
#include <memory>
#include <string>
#include <variant>

namespace qandor {

enum class TypeResult {
    Done,
    BadName,
    Unreadable, // as XML it is too large
    Different,  // XML cannot say it
    TooMany,    // the list of all types would be too long
    Exists,
    NotFound,
    ReadOnly,
    Failed
};

// What there is to change, or the result when nothing is.
using TypeStep = std::variant<TypeResult, FileChange>;

class TypeFolders {
public:
    // A stock bus carries messages of at most 32 MiB, and ends the connection that sends a larger
    // one.
    static constexpr std::size_t usual_most_bytes = 28 << 20;

    // The list of the types has at most so many bytes.
    TypeFolders(std::string read_only, std::string writable,
                std::size_t most_bytes = usual_most_bytes)
        : read_only_(std::move(read_only)), writable_(std::move(writable)), most_bytes_(most_bytes)
    {
    }

    // From now on lists are answered from memory as long as nothing changes in the folders.
    void watch(sd_event *event);

    // Checks what is to be done to add or to remove a type. It is done by FileChange::apply(), and
    // what has come of it is said by result_of().
    TypeStep add(const std::string &type, const event_declaration *declaration);
    TypeStep remove(const std::string &type);
    TypeResult result_of(const FileChange &change, int error);

    // The declarations of all types as a serialized list, by name. A file that cannot be read, or
    // for which the list has no room, is left out, which is logged once for each state of the file.
    const std::string &list();

private:
    struct Known {
        timespec changed;
        off_t size;
        ino_t number;
        std::string bytes; // empty for a file that cannot be read
        guint64 reading;   // in which it was there last
        bool is_listed = true;
    };

    std::map<std::string, std::string> find_files() const;
    Known &read(const std::string &path);
    void append(const std::string &path, Known &known);
    bool has_room(const std::string &path, std::size_t bytes);

    std::string read_only_;
    std::string writable_;
    std::size_t most_bytes_;
    std::map<std::string, Known> known_; // by path
    guint64 reading_ = 0;
    std::string list_;
    std::unique_ptr<FolderWatch> watch_;
};

} // namespace qandor
