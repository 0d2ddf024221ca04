// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordingwriter.hpp"

#include "cli/failure.hpp"
#include "cli/terminal.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace qandor::cli {
namespace {

int open_new(const std::string &path, bool overwrite)
{
    if (path == "-")
        return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL);
    return open(path.c_str(), flags, 0644);
}

} // namespace

RecordingWriter::RecordingWriter(const std::string &path, bool overwrite)
    : name_(path == "-" ? "The standard output" : printable(path)), file_(open_new(path, overwrite))
{
    if (file_ < 0 && errno == EEXIST)
        throw Failure(EX_CANTCREAT, name_ + " is there already", "--force writes over it.");
    if (file_ < 0)
        throw Failure(EX_CANTCREAT, name_ + " cannot be made: " + std::strerror(errno));
    started_ = g_get_monotonic_time();
    write(recording_header(g_get_real_time()));
}

RecordingWriter::~RecordingWriter()
{
    if (file_ >= 0)
        close(file_);
}

void RecordingWriter::add(EntryKind kind, std::string record, std::optional<guint32> user)
{
    auto time = static_cast<guint64>(g_get_monotonic_time() - started_);
    write(bytes_of({kind, time, user, std::move(record)}));
}

// Some file systems find out only now that they are full; pipes and terminals have nothing to say.
void RecordingWriter::finish()
{
    if (fsync(file_) < 0 && errno != EINVAL && errno != EROFS)
        fail();
    if (close(std::exchange(file_, -1)) < 0)
        fail();
}

void RecordingWriter::write(std::string_view bytes) const
{
    while (!bytes.empty()) {
        ssize_t count = ::write(file_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            fail();
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

void RecordingWriter::fail() const
{
    throw Failure(EX_IOERR, name_ + " cannot be written: " + std::strerror(errno),
                  "What was written before can be replayed.");
}

} // namespace qandor::cli
