// SPDX-License-Identifier: LGPL-2.1-or-later

// One owner for each foreign thing, so that nothing is freed by hand; and the base of records that
// come from GLib's slice allocator.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <utility>

namespace qandor {

template <auto release> struct Releaser {
    template <class Thing> void operator()(Thing *thing) const { release(thing); }
};

template <class Thing, auto release> using Owner = std::unique_ptr<Thing, Releaser<release>>;

using ArrayOwner = Owner<GArray, g_array_unref>;
using ErrorOwner = Owner<GError, g_error_free>;
using TextOwner = Owner<gchar, g_free>;
using BytesOwner = Owner<guint8, g_free>;

using BusMessageOwner = Owner<sd_bus_message, sd_bus_message_unref>;
using BusCredentialsOwner = Owner<sd_bus_creds, sd_bus_creds_unref>;
using BusSlotOwner = Owner<sd_bus_slot, sd_bus_slot_unref>;
using EventLoopOwner = Owner<sd_event, sd_event_unref>;
using EventTimerOwner = Owner<sd_event_source, sd_event_source_disable_unref>;
using MainSourceOwner = Owner<GSource, g_source_unref>;

// A file descriptor, or a negative number for none.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(); }

    int get() const { return number_; }
    void reset(int number)
    {
        close();
        number_ = number;
    }
    // Whether all that was written has arrived.
    bool close() { return number_ < 0 || ::close(std::exchange(number_, -1)) == 0; }

private:
    int number_;
};

// An error of sd-bus, filled in by a call.
class BusError {
public:
    BusError() = default;
    BusError(const BusError &) = delete;
    BusError &operator=(const BusError &) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error *get() { return &error_; }
    const char *message() const { return error_.message; }

private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// GLib's recursive mutex as std::lock_guard wants it.
class RecursiveMutex {
public:
    RecursiveMutex() { g_rec_mutex_init(&mutex_); }
    RecursiveMutex(const RecursiveMutex &) = delete;
    RecursiveMutex &operator=(const RecursiveMutex &) = delete;
    ~RecursiveMutex() { g_rec_mutex_clear(&mutex_); }

    void lock() { g_rec_mutex_lock(&mutex_); }
    void unlock() { g_rec_mutex_unlock(&mutex_); }

private:
    GRecMutex mutex_;
};

struct SliceAllocated {
    static void *operator new(std::size_t size) { return g_slice_alloc(size); }
    static void *operator new(std::size_t, void *place) { return place; }
    static void operator delete(void *record, std::size_t size) { g_slice_free1(size, record); }
};

} // namespace qandor
