// SPDX-License-Identifier: LGPL-2.1-or-later

#include "failures.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace qandor::faults {
namespace {

// What makes a message, a source or a slot needs memory alone.
const std::vector<int> memory = {ENOMEM};
// The end of a connection comes from the system calls, after which sd-bus knows of it.
const std::vector<int> sending = {ENOBUFS, ENOMEM};
const std::vector<int> descriptors = {EMFILE, ENOMEM};

const std::string short_name = "short";
const std::string end_name = "end";

std::string name_of(int failure)
{
    if (failure == short_transfer)
        return short_name;
    return failure == end_of_file ? end_name : strerrorname_np(failure);
}

std::optional<int> parse_failure(const std::string &name)
{
    if (name == short_name)
        return short_transfer;
    if (name == end_name)
        return end_of_file;
    constexpr int last_errno = 133;
    for (int error = 1; error <= last_errno; ++error)
        if (const char *its = strerrorname_np(error); its && name == its)
            return error;
    return std::nullopt;
}

} // namespace

// Not here: functions that only look at what they are given, and need no memory for it. They fail
// on what no program gives them.
const std::vector<Failures> &all_failures()
{
    static const std::vector<Failures> all = {
        {"sd_bus_new", memory},
        {"sd_bus_start", {ECONNREFUSED, ENOENT, ENOMEM}},
        {"sd_bus_set_address", memory},
        {"sd_bus_set_bus_client", {EPERM}},
        {"sd_bus_negotiate_fds", {EPERM}},
        {"sd_bus_set_close_on_exit", {ECHILD}},
        {"sd_bus_attach_event", memory},
        {"sd_bus_request_name", {EEXIST, EACCES, ENOMEM, ETIMEDOUT}},
        {"sd_bus_get_fd", {ECHILD}},
        {"sd_bus_get_unique_name", {ENODATA}},
        {"sd_bus_get_n_queued_read", {ECHILD}},
        {"sd_bus_get_n_queued_write", {ECHILD}},
        {"sd_bus_flush", sending},
        {"sd_bus_process", sending},
        {"sd_bus_wait", {EINTR, ENOTCONN}},
        {"sd_bus_add_filter", memory},
        {"sd_bus_add_match", {ENOMEM, ENOTCONN, ETIMEDOUT}},
        {"sd_bus_match_signal", {ENOMEM, ENOTCONN}},
        {"sd_bus_add_object_vtable", memory},
        {"sd_bus_call", {ENOMEM, ENOTCONN, ETIMEDOUT, EINTR}},
        {"sd_bus_call_async", sending},
        {"sd_bus_call_method_async", sending},
        {"sd_bus_send", sending},
        {"sd_bus_emit_properties_changed_strv", sending},
        {"sd_bus_reply_method_return", sending},
        {"sd_bus_reply_method_errorf", sending},
        {"sd_bus_query_sender_creds", {ENXIO, ENOMEM}},
        {"sd_bus_creds_get_euid", {ENODATA}},
        {"sd_bus_creds_get_uid", {ENODATA}},
        {"sd_bus_message_new_method_call", memory},
        {"sd_bus_message_new_method_return", memory},
        {"sd_bus_message_new_method_error", memory},
        {"sd_bus_message_new_method_errno", memory},
        {"sd_bus_message_new_method_errorf", memory},
        {"sd_bus_message_append", memory},
        {"sd_bus_message_append_array", memory},
        {"sd_bus_message_open_container", memory},
        {"sd_bus_message_close_container", memory},
        {"sd_bus_message_enter_container", memory},
        {"sd_bus_message_read", memory},
        {"sd_bus_message_read_array", memory},
        {"sd_bus_message_skip", memory},
        {"sd_bus_message_seal", memory},
        {"sd_bus_message_set_auto_start", {EPERM}},
        {"sd_bus_message_set_expect_reply", {EPERM}},
        {"sd_event_new", descriptors},
        {"sd_event_default", descriptors},
        {"sd_event_prepare", {EMFILE}},
        {"sd_event_wait", memory},
        {"sd_event_dispatch", memory},
        {"sd_event_loop", memory},
        {"sd_event_set_watchdog", {EPERM}},
        {"sd_event_add_io", memory},
        {"sd_event_add_time", descriptors},
        {"sd_event_add_time_relative", descriptors},
        {"sd_event_add_signal", descriptors},
        {"sd_event_add_post", memory},
        {"sd_event_add_defer", memory},
        {"sd_event_add_inotify", {EMFILE, ENOSPC, ENOENT}},
        {"sd_event_source_set_enabled", memory},
        {"sd_event_source_set_time", memory},
        {"sd_event_source_set_priority", memory},
        {"sd_event_exit", {ECHILD}},
        {"sendmsg", {EAGAIN, EINTR, ENOBUFS, ECONNRESET, EPIPE, ENOMEM, short_transfer}},
        {"recvmsg", {EAGAIN, EINTR, ECONNRESET, ENOMEM, end_of_file, short_transfer}},
        {"writev", {EAGAIN, EINTR, ECONNRESET, short_transfer}},
        {"epoll_create1", descriptors},
        {"epoll_ctl", {ENOMEM, ENOSPC}},
        {"epoll_wait", {EINTR}},
        {"ppoll", {EINTR, ENOMEM}},
        {"timerfd_create", descriptors},
        {"timerfd_settime", memory},
        {"inotify_init1", descriptors},
        {"inotify_add_watch", {ENOSPC, ENOENT}},
        {"poll", {EINTR, ENOMEM}},
        {"eventfd", descriptors},
        {"eventfd_read", {EAGAIN, EINTR}},
        {"eventfd_write", {EAGAIN, EINTR}},
        {"open", {EACCES, EMFILE, EINTR}},
        {"read", {EAGAIN, EINTR, EIO, short_transfer}},
        {"write", {EINTR, ENOSPC, EIO, short_transfer}},
        {"fsync", {EIO}},
        {"fchmod", {EPERM}},
        {"rename", {ENOSPC, EACCES}},
        {"unlink", {EACCES, EIO}},
        {"mkostemp", {ENOSPC, EMFILE, EACCES}},
        {"fstat", {EIO}},
        {"stat", {EIO, EACCES}},
        {"lstat", {EIO, EACCES}},
    };
    return all;
}

std::string name_of(const Fault &fault)
{
    return fault.function + ":" + name_of(fault.failure) + ":" + std::to_string(fault.number);
}

std::optional<Fault> parse_fault(const std::string &name)
{
    std::size_t first = name.find(':');
    std::size_t second = name.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos)
        return std::nullopt;
    std::optional<int> failure = parse_failure(name.substr(first + 1, second - first - 1));
    if (!failure)
        return std::nullopt;
    return Fault{name.substr(0, first), *failure,
                 std::strtoul(name.c_str() + second + 1, nullptr, 10)};
}

} // namespace qandor::faults
