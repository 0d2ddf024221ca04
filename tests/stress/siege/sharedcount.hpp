// SPDX-License-Identifier: LGPL-2.1-or-later

// A number in memory that a process shares with the processes it forks.
#pragma once

#include <glib.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace qandor::test {

class SharedCount {
public:
    SharedCount()
    {
        void *shared = mmap(nullptr, sizeof *count_, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED)
            throw std::runtime_error("cannot share memory");
        count_ = new (shared) std::atomic<guint64>(0);
    }
    SharedCount(const SharedCount &) = delete;
    SharedCount &operator=(const SharedCount &) = delete;
    ~SharedCount() { munmap(count_, sizeof *count_); }

    void add(guint64 more = 1) { *count_ += more; }
    void set(guint64 count) { *count_ = count; }
    guint64 get() const { return *count_; }

    // Waits until it is at least @count; returns false after a timeout.
    bool reaches(guint64 count, double seconds) const
    {
        gint64 until = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
        while (*count_ < count) {
            if (g_get_monotonic_time() >= until)
                return false;
            usleep(2000);
        }
        return true;
    }
    // Waits until it has not changed for @quiet_seconds, at most @seconds.
    void settles(double quiet_seconds, double seconds) const
    {
        auto ticks = [](double s) { return static_cast<gint64>(s * G_USEC_PER_SEC); };
        gint64 until = g_get_monotonic_time() + ticks(seconds), grown = g_get_monotonic_time();
        for (guint64 last = *count_; g_get_monotonic_time() < until; usleep(10000)) {
            if (guint64 now = *count_; now != last) {
                last = now;
                grown = g_get_monotonic_time();
            }
            if (g_get_monotonic_time() - grown > ticks(quiet_seconds))
                return;
        }
    }

private:
    std::atomic<guint64> *count_;
};

} // namespace qandor::test
