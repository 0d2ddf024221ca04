// SPDX-License-Identifier: LGPL-2.1-or-later

// What the program calls of sd-bus.

#include "seam.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdarg>
#include <cstring>

using namespace qandor::faults;

#define CALLER __builtin_return_address(0)

#define IN_FRONT(function, parameters, arguments)                                                  \
    extern "C" int function parameters                                                             \
    {                                                                                              \
        static auto *const real = behind<decltype(function)>(#function);                           \
        int failure = failure_of(#function, CALLER, Callers::Program);                             \
        return failure ? -failure : real arguments;                                                \
    }

IN_FRONT(sd_bus_new, (sd_bus * *ret), (ret))
IN_FRONT(sd_bus_start, (sd_bus * bus), (bus))
IN_FRONT(sd_bus_set_address, (sd_bus * bus, const char *address), (bus, address))
IN_FRONT(sd_bus_set_bus_client, (sd_bus * bus, int b), (bus, b))
IN_FRONT(sd_bus_negotiate_fds, (sd_bus * bus, int b), (bus, b))
IN_FRONT(sd_bus_set_close_on_exit, (sd_bus * bus, int b), (bus, b))
IN_FRONT(sd_bus_attach_event, (sd_bus * bus, sd_event *e, int priority), (bus, e, priority))
IN_FRONT(sd_bus_request_name, (sd_bus * bus, const char *name, uint64_t flags), (bus, name, flags))
IN_FRONT(sd_bus_release_name_async,
         (sd_bus * bus, sd_bus_slot **ret_slot, const char *name, sd_bus_message_handler_t callback,
          void *userdata),
         (bus, ret_slot, name, callback, userdata))
IN_FRONT(sd_bus_get_fd, (sd_bus * bus), (bus))
IN_FRONT(sd_bus_get_unique_name, (sd_bus * bus, const char **unique), (bus, unique))
IN_FRONT(sd_bus_get_n_queued_write, (sd_bus * bus, uint64_t *ret), (bus, ret))
IN_FRONT(sd_bus_get_n_queued_read, (sd_bus * bus, uint64_t *ret), (bus, ret))
IN_FRONT(sd_bus_flush, (sd_bus * bus), (bus))
IN_FRONT(sd_bus_process, (sd_bus * bus, sd_bus_message **r), (bus, r))
IN_FRONT(sd_bus_wait, (sd_bus * bus, uint64_t timeout_usec), (bus, timeout_usec))
IN_FRONT(sd_bus_add_filter,
         (sd_bus * bus, sd_bus_slot **slot, sd_bus_message_handler_t callback, void *userdata),
         (bus, slot, callback, userdata))
IN_FRONT(sd_bus_add_match,
         (sd_bus * bus, sd_bus_slot **slot, const char *match, sd_bus_message_handler_t callback,
          void *userdata),
         (bus, slot, match, callback, userdata))
IN_FRONT(sd_bus_match_signal,
         (sd_bus * bus, sd_bus_slot **slot, const char *sender, const char *path,
          const char *interface, const char *member, sd_bus_message_handler_t callback,
          void *userdata),
         (bus, slot, sender, path, interface, member, callback, userdata))
IN_FRONT(sd_bus_add_object_vtable,
         (sd_bus * bus, sd_bus_slot **slot, const char *path, const char *interface,
          const sd_bus_vtable *vtable, void *userdata),
         (bus, slot, path, interface, vtable, userdata))
IN_FRONT(sd_bus_call,
         (sd_bus * bus, sd_bus_message *m, uint64_t usec, sd_bus_error *ret_error,
          sd_bus_message **reply),
         (bus, m, usec, ret_error, reply))
IN_FRONT(sd_bus_call_async,
         (sd_bus * bus, sd_bus_slot **slot, sd_bus_message *m, sd_bus_message_handler_t callback,
          void *userdata, uint64_t usec),
         (bus, slot, m, callback, userdata, usec))
IN_FRONT(sd_bus_send, (sd_bus * bus, sd_bus_message *m, uint64_t *cookie), (bus, m, cookie))
IN_FRONT(sd_bus_query_sender_creds, (sd_bus_message * m, uint64_t mask, sd_bus_creds **creds),
         (m, mask, creds))
IN_FRONT(sd_bus_creds_get_euid, (sd_bus_creds * c, uid_t *euid), (c, euid))
IN_FRONT(sd_bus_creds_get_uid, (sd_bus_creds * c, uid_t *uid), (c, uid))
IN_FRONT(sd_bus_emit_properties_changed_strv,
         (sd_bus * bus, const char *path, const char *interface, char **names),
         (bus, path, interface, names))
IN_FRONT(sd_bus_message_new_method_call,
         (sd_bus * bus, sd_bus_message **m, const char *destination, const char *path,
          const char *interface, const char *member),
         (bus, m, destination, path, interface, member))
IN_FRONT(sd_bus_message_new_method_return, (sd_bus_message * call, sd_bus_message **m), (call, m))
IN_FRONT(sd_bus_message_new_method_error,
         (sd_bus_message * call, sd_bus_message **m, const sd_bus_error *e), (call, m, e))
IN_FRONT(sd_bus_message_new_method_errno,
         (sd_bus_message * call, sd_bus_message **m, int error, const sd_bus_error *e),
         (call, m, error, e))
IN_FRONT(sd_bus_message_append_array, (sd_bus_message * m, char type, const void *ptr, size_t size),
         (m, type, ptr, size))
IN_FRONT(sd_bus_message_open_container, (sd_bus_message * m, char type, const char *contents),
         (m, type, contents))
IN_FRONT(sd_bus_message_close_container, (sd_bus_message * m), (m))
IN_FRONT(sd_bus_message_enter_container, (sd_bus_message * m, char type, const char *contents),
         (m, type, contents))
IN_FRONT(sd_bus_message_read_array, (sd_bus_message * m, char type, const void **ptr, size_t *size),
         (m, type, ptr, size))
IN_FRONT(sd_bus_message_skip, (sd_bus_message * m, const char *types), (m, types))
IN_FRONT(sd_bus_message_seal, (sd_bus_message * m, uint64_t cookie, uint64_t timeout_usec),
         (m, cookie, timeout_usec))
IN_FRONT(sd_bus_message_set_auto_start, (sd_bus_message * m, int b), (m, b))
IN_FRONT(sd_bus_message_set_expect_reply, (sd_bus_message * m, int b), (m, b))

// Those with arguments of any number stand before their twins with a va_list.
#define IN_FRONT_OF_LIST(function, twin, parameters, last, arguments)                              \
    extern "C" int function parameters                                                             \
    {                                                                                              \
        if (int failure = failure_of(#function, CALLER, Callers::Program))                         \
            return -failure;                                                                       \
        va_list list;                                                                              \
        va_start(list, last);                                                                      \
        int r = twin arguments;                                                                    \
        va_end(list);                                                                              \
        return r;                                                                                  \
    }

IN_FRONT_OF_LIST(sd_bus_message_append, sd_bus_message_appendv,
                 (sd_bus_message * m, const char *types, ...), types, (m, types, list))
IN_FRONT_OF_LIST(sd_bus_reply_method_return, sd_bus_reply_method_returnv,
                 (sd_bus_message * call, const char *types, ...), types, (call, types, list))
IN_FRONT_OF_LIST(sd_bus_reply_method_errorf, sd_bus_reply_method_errorfv,
                 (sd_bus_message * call, const char *name, const char *format, ...), format,
                 (call, name, format, list))
IN_FRONT_OF_LIST(sd_bus_call_method_async, sd_bus_call_method_asyncv,
                 (sd_bus * bus, sd_bus_slot **slot, const char *destination, const char *path,
                  const char *interface, const char *member, sd_bus_message_handler_t callback,
                  void *userdata, const char *types, ...),
                 types,
                 (bus, slot, destination, path, interface, member, callback, userdata, types, list))

// This one has no twin.
extern "C" int sd_bus_message_new_method_errorf(sd_bus_message *call, sd_bus_message **m,
                                                const char *name, const char *format, ...)
{
    static auto *const real =
        behind<decltype(sd_bus_message_new_method_error)>("sd_bus_message_new_method_error");
    if (int failure = failure_of(__func__, CALLER, Callers::Program))
        return -failure;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    va_list list;
    va_start(list, format);
    sd_bus_error_setfv(&error, name, format, list);
    va_end(list);
    int r = real(call, m, &error);
    sd_bus_error_free(&error);
    return r;
}

// Numbers and texts are read without memory.
extern "C" int sd_bus_message_read(sd_bus_message *m, const char *types, ...)
{
    bool needs_memory = std::strpbrk(types, "av({") != nullptr;
    if (int failure = needs_memory ? failure_of(__func__, CALLER, Callers::Program) : 0)
        return -failure;
    va_list list;
    va_start(list, types);
    int r = sd_bus_message_readv(m, types, list);
    va_end(list);
    return r;
}
