// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/typefolders.hpp"

#include "model/checker.hpp"
#include "switch/log.hpp"

#include <fcntl.h>
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

bool write_all(int file, std::string_view text)
{
    while (!text.empty()) {
        ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool sync_folder(const std::string &folder)
{
    Descriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return file.get() >= 0 && fsync(file.get()) == 0;
}

// A file that is not finished has a name that is no type's, so that nobody reads it.
bool replace_file(const std::string &folder, const std::string &path, std::string_view text)
{
    std::string unfinished = folder + "/.new-XXXXXX";
    Descriptor file(mkostemp(unfinished.data(), O_CLOEXEC));
    if (file.get() < 0)
        return false;
    bool written = write_all(file.get(), text) && fchmod(file.get(), 0644) == 0 &&
                   fsync(file.get()) == 0 && file.close() &&
                   rename(unfinished.c_str(), path.c_str()) == 0;
    if (!written) {
        int reason = errno;
        unlink(unfinished.c_str());
        errno = reason;
        return false;
    }
    return sync_folder(folder);
}

// The record of a file's declaration; empty when the file holds none. Also refuses what XML can say
// and a record cannot, such as a text that is too long.
std::string read_declaration(const std::string &path)
{
    DeclarationOwner declaration(event_declaration_deserialize_xml_file(path.c_str()));
    if (!declaration)
        return {};
    ArrayOwner bytes(event_declaration_serialize(declaration.get()));
    if (check_record(RecordKind::EventDeclaration, reinterpret_cast<const guint8 *>(bytes->data),
                     bytes->len))
        return {};
    return {bytes->data, bytes->len};
}

// Escaped text grows, and a document that is too large is not read.
bool is_readable(const char *xml)
{
    DeclarationOwner declaration(event_declaration_deserialize_xml(xml));
    return declaration != nullptr;
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

TypeResult failed(const char *what, const std::string &path)
{
    log_line(LogLevel::Warning, "cannot %s %s: %s", what, path.c_str(), std::strerror(errno));
    return TypeResult::Failed;
}

} // namespace

void TypeFolders::watch(sd_event *event)
{
    watch_ = std::make_unique<FolderWatch>(event, std::vector<std::string>{read_only_, writable_});
}

TypeResult TypeFolders::add(const std::string &type, const event_declaration *declaration)
{
    if (!is_type_name(type))
        return TypeResult::BadName;
    if (exists(path_of(read_only_, type)))
        return TypeResult::Exists;
    if (watch_)
        watch_->forget();
    std::string path = path_of(writable_, type);
    TextOwner xml(event_declaration_serialize_xml(declaration));
    if (!is_readable(xml.get()))
        return TypeResult::Unreadable;
    return replace_file(writable_, path, xml.get()) ? TypeResult::Done : failed("write", path);
}

TypeResult TypeFolders::remove(const std::string &type)
{
    if (!is_type_name(type))
        return TypeResult::BadName;
    if (exists(path_of(read_only_, type)))
        return TypeResult::ReadOnly;
    if (watch_)
        watch_->forget();
    std::string path = path_of(writable_, type);
    if (unlink(path.c_str()) == 0)
        return sync_folder(writable_) ? TypeResult::Done : failed("sync", writable_);
    return errno == ENOENT ? TypeResult::NotFound : failed("remove", path);
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

const std::string &TypeFolders::read(const std::string &path)
{
    struct stat link = {}, status = {};
    lstat(path.c_str(), &link);
    stat(path.c_str(), &status);
    auto [place, is_new] = known_.try_emplace(path);
    Known &known = place->second;
    bool is_same = !is_new && known.number == status.st_ino && known.size == status.st_size &&
                   known.changed.tv_sec == status.st_mtim.tv_sec &&
                   known.changed.tv_nsec == status.st_mtim.tv_nsec;
    if (is_same) {
        known.reading = reading_;
        return known.bytes;
    }

    known = {status.st_mtim, status.st_size, status.st_ino, {}, reading_};
    if (S_ISREG(status.st_mode) && !leads_out(path, link)) // a pipe would be waited for
        known.bytes = read_declaration(path);
    if (known.bytes.empty())
        log_line(LogLevel::Warning, "%s is no event declaration and is left out", path.c_str());
    return known.bytes;
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
        const std::string &bytes = read(path);
        list_ += bytes;
        count += !bytes.empty();
    }
    count = GUINT32_TO_LE(count);
    std::memcpy(list_.data(), &count, sizeof count);
    std::erase_if(known_, [this](const auto &known) { return known.second.reading != reading_; });
    return list_;
}

} // namespace qandor
