// SPDX-License-Identifier: LGPL-2.1-or-later

// Opening and closing a connection, and the watch over the switch's name.

#include "support/busseam.hpp"
#include "support/fakeswitch.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"

#include <qandor/busconnection.h>
#include <qandor/switchbusclient.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;

namespace {

// Connects in vain; what came of it as "domain code message".
std::string failure_to_connect()
{
    GSource *source = nullptr;
    sd_bus *bus = nullptr;
    GError *error = nullptr;
    int r = connect_to_bus_and_attach_events(&source, &bus, &error);
    ErrorOwner owner(error);
    EXPECT_LT(r, 0);
    EXPECT_EQ(source, nullptr) << "nothing is attached";
    if (!error)
        return "no error";
    EXPECT_EQ(error->code, r);
    return std::string(g_quark_to_string(error->domain)) + " " + std::to_string(error->code) + " " +
           error->message;
}

struct Connection {
    Connection()
    {
        GError *error = nullptr;
        EXPECT_GE(connect_to_bus_and_attach_events(&source, &bus, &error), 0);
        EXPECT_EQ(error, nullptr);
    }
    ~Connection() { close(); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void close()
    {
        if (bus)
            disconnect_from_bus_and_detach_events(source, bus);
        bus = nullptr;
    }
    // Waits until everything that the bus has sent before now has been dispatched.
    void settle() const
    {
        bool answered = false;
        sd_bus_call_method_async(
            bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetId",
            [](sd_bus_message *, void *done, sd_bus_error *) {
                *static_cast<bool *>(done) = true;
                return 0;
            },
            &answered, nullptr);
        EXPECT_TRUE(wait_until([&] { return answered; }));
    }

    GSource *source = nullptr;
    sd_bus *bus = nullptr;
};

TEST(Connecting, WithoutABusFailsWithTheErrnoOfOpeningIt)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_EQ(failure_to_connect(), "libqandor -2 Failed to connect to bus");
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

TEST(Connecting, WithoutALoopFailsAndLetsTheConnectionGo)
{
    PrivateBus private_bus;
    BusSeam seam;
    seam.fail("sd_event_new", -EMFILE);
    EXPECT_EQ(failure_to_connect(), "libqandor -24 Failed to get the default sd_event");
    EXPECT_EQ(seam.count("sd_bus_unref"), 1u);
}

TEST(Connecting, WithALoopThatCannotBeAttachedFailsAndLetsTheConnectionGo)
{
    PrivateBus private_bus;
    BusSeam seam;
    seam.fail("sd_bus_attach_event", -ENOMEM);
    EXPECT_EQ(failure_to_connect(), "libqandor -12 Failed to link sd_bus with sd_event");
    EXPECT_EQ(seam.count("sd_bus_unref"), 1u);
}

TEST(Connecting, AttachesToTheDefaultContextWithTheDefaultPriority)
{
    PrivateBus private_bus;
    Connection connection;
    EXPECT_EQ(g_source_get_context(connection.source), g_main_context_default());
    EXPECT_EQ(g_source_get_priority(connection.source), G_PRIORITY_DEFAULT);
    EXPECT_NE(sd_bus_get_event(connection.bus), nullptr);
}

TEST(ConnectingDeathTest, WantsPlacesForItsResults)
{
    GSource *source = nullptr;
    sd_bus *bus = nullptr;
    EXPECT_DEATH(connect_to_bus_and_attach_events(nullptr, &bus, nullptr), "source != NULL");
    EXPECT_DEATH(connect_to_bus_and_attach_events(&source, nullptr, nullptr), "bus != NULL");
}

TEST(Disconnecting, FlushesClosesReleasesAndThenDetaches)
{
    PrivateBus private_bus;
    Connection connection;
    MainSourceOwner source(g_source_ref(connection.source));
    BusSeam seam;
    bool was_attached = true;
    seam.on_call = [&](const std::string &) {
        was_attached = was_attached && !g_source_is_destroyed(source.get());
    };
    connection.close();
    EXPECT_THAT(seam.calls, ElementsAre("sd_bus_flush", "sd_bus_close", "sd_bus_unref"));
    EXPECT_TRUE(was_attached);
    EXPECT_TRUE(g_source_is_destroyed(source.get()));
}

TEST(Disconnecting, LosesNothingThatWasSentBefore)
{
    PrivateBus private_bus;
    FakeSwitch event_switch;
    Connection connection;
    constexpr guint32 count = 300; // more than may wait for answers at a time
    auto ignore = [](sd_bus_message *, void *, sd_bus_error *) { return 0; };
    for (guint32 i = 0; i < count; ++i)
        com_vemo_Event_Switch_Producer_undeclare_async(connection.bus, "/p", i, ignore, nullptr);
    com_vemo_Event_Switch_Producer_disconnect_async(connection.bus, "/p", ignore, nullptr);
    connection.close();
    EXPECT_TRUE(wait_until([&] { return event_switch.count("Disconnect") == 1; }));
    std::vector<SwitchCall> calls = event_switch.calls();
    ASSERT_EQ(calls.size(), count + 1);
    for (guint32 i = 0; i < count; ++i)
        EXPECT_THAT(calls[i].numbers, ElementsAre(i));
}

TEST(DisconnectingDeathTest, WantsASourceAndABus)
{
    PrivateBus private_bus;
    EXPECT_DEATH(disconnect_from_bus_and_detach_events(nullptr, Connection().bus),
                 "source != NULL");
    EXPECT_DEATH(disconnect_from_bus_and_detach_events(Connection().source, nullptr),
                 "bus != NULL");
}

TEST(BusEventSource, ALoopThatHasExitedIsServicedNoMore)
{
    PrivateBus private_bus;
    Connection connection;
    MainSourceOwner source(g_source_ref(connection.source));
    connection.settle();
    sd_event_exit(sd_bus_get_event(connection.bus), 0);
    EXPECT_TRUE(wait_until([&] { return g_source_is_destroyed(source.get()); }));
    connection.close();
}

// What the watcher was told, "+" for the switch's coming and "-" for its going.
struct Told {
    std::string text;
    bus_driver_watcher watcher = {
        [](gpointer self) { static_cast<Told *>(self)->text += "+"; },
        [](gpointer self) { static_cast<Told *>(self)->text += "-"; },
        this,
    };
};

TEST(BusDriverWatch, TellsOfEachComingAndGoingOnce)
{
    PrivateBus private_bus;
    FakeSwitch event_switch;
    Connection connection;
    Told told;
    EXPECT_GE(watch_bus_driver(connection.bus, &told.watcher), 0);
    connection.settle();
    EXPECT_EQ(told.text, "") << "how things stand is not told";
    event_switch.leave();
    EXPECT_TRUE(wait_until([&] { return told.text == "-"; }));
    event_switch.come();
    EXPECT_TRUE(wait_until([&] { return told.text == "-+"; }));
    event_switch.leave();
    connection.settle();
    EXPECT_EQ(told.text, "-+-");
}

TEST(BusDriverWatch, KnowsOfNobodyElse)
{
    PrivateBus private_bus;
    FakeSwitch event_switch(FakeSwitch::Name::NotTaken);
    Connection connection;
    Told told;
    watch_bus_driver(connection.bus, &told.watcher);
    connection.settle();
    // Another name would end the process.
    for (int i = 0; i < 5; ++i)
        FakeSwitch other(FakeSwitch::Name::NotTaken);
    event_switch.come();
    EXPECT_TRUE(wait_until([&] { return told.text == "+"; }));
    connection.settle();
    EXPECT_EQ(told.text, "+");
}

TEST(BusDriverWatch, NeedsNoFunctions)
{
    PrivateBus private_bus;
    FakeSwitch event_switch;
    Connection connection;
    Told told;
    bus_driver_watcher deaf = {nullptr, nullptr, nullptr};
    watch_bus_driver(connection.bus, &deaf);
    watch_bus_driver(connection.bus, &told.watcher);
    connection.settle();
    event_switch.leave();
    event_switch.come();
    EXPECT_TRUE(wait_until([&] { return told.text == "-+"; }));
}

TEST(BusDriverWatch, AsksTheBusForTheSwitchsNameAlone)
{
    PrivateBus private_bus;
    Connection connection;
    Told told;
    BusSeam seam;
    watch_bus_driver(connection.bus, &told.watcher);
    ASSERT_EQ(seam.matches.size(), 1u);
    EXPECT_EQ(seam.matches[0].rule,
              "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
              "interface='org.freedesktop.DBus',member='NameOwnerChanged',"
              "arg0='com.vemo.Event.Switch'");
}

TEST(BusDriverWatch, IsTriedAgainOnlyWhenItWasInterrupted)
{
    PrivateBus private_bus;
    Connection connection;
    Told told;
    BusSeam seam;
    seam.fail("sd_bus_add_match", -1, EINTR);
    seam.fail("sd_bus_add_match", -1, EINTR);
    EXPECT_GE(watch_bus_driver(connection.bus, &told.watcher), 0);
    EXPECT_EQ(seam.count("sd_bus_add_match"), 3u);

    seam.fail("sd_bus_add_match", -1, EPERM);
    EXPECT_EQ(watch_bus_driver(connection.bus, &told.watcher), -1);
    seam.fail("sd_bus_add_match", -EINTR, EINTR);
    EXPECT_EQ(watch_bus_driver(connection.bus, &told.watcher), -EINTR);
    EXPECT_EQ(seam.count("sd_bus_add_match"), 5u);
}

// A signal that any connection may send straight to another one.
class Stranger {
public:
    Stranger()
    {
        sd_bus *made = nullptr;
        EXPECT_GE(sd_bus_open_system(&made), 0);
        bus_.reset(made);
    }

    template <class... Values>
    void signal(const Connection &to, const char *types, Values... values)
    {
        const char *name = nullptr;
        sd_bus_get_unique_name(to.bus, &name);
        sd_bus_message *made = nullptr;
        sd_bus_message_new_signal(bus_.get(), &made, "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "NameOwnerChanged");
        BusMessageOwner message(made);
        sd_bus_message_append(made, types, values...);
        EXPECT_GE(sd_bus_send_to(bus_.get(), made, name, nullptr), 0);
        // The bus handles messages in order: the signal is on its way when this is answered.
        sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetId", nullptr, nullptr, nullptr);
    }

private:
    Owner<sd_bus, sd_bus_flush_close_unref> bus_;
};

TEST(BusDriverWatch, BelievesNobodyButTheBus)
{
    PrivateBus private_bus;
    FakeSwitch event_switch;
    Connection connection;
    Told told;
    watch_bus_driver(connection.bus, &told.watcher);
    Stranger stranger;
    const char *name = "com.vemo.Event.Switch";
    stranger.signal(connection, "sss", name, ":1.0", "");
    stranger.signal(connection, "sss", name, "", ":1.5");
    stranger.signal(connection, "sss", name, ":1.0", ":1.5");
    stranger.signal(connection, "sss", name, "", "");
    stranger.signal(connection, "s", name);
    connection.settle();
    EXPECT_EQ(told.text, "");
    event_switch.leave();
    EXPECT_TRUE(wait_until([&] { return told.text == "-"; }));
}

class BusDriverWatchDeathTest : public testing::Test {
protected:
    BusDriverWatchDeathTest()
    {
        BusSeam seam;
        watch_bus_driver(connection.bus, &told.watcher);
        match = seam.matches.at(0);
    }

    // Gives the handler a signal with such a body.
    template <class... Values> void signal(const char *types, Values... values)
    {
        sd_bus_message *made = nullptr;
        sd_bus_message_new_signal(connection.bus, &made, "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "NameOwnerChanged");
        BusMessageOwner message(made);
        sd_bus_message_set_sender(made, sender);
        sd_bus_message_append(made, types, values...);
        sd_bus_message_seal(made, 1, 0);
        match.handler(made, match.userdata, nullptr);
    }

    PrivateBus private_bus;
    Connection connection;
    Told told;
    BusSeam::Match match;
    const char *sender = "org.freedesktop.DBus";
};

TEST_F(BusDriverWatchDeathTest, WantsABusAndAWatcher)
{
    EXPECT_DEATH(watch_bus_driver(nullptr, &told.watcher), "bus != NULL");
    EXPECT_DEATH(watch_bus_driver(connection.bus, nullptr), "watcher != NULL");
    EXPECT_DEATH(match.handler(nullptr, match.userdata, nullptr), "message != NULL");
    match.userdata = nullptr;
    EXPECT_DEATH(signal("sss", "com.vemo.Event.Switch", "", ":1.1"), "watcher != NULL");
}

TEST_F(BusDriverWatchDeathTest, TrustsTheBusToTellOfAChangeOfTheSwitchAlone)
{
    signal("sss", "com.vemo.Event.Switch", "", ":1.1");
    EXPECT_EQ(told.text, "+");
    EXPECT_DEATH(signal("u", 1), "r >= 0");
    EXPECT_DEATH(signal("sss", "com.vemo.Other", "", ":1.1"), "name == DBUS_SERVICE_SWITCH");
}

TEST_F(BusDriverWatchDeathTest, ReadsNothingThatIsNotTheBussOwn)
{
    sender = ":1.1";
    signal("u", 1);
    signal("sss", "com.vemo.Event.Switch", "", ":1.1");
    sender = "com.vemo.Event.Switch";
    signal("sss", "com.vemo.Event.Switch", "", ":1.1");
    EXPECT_EQ(told.text, "");
}

TEST_F(BusDriverWatchDeathTest, TheSwitchNeverHandsItsNameOver)
{
    EXPECT_DEATH(signal("sss", "com.vemo.Event.Switch", ":1.1", ":1.2"),
                 "code should not be reached");
    EXPECT_DEATH(signal("sss", "com.vemo.Event.Switch", "", ""), "code should not be reached");
}

} // namespace
