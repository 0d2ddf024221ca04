// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/filechange.hpp"

#include "platform/owners.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace qandor {
namespace {

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

// An unfinished file has a name that no type can have, so it is never read.
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
    }
    return written;
}

} // namespace

int FileChange::apply() const
{
    bool is_changed = content ? replace_file(folder, path, *content) : unlink(path.c_str()) == 0;
    return is_changed && sync_folder(folder) ? 0 : errno;
}

} // namespace qandor
