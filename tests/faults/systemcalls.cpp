// SPDX-License-Identifier: LGPL-2.1-or-later

// System calls that the program makes, or libsystemd for it. Those of the simulated clock stand in
// front already and ask through virtual_clock::let_fail().

#include "seam.hpp"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

using namespace qandor::faults;

#define CALLER __builtin_return_address(0)

namespace {

// Whether the call fails; errno is set then.
bool fails(const char *function, const void *caller)
{
    int failure = failure_of(function, caller, Callers::ProgramAndSystemd);
    if (failure > 0)
        errno = failure;
    return failure > 0;
}

std::size_t part_of(std::size_t size)
{
    return size < 2 ? size : size / 2;
}

} // namespace

#define IN_FRONT(function, parameters, arguments)                                                  \
    extern "C" int function parameters                                                             \
    {                                                                                              \
        static auto *const real = behind<decltype(function)>(#function);                           \
        return fails(#function, CALLER) ? -1 : real arguments;                                     \
    }

IN_FRONT(epoll_create1, (int flags) noexcept, (flags))
IN_FRONT(epoll_ctl, (int epoll, int what, int file, epoll_event *event) noexcept,
         (epoll, what, file, event))
IN_FRONT(epoll_wait, (int epoll, epoll_event *events, int count, int timeout),
         (epoll, events, count, timeout))
IN_FRONT(eventfd, (unsigned count, int flags) noexcept, (count, flags))
IN_FRONT(eventfd_read, (int file, eventfd_t *value), (file, value))
IN_FRONT(eventfd_write, (int file, eventfd_t value), (file, value))
IN_FRONT(inotify_init1, (int flags) noexcept, (flags))
IN_FRONT(inotify_add_watch, (int file, const char *path, std::uint32_t mask) noexcept,
         (file, path, mask))
IN_FRONT(poll, (pollfd * files, nfds_t count, int timeout), (files, count, timeout))
IN_FRONT(fsync, (int file), (file))
IN_FRONT(fchmod, (int file, mode_t mode) noexcept, (file, mode))
IN_FRONT(rename, (const char *from, const char *to) noexcept, (from, to))
IN_FRONT(unlink, (const char *path) noexcept, (path))
IN_FRONT(fstat, (int file, struct stat *status) noexcept, (file, status))
IN_FRONT(stat, (const char *path, struct stat *status) noexcept, (path, status))
IN_FRONT(lstat, (const char *path, struct stat *status) noexcept, (path, status))
IN_FRONT(mkostemp, (char *pattern, int flags), (pattern, flags))

extern "C" int open(const char *path, int flags, ...)
{
    static auto *const real = behind<int(const char *, int, mode_t)>("open64");
    va_list list;
    va_start(list, flags);
    mode_t mode = flags & O_CREAT ? va_arg(list, mode_t) : 0;
    va_end(list);
    return fails(__func__, CALLER) ? -1 : real(path, flags, mode);
}

extern "C" ssize_t read(int file, void *bytes, size_t size)
{
    static auto *const real = behind<decltype(read)>("read");
    int failure = failure_of(__func__, CALLER, Callers::ProgramAndSystemd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return real(file, bytes, failure == short_transfer ? part_of(size) : size);
}

extern "C" ssize_t write(int file, const void *bytes, size_t size)
{
    static auto *const real = behind<decltype(write)>("write");
    int failure = failure_of(__func__, CALLER, Callers::ProgramAndSystemd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return real(file, bytes, failure == short_transfer ? part_of(size) : size);
}

// A part is a part of the first piece.
extern "C" ssize_t sendmsg(int file, const msghdr *message, int flags)
{
    static auto *const real = behind<decltype(sendmsg)>("sendmsg");
    int failure = failure_of(__func__, CALLER, Callers::ProgramAndSystemd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    if (failure != short_transfer || message->msg_iovlen == 0)
        return real(file, message, flags);
    iovec piece = message->msg_iov[0];
    piece.iov_len = part_of(piece.iov_len);
    msghdr part = *message;
    part.msg_iov = &piece;
    part.msg_iovlen = 1;
    return real(file, &part, flags);
}

extern "C" ssize_t recvmsg(int file, msghdr *message, int flags)
{
    static auto *const real = behind<decltype(recvmsg)>("recvmsg");
    int failure = failure_of(__func__, CALLER, Callers::ProgramAndSystemd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    if (failure == end_of_file)
        return 0;
    if (failure != short_transfer || message->msg_iovlen == 0)
        return real(file, message, flags);
    iovec piece = message->msg_iov[0];
    piece.iov_len = 1;
    msghdr part = *message;
    part.msg_iov = &piece;
    part.msg_iovlen = 1;
    ssize_t size = real(file, &part, flags);
    message->msg_controllen = part.msg_controllen;
    message->msg_flags = part.msg_flags;
    return size;
}

extern "C" ssize_t writev(int file, const iovec *pieces, int count)
{
    static auto *const real = behind<decltype(writev)>("writev");
    int failure = failure_of(__func__, CALLER, Callers::ProgramAndSystemd);
    if (failure > 0) {
        errno = failure;
        return -1;
    }
    return real(file, pieces, failure == short_transfer ? 1 : count);
}
