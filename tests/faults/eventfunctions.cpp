// SPDX-License-Identifier: LGPL-2.1-or-later

// What the program calls of sd-event.

#include "seam.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

using namespace qandor::faults;

#define CALLER __builtin_return_address(0)

#define IN_FRONT(function, parameters, arguments)                                                  \
    extern "C" int function parameters                                                             \
    {                                                                                              \
        static auto *const real = behind<decltype(function)>(#function);                           \
        int failure = failure_of(#function, CALLER, Callers::Program);                             \
        return failure ? -failure : real arguments;                                                \
    }

IN_FRONT(sd_event_new, (sd_event * *e), (e))
IN_FRONT(sd_event_default, (sd_event * *e), (e))
IN_FRONT(sd_event_prepare, (sd_event * e), (e))
IN_FRONT(sd_event_wait, (sd_event * e, uint64_t usec), (e, usec))
IN_FRONT(sd_event_dispatch, (sd_event * e), (e))
IN_FRONT(sd_event_loop, (sd_event * e), (e))
IN_FRONT(sd_event_set_watchdog, (sd_event * e, int b), (e, b))
IN_FRONT(sd_event_add_io,
         (sd_event * e, sd_event_source **s, int fd, uint32_t events,
          sd_event_io_handler_t callback, void *userdata),
         (e, s, fd, events, callback, userdata))
IN_FRONT(sd_event_add_time,
         (sd_event * e, sd_event_source **s, clockid_t clock, uint64_t usec, uint64_t accuracy,
          sd_event_time_handler_t callback, void *userdata),
         (e, s, clock, usec, accuracy, callback, userdata))
IN_FRONT(sd_event_add_time_relative,
         (sd_event * e, sd_event_source **s, clockid_t clock, uint64_t usec, uint64_t accuracy,
          sd_event_time_handler_t callback, void *userdata),
         (e, s, clock, usec, accuracy, callback, userdata))
IN_FRONT(sd_event_add_signal,
         (sd_event * e, sd_event_source **s, int sig, sd_event_signal_handler_t callback,
          void *userdata),
         (e, s, sig, callback, userdata))
IN_FRONT(sd_event_add_post,
         (sd_event * e, sd_event_source **s, sd_event_handler_t callback, void *userdata),
         (e, s, callback, userdata))
IN_FRONT(sd_event_add_defer,
         (sd_event * e, sd_event_source **s, sd_event_handler_t callback, void *userdata),
         (e, s, callback, userdata))
IN_FRONT(sd_event_add_inotify,
         (sd_event * e, sd_event_source **s, const char *path, uint32_t mask,
          sd_event_inotify_handler_t callback, void *userdata),
         (e, s, path, mask, callback, userdata))
IN_FRONT(sd_event_source_set_enabled, (sd_event_source * s, int enabled), (s, enabled))
IN_FRONT(sd_event_source_set_time, (sd_event_source * s, uint64_t usec), (s, usec))
IN_FRONT(sd_event_source_set_priority, (sd_event_source * s, int64_t priority), (s, priority))
IN_FRONT(sd_event_exit, (sd_event * e, int code), (e, code))
