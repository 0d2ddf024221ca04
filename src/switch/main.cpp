// SPDX-License-Identifier: LGPL-2.1-or-later

// event-switch: connects to the system bus, serves, takes the name when all is ready, and gives it
// back when it is asked to stop.

#include "switch/notify.hpp"
#include "switch/options.hpp"
#include "switch/service.hpp"

#include <qandor/switchbusclient.h>

#include <systemd/sd-event.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

using namespace qandor;

namespace {

// Nothing is flushed here: the bus may not read.
using BusOwner = Owner<sd_bus, sd_bus_close_unref>;

// How long the bus has at the end to take what is left.
constexpr gint64 leaving_usec = 100 * 1000;

bool succeeds(int r, const char *what)
{
    if (r >= 0)
        return true;
    log_line(LogLevel::Error, "cannot %s: %s", what, std::strerror(-r));
    return false;
}

int stop(sd_event_source *source, const signalfd_siginfo *, void *)
{
    return sd_event_exit(sd_event_source_get_event(source), EXIT_SUCCESS);
}

int note_release(sd_bus_message *, void *is_released, sd_bus_error *)
{
    *static_cast<bool *>(is_released) = true;
    return 1;
}

// Gives the name back, and the bus a moment to take what is left. The bus does both by itself when
// the connection is closed, which is all that is done when it does not read.
void leave(sd_bus *bus)
{
    const gint64 end = g_get_monotonic_time() + leaving_usec;
    bool is_released = false;
    sd_bus_slot *slot = nullptr;
    int r = sd_bus_release_name_async(bus, &slot, DBUS_SERVICE_SWITCH, note_release, &is_released);
    BusSlotOwner owner(slot);
    while (r >= 0 && !is_released) {
        r = sd_bus_process(bus, nullptr);
        gint64 left = end - g_get_monotonic_time();
        if (left <= 0)
            return;
        if (r == 0)
            r = sd_bus_wait(bus, static_cast<guint64>(left));
    }
}

int lose_bus(sd_bus_message *signal, void *event, sd_bus_error *)
{
    if (g_strcmp0(sd_bus_message_get_sender(signal), "org.freedesktop.DBus.Local") != 0)
        return 0;
    log_line(LogLevel::Error, "the system bus has gone");
    return sd_event_exit(static_cast<sd_event *>(event), EXIT_FAILURE);
}

// What SIGHUP reads again, and for whom.
struct Reloading {
    const Options &options;
    Service &service;
    Notifier &notifier;
};

// A configuration that is wrong leaves the old one in force.
void read_again(Reloading &reloading)
{
    auto read = find_configuration(reloading.options);
    if (const auto *fault = std::get_if<ConfigurationFault>(&read)) {
        log_line(LogLevel::Error, "%s", fault->text.c_str());
        log_line(LogLevel::Warning, "the configuration stays as it was");
        return;
    }
    reloading.service.configure(std::get<Configuration>(read));
    log_line(LogLevel::Info, "the configuration has been read again");
}

int reload(sd_event_source *, const signalfd_siginfo *, void *data)
{
    auto &reloading = *static_cast<Reloading *>(data);
    reloading.notifier.reloading();
    read_again(reloading);
    reloading.notifier.ready();
    return 0;
}

bool watch_for_the_end(sd_event *event, sd_bus *bus)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return succeeds(sd_event_add_signal(event, nullptr, SIGTERM, stop, nullptr),
                    "wait for SIGTERM") &&
           succeeds(sd_event_add_signal(event, nullptr, SIGINT, stop, nullptr),
                    "wait for SIGINT") &&
           succeeds(sd_bus_match_signal(bus, nullptr, "org.freedesktop.DBus.Local",
                                        "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                        "Disconnected", lose_bus, event),
                    "watch the bus");
}

// The name is never handed over: whoever uses the switch wants to see it go and come.
bool take_name(sd_bus *bus)
{
    int r = sd_bus_request_name(bus, DBUS_SERVICE_SWITCH, 0);
    if (r != -EEXIST)
        return succeeds(r, "take the name " DBUS_SERVICE_SWITCH);
    log_line(LogLevel::Error, "another event switch has the name %s", DBUS_SERVICE_SWITCH);
    return false;
}

// As sd_bus_open_system() does, but for files that come with messages: nobody has any to pass, and
// calls that wait would keep them open.
int open_bus(sd_bus **bus)
{
    const char *address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    int r = sd_bus_new(bus);
    if (r >= 0)
        r = sd_bus_set_address(*bus, address ? address : "unix:path=/run/dbus/system_bus_socket");
    if (r >= 0)
        r = sd_bus_set_bus_client(*bus, 1);
    if (r >= 0)
        r = sd_bus_negotiate_fds(*bus, 0);
    // The end is leave(), which does not wait for a bus that does not read.
    if (r >= 0)
        r = sd_bus_set_close_on_exit(*bus, 0);
    return r < 0 ? r : sd_bus_start(*bus);
}

int run(const Options &options, const Configuration &configuration)
{
    sd_event *event = nullptr;
    if (!succeeds(sd_event_default(&event), "make an event loop"))
        return EXIT_FAILURE;
    EventLoopOwner event_owner(event);
    sd_bus *bus = nullptr;
    int opened = open_bus(&bus);
    BusOwner bus_owner(bus);
    if (!succeeds(opened, "connect to the system bus"))
        return EXIT_FAILURE;

    Service service(bus, configuration);
    Notifier notifier(event, [&service] { return service.counts(); });
    Reloading reloading{options, service, notifier};
    if (!succeeds(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "attach the bus") ||
        !watch_for_the_end(event, bus) ||
        !succeeds(sd_event_add_signal(event, nullptr, SIGHUP, reload, &reloading),
                  "wait for SIGHUP") ||
        !succeeds(service.serve(), "serve") || !take_name(bus))
        return EXIT_FAILURE;

    notifier.ready();
    log_line(LogLevel::Info, "serving %s", DBUS_SERVICE_SWITCH);
    int status = sd_event_loop(event);
    notifier.stopping();
    if (!succeeds(status, "run the event loop"))
        return EXIT_FAILURE;
    if (status == EXIT_SUCCESS)
        leave(bus);
    return status;
}

} // namespace

int main(int count, char **arguments)
{
    Options options;
    if (!parse_options(count, arguments, options))
        return EXIT_FAILURE;
    open_log(options.log_level);
    auto configuration = find_configuration(options);
    if (const auto *fault = std::get_if<ConfigurationFault>(&configuration)) {
        log_line(LogLevel::Error, "%s", fault->text.c_str());
        return EXIT_FAILURE;
    }
    return run(options, std::get<Configuration>(configuration));
}
