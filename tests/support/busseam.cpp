// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/busseam.hpp"

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>

namespace qandor::test {
namespace {

thread_local BusSeam *on_this_thread = nullptr;

// What libsystemd calls of itself comes by as well, and is nobody's business.
BusSeam *seam_for(const void *caller)
{
    Dl_info here, there;
    bool is_own = dladdr(reinterpret_cast<const void *>(seam_for), &here) &&
                  dladdr(caller, &there) && here.dli_fbase == there.dli_fbase;
    return is_own ? BusSeam::current() : nullptr;
}

std::optional<int> enter(const char *function, const void *caller)
{
    BusSeam *seam = seam_for(caller);
    return seam ? seam->enter(function) : std::nullopt;
}

guint64 enter_call(guint64 timeout, const void *caller)
{
    BusSeam *seam = seam_for(caller);
    if (!seam)
        return timeout;
    seam->timeouts.push_back(timeout);
    return seam->timeout.value_or(timeout);
}

template <class Function> Function *own(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

BusSeam::BusSeam()
{
    on_this_thread = this;
}

BusSeam::~BusSeam()
{
    on_this_thread = nullptr;
}

BusSeam *BusSeam::current()
{
    return on_this_thread;
}

void BusSeam::fail(const std::string &function, int result, int error)
{
    failures_[function].push_back({result, error});
}

std::size_t BusSeam::count(const std::string &function) const
{
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), function));
}

std::optional<int> BusSeam::enter(const char *function)
{
    calls.emplace_back(function);
    if (on_call)
        on_call(function);
    return take_failure(function);
}

std::optional<int> BusSeam::take_failure(const char *function)
{
    std::deque<Failure> &failures = failures_[function];
    if (failures.empty())
        return std::nullopt;
    Failure failure = failures.front();
    failures.pop_front();
    errno = failure.error;
    return failure.result;
}

} // namespace qandor::test

using namespace qandor::test;

#define CALLER __builtin_return_address(0)

extern "C" {

int sd_event_new(sd_event **event)
{
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure : own<decltype(sd_event_new)>(__func__)(event);
}

int sd_bus_attach_event(sd_bus *bus, sd_event *event, int priority)
{
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure : own<decltype(sd_bus_attach_event)>(__func__)(bus, event, priority);
}

int sd_bus_flush(sd_bus *bus)
{
    enter(__func__, CALLER);
    return own<decltype(sd_bus_flush)>(__func__)(bus);
}

void sd_bus_close(sd_bus *bus)
{
    enter(__func__, CALLER);
    own<decltype(sd_bus_close)>(__func__)(bus);
}

sd_bus *sd_bus_unref(sd_bus *bus)
{
    enter(__func__, CALLER);
    return own<decltype(sd_bus_unref)>(__func__)(bus);
}

int sd_bus_add_match(sd_bus *bus, sd_bus_slot **slot, const char *rule,
                     sd_bus_message_handler_t handler, void *userdata)
{
    if (BusSeam *seam = seam_for(CALLER))
        seam->matches.push_back({rule, handler, userdata});
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure
                   : own<decltype(sd_bus_add_match)>(__func__)(bus, slot, rule, handler, userdata);
}

int sd_bus_add_object_vtable(sd_bus *bus, sd_bus_slot **slot, const char *path,
                             const char *interface, const sd_bus_vtable *vtable, void *userdata)
{
    if (BusSeam *seam = seam_for(CALLER))
        seam->objects.push_back({path, interface, vtable});
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure
                   : own<decltype(sd_bus_add_object_vtable)>(__func__)(bus, slot, path, interface,
                                                                       vtable, userdata);
}

int sd_bus_call_async(sd_bus *bus, sd_bus_slot **slot, sd_bus_message *message,
                      sd_bus_message_handler_t callback, void *userdata, uint64_t timeout)
{
    BusSeam *seam = seam_for(CALLER);
    if (std::optional<int> failure = seam ? seam->take_failure(__func__) : std::nullopt)
        return *failure;
    return own<decltype(sd_bus_call_async)>(__func__)(bus, slot, message, callback, userdata,
                                                      enter_call(timeout, CALLER));
}

int sd_bus_call(sd_bus *bus, sd_bus_message *message, uint64_t timeout, sd_bus_error *error,
                sd_bus_message **reply)
{
    return own<decltype(sd_bus_call)>(__func__)(bus, message, enter_call(timeout, CALLER), error,
                                                reply);
}

int sd_bus_query_sender_creds(sd_bus_message *message, uint64_t mask, sd_bus_creds **credentials)
{
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure
                   : own<decltype(sd_bus_query_sender_creds)>(__func__)(message, mask, credentials);
}

int sd_bus_creds_get_euid(sd_bus_creds *credentials, uid_t *uid)
{
    std::optional<int> failure = enter(__func__, CALLER);
    return failure ? *failure : own<decltype(sd_bus_creds_get_euid)>(__func__)(credentials, uid);
}

int sd_bus_creds_get_uid(sd_bus_creds *credentials, uid_t *uid)
{
    std::optional<int> failure = enter(__func__, CALLER);
    if (failure)
        return *failure;
    BusSeam *seam = seam_for(CALLER);
    if (!seam || !seam->real_user_id)
        return own<decltype(sd_bus_creds_get_uid)>(__func__)(credentials, uid);
    *uid = *seam->real_user_id;
    return 0;
}

} // extern "C"
