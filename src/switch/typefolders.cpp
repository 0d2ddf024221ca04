// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/typefolders.hpp"

#include "model/checker.hpp"
#include "switch/log.hpp"

#include <qandor/serialize.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace qandor {
namespace {

constexpr std::size_t max_name = 128;
constexpr std::string_view ending = ".xml";

bool is_name_character(char character)
{
    return g_ascii_isalnum(character) || character == '.' || character == '_' || character == '-';
}

bool is_type_name(const std::string &type)
{
    return !type.empty() && type.size() <= max_name && type.front() != '.' &&
           std::all_of(type.begin(), type.end(), is_name_character);
}

std::string path_of(const std::string &folder, const std::string &type)
{
    return folder + "/" + type + std::string(ending);
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

// The record of a file's declaration; empty when the file holds none. Also refuses what XML can say
// and a record cannot, such as a text that is too long.
std::string checked_bytes(const DeclarationOwner &declaration)
{
    if (!declaration)
        return {};
    ArrayOwner bytes(event_declaration_serialize(declaration.get()));
    if (check_record(RecordKind::EventDeclaration, reinterpret_cast<const guint8 *>(bytes->data),
                     bytes->len))
        return {};
    return {bytes->data, bytes->len};
}

// Whether XML has said all of a declaration. Ids are not part of it, and the tag of a key makes a
// property of it.
bool says_all_of(const event_declaration *declaration, const event_declaration *read)
{
    auto content_of = [](const event_declaration *record) {
        ArrayOwner bytes(serialize_create_array());
        // The getter is for those who change things, too.
        auto *changeable = const_cast<event_declaration *>(record);
        inspectable_serialize_internal(event_declaration_get_inspectable(changeable), bytes.get());
        return std::string(bytes->data, bytes->len);
    };
    bool is_property =
        event_declaration_is_property(read) || !event_declaration_is_property(declaration);
    return is_property && content_of(read) == content_of(declaration);
}

// A link may lead anywhere, and whoever may write into the folder need not be able to read there.
bool leads_out(const std::string &path, const struct stat &status)
{
    if (!S_ISLNK(status.st_mode))
        return false;
    std::error_code error;
    std::filesystem::path target = std::filesystem::canonical(path, error);
    std::filesystem::path folder =
        std::filesystem::canonical(std::filesystem::path(path).parent_path(), error);
    return error || target.parent_path() != folder;
}

} // namespace

void TypeFolders::watch(sd_event *event)
{
    watch_ = std::make_unique<FolderWatch>(event, std::vector<std::string>{read_only_, writable_});
}

TypeStep TypeFolders::add(const std::string &type, const event_declaration *declaration)
{
    if (!is_type_name(type))
        return TypeResult::BadName;
    if (exists(path_of(read_only_, type)))
        return TypeResult::Exists;
    TextOwner xml(event_declaration_serialize_xml(declaration));
    // Escaped text grows, and a document that is too large is not read.
    DeclarationOwner read(event_declaration_deserialize_xml(xml.get()));
    std::string bytes = checked_bytes(read);
    if (bytes.empty())
        return TypeResult::Unreadable;
    if (!says_all_of(declaration, read.get()))
        return TypeResult::Different;
    std::string path = path_of(writable_, type);
    if (!has_room(path, bytes.size()))
        return TypeResult::TooMany;
    return FileChange{writable_, std::move(path), xml.get()};
}

TypeStep TypeFolders::remove(const std::string &type)
{
    if (!is_type_name(type))
        return TypeResult::BadName;
    if (exists(path_of(read_only_, type)))
        return TypeResult::ReadOnly;
    return FileChange{writable_, path_of(writable_, type), std::nullopt};
}

TypeResult TypeFolders::result_of(const FileChange &change, int error)
{
    if (watch_)
        watch_->forget();
    if (error == 0)
        return TypeResult::Done;
    if (error == ENOENT && !change.content)
        return TypeResult::NotFound;
    log_line(LogLevel::Warning, "cannot %s %s: %s", change.content ? "write" : "remove",
             change.path.c_str(), std::strerror(error));
    return TypeResult::Failed;
}

// Whether the list may grow by a type of so many bytes, in the place of what its file has now.
bool TypeFolders::has_room(const std::string &path, std::size_t bytes)
{
    std::size_t size = list().size();
    auto replaced = known_.find(path);
    if (replaced != known_.end() && replaced->second.is_listed)
        size -= replaced->second.bytes.size();
    return size + bytes <= most_bytes_;
}

// The file of each type, by name.
std::map<std::string, std::string> TypeFolders::find_files() const
{
    std::map<std::string, std::string> files;
    for (const std::string &folder : {read_only_, writable_}) {
        std::error_code error;
        std::filesystem::directory_iterator entry(folder, error);
        for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
            std::string name = entry->path().filename().string();
            if (!name.ends_with(ending))
                continue;
            name.resize(name.size() - ending.size());
            if (is_type_name(name))
                files.try_emplace(name, entry->path().string());
        }
    }
    return files;
}

TypeFolders::Known &TypeFolders::read(const std::string &path)
{
    struct stat link = {}, status = {};
    lstat(path.c_str(), &link);
    stat(path.c_str(), &status);
    auto [place, is_new] = known_.try_emplace(path);
    Known &known = place->second;
    bool is_same = !is_new && known.number == status.st_ino && known.size == status.st_size &&
                   known.changed.tv_sec == status.st_mtim.tv_sec &&
                   known.changed.tv_nsec == status.st_mtim.tv_nsec;
    known.reading = reading_;
    if (is_same)
        return known;

    known = {status.st_mtim, status.st_size, status.st_ino, {}, reading_};
    if (S_ISREG(status.st_mode) && !leads_out(path, link)) // a pipe would be waited for
        known.bytes =
            checked_bytes(DeclarationOwner(event_declaration_deserialize_xml_file(path.c_str())));
    if (known.bytes.empty())
        log_line(LogLevel::Warning, "%s is not an event declaration and is left out", path.c_str());
    return known;
}

void TypeFolders::append(const std::string &path, Known &known)
{
    bool fits = list_.size() + known.bytes.size() <= most_bytes_;
    if (fits)
        list_ += known.bytes;
    else if (known.is_listed)
        log_line(LogLevel::Warning, "%s is left out: the list of the types would be too long",
                 path.c_str());
    known.is_listed = fits;
}

const std::string &TypeFolders::list()
{
    if (watch_ && watch_->is_unchanged())
        return list_;
    if (watch_)
        watch_->note(); // before the reading: what changes meanwhile is read the next time
    ++reading_;
    guint32 count = 0;
    list_.assign(sizeof count, '\0');
    for (const auto &[type, path] : find_files()) {
        Known &known = read(path);
        append(path, known);
        count += known.is_listed && !known.bytes.empty();
    }
    count = GUINT32_TO_LE(count);
    std::memcpy(list_.data(), &count, sizeof count);
    std::erase_if(known_, [this](const auto &known) { return known.second.reading != reading_; });
    return list_;
}

} // namespace qandor
