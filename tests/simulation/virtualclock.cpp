// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/virtualclock.hpp"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <poll.h>
#include <sys/random.h>
#include <sys/time.h>
#include <sys/timerfd.h>

namespace qandor::simulation {
namespace {

constexpr Microseconds start = 1'000 * G_USEC_PER_SEC;
constexpr Microseconds real_time_offset = Microseconds(1'700'000'000) * G_USEC_PER_SEC;

struct Clock {
    virtual_clock::World world;
    Microseconds now = start;
    std::map<int, Microseconds> timers; // armed ones, by descriptor
    Microseconds longest_wait = 0;
};

Clock *installed = nullptr;
virtual_clock::Fails fails = [](const char *, const void *) { return false; };

template <class Function> Function *own(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

Microseconds to_usec(const timespec &time)
{
    return static_cast<Microseconds>(time.tv_sec) * G_USEC_PER_SEC +
           static_cast<Microseconds>(time.tv_nsec) / 1000;
}

timespec from_usec(Microseconds time)
{
    return {static_cast<time_t>(time / G_USEC_PER_SEC),
            static_cast<long>(time % G_USEC_PER_SEC * 1000)};
}

void let_expire(int timer)
{
    itimerspec soon = {{0, 0}, {0, 1}};
    own<decltype(timerfd_settime)>("timerfd_settime")(timer, 0, &soon, nullptr);
}

int poll_now(pollfd *descriptors, nfds_t count)
{
    static const timespec no_time = {0, 0};
    return own<decltype(ppoll)>("ppoll")(descriptors, count, &no_time, nullptr);
}

gint poll_for_glib(GPollFD *descriptors, guint count, gint)
{
    return poll_now(reinterpret_cast<pollfd *>(descriptors), count);
}

// Waits for a descriptor as long as the world needs to make it ready.
int wait(pollfd *descriptors, nfds_t count, std::optional<Microseconds> timeout)
{
    Microseconds begin = installed->now;
    Microseconds end = timeout ? begin + *timeout : G_MAXUINT64;
    int ready;
    while ((ready = poll_now(descriptors, count)) == 0 && installed->now < end) {
        if (installed->world.step())
            continue;
        Microseconds next = std::min(end, virtual_clock::next().value_or(end));
        if (next == G_MAXUINT64)
            g_error("a call waits for ever");
        virtual_clock::advance_to(next);
    }
    installed->longest_wait = std::max(installed->longest_wait, installed->now - begin);
    return ready;
}

} // namespace

void virtual_clock::install(World world)
{
    static Clock clock;
    clock.world = std::move(world);
    installed = &clock;
    g_main_context_set_poll_func(nullptr, poll_for_glib);
}

Microseconds virtual_clock::now()
{
    return installed->now;
}

void virtual_clock::advance_to(Microseconds time)
{
    installed->now = std::max(installed->now, time);
    for (auto timer = installed->timers.begin(); timer != installed->timers.end();) {
        if (timer->second > installed->now) {
            ++timer;
            continue;
        }
        let_expire(timer->first);
        timer = installed->timers.erase(timer);
    }
}

std::optional<Microseconds> virtual_clock::next()
{
    std::optional<Microseconds> next = installed->world.next();
    for (const auto &[descriptor, expiry] : installed->timers)
        next = std::min(next.value_or(expiry), expiry);
    return next;
}

Microseconds virtual_clock::longest_wait()
{
    return installed->longest_wait;
}

void virtual_clock::let_fail(Fails function)
{
    fails = function;
}

} // namespace qandor::simulation

#define CALLER __builtin_return_address(0)

using namespace qandor::simulation;

extern "C" {

int clock_gettime(clockid_t clock, timespec *time)
{
    if (!installed || clock == CLOCK_THREAD_CPUTIME_ID || clock == CLOCK_PROCESS_CPUTIME_ID)
        return own<decltype(clock_gettime)>(__func__)(clock, time);
    bool is_real =
        clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_REALTIME_ALARM;
    *time = from_usec(installed->now + (is_real ? real_time_offset : 0));
    return 0;
}

int gettimeofday(timeval *time, void *) noexcept
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

int timerfd_create(int clock, int flags) noexcept
{
    if (fails(__func__, CALLER))
        return -1;
    // The kernel's clock does not matter: the timer expires when it is told to.
    int descriptor = own<decltype(timerfd_create)>(__func__)(clock, flags);
    if (installed)
        installed->timers.erase(descriptor);
    return descriptor;
}

int timerfd_settime(int timer, int flags, const itimerspec *value, itimerspec *former) noexcept
{
    if (fails(__func__, CALLER))
        return -1;
    if (!installed)
        return own<decltype(timerfd_settime)>(__func__)(timer, flags, value, former);
    static const itimerspec disarmed = {};
    int r = own<decltype(timerfd_settime)>(__func__)(timer, 0, &disarmed, former);
    installed->timers.erase(timer);
    if (r < 0 || (value->it_value.tv_sec == 0 && value->it_value.tv_nsec == 0))
        return r;
    Microseconds expiry = to_usec(value->it_value);
    if (!(flags & TFD_TIMER_ABSTIME))
        expiry += installed->now;
    else if (expiry > real_time_offset)
        expiry -= real_time_offset;
    if (expiry <= installed->now)
        let_expire(timer);
    else
        installed->timers[timer] = expiry;
    return 0;
}

int ppoll(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *signals)
{
    if (fails(__func__, CALLER))
        return -1;
    bool waits = !timeout || timeout->tv_sec != 0 || timeout->tv_nsec != 0;
    if (!installed || !waits)
        return own<decltype(ppoll)>(__func__)(descriptors, count, timeout, signals);
    return wait(descriptors, count,
                timeout ? std::optional<Microseconds>(to_usec(*timeout)) : std::nullopt);
}

// Nothing random but the seed.
ssize_t getrandom(void *buffer, size_t size, unsigned flags)
{
    if (!installed)
        return own<decltype(getrandom)>(__func__)(buffer, size, flags);
    std::memset(buffer, 0x5A, size);
    return static_cast<ssize_t>(size);
}

} // extern "C"
