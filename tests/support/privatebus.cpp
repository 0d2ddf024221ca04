// SPDX-License-Identifier: LGPL-2.1-or-later

#include "support/privatebus.hpp"

#include <cstdlib>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace qandor::test {
namespace {

// The policy of a stock system bus: nobody owns a name and nobody calls anybody, unless a policy
// file says so. The user that the daemon would change to is left out, as it runs as the test's own.
constexpr const char *config_head = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Properties"/>
    <deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"
          send_member="UpdateActivationEnvironment"/>
    <deny send_destination="org.freedesktop.DBus"
          send_interface="org.freedesktop.DBus.Debug.Stats"/>
    <deny send_destination="org.freedesktop.DBus"
          send_interface="org.freedesktop.systemd1.Activator"/>
  </policy>
)";

// The policy file names the switch's own user, which a test's machine does not have.
std::string policy_for_current_user()
{
    std::ifstream file(QANDOR_POLICY_FILE);
    std::stringstream text;
    text << file.rdbuf();
    std::string policy = text.str();
    const passwd *user = getpwuid(geteuid());
    const std::string placeholder = "user=\"event-switch\"";
    const std::string current = std::string("user=\"") + user->pw_name + "\"";
    for (std::size_t at; (at = policy.find(placeholder)) != std::string::npos;)
        policy.replace(at, placeholder.size(), current);
    return policy;
}

} // namespace

BusKind chosen_bus()
{
    const char *said = std::getenv("QANDOR_TEST_BUS");
    std::string kind = said ? said : "daemon";
    if (kind != "daemon" && kind != "broker")
        throw std::runtime_error("QANDOR_TEST_BUS: expected daemon or broker, got " + kind);
    return kind == "broker" ? BusKind::Broker : BusKind::Daemon;
}

PrivateBus::PrivateBus(BusKind kind, const std::string &more) : kind_(kind)
{
    std::string policy = folder_.write("policy.conf", policy_for_current_user());
    std::string socket = (folder_.path() / "bus").string();
    config_ = folder_.write("bus.conf", std::string(config_head) + "  <listen>unix:path=" + socket +
                                            "</listen>\n  <include>" + policy + "</include>\n" +
                                            more + "</busconfig>\n");
    start();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

std::vector<std::string> PrivateBus::command() const
{
    if (kind_ == BusKind::Broker)
        return {QANDOR_LAUNCH_BROKER, config_, (folder_.path() / "bus").string()};
    return {"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + config_,
            "--print-address=1"};
}

void PrivateBus::start()
{
    daemon_.emplace(command());
    std::optional<std::string> address = daemon_->read_line();
    if (!address)
        throw std::runtime_error("the bus does not start");
    // The part behind the path is another one after each start.
    address_ = address->substr(0, address->find(','));
}

PrivateBus::~PrivateBus()
{
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void PrivateBus::kill()
{
    daemon_->signal(SIGKILL);
    daemon_->wait();
}

} // namespace qandor::test
