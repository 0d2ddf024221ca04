// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/simulatedswitch.hpp"

#include <qandor/switchbusclient.h>

#include <stdexcept>

namespace qandor::simulation {
namespace {

void check(int r, const char *what)
{
    if (r < 0)
        throw std::runtime_error(std::string("the switch cannot ") + what);
}

} // namespace

void SimulatedSwitch::start()
{
    has_failed_ = false;
    sd_event *loop = nullptr;
    check(sd_event_new(&loop), "make an event loop");
    loop_.reset(loop);
    sd_bus *bus = nullptr;
    check(sd_bus_new(&bus), "make a connection");
    bus_.reset(bus);
    int socket = simulated_bus_.connect(getuid());
    check(sd_bus_set_fd(bus, socket, socket), "use a socket");
    check(sd_bus_set_bus_client(bus, 1), "be a client");
    check(sd_bus_negotiate_fds(bus, 0), "refuse files");
    check(sd_bus_start(bus), "connect");
    name_ = simulated_bus_.name_of(socket);

    Configuration configuration;
    configuration.types_read_only = installed_types_.path().string();
    configuration.types_writable = added_types_.path().string();
    service_ = std::make_unique<Service>(bus, configuration);
    check(sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL), "attach the bus");
    check(service_->serve(), "serve");
    check(sd_bus_request_name(bus, DBUS_SERVICE_SWITCH, 0), "take its name");
}

void SimulatedSwitch::kill()
{
    simulated_bus_.cut(name_);
    service_.reset();
    bus_.reset();
    loop_.reset();
}

bool SimulatedSwitch::step()
{
    int r = service_ && !has_failed_ ? sd_event_run(loop_.get(), 0) : 0;
    has_failed_ = has_failed_ || r < 0;
    return r > 0;
}

bool SimulatedSwitch::has_failed() const
{
    return has_failed_ || (service_ && (sd_bus_is_open(bus_.get()) <= 0 ||
                                        sd_event_get_state(loop_.get()) == SD_EVENT_FINISHED));
}

} // namespace qandor::simulation
