// SPDX-License-Identifier: LGPL-2.1-or-later

// The interfaces that every service on a bus has, as tools such as busctl use them.

#include "rawpeer.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <systemd/sd-id128.h>

using namespace qandor;
using namespace qandor::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char *switch_object = "/com/vemo/Event/Switch";
constexpr const char *monitor = "com.vemo.Event.Switch.Monitor";
constexpr const char *peer_interface = "org.freedesktop.DBus.Peer";
constexpr const char *introspectable = "org.freedesktop.DBus.Introspectable";
constexpr const char *properties = "org.freedesktop.DBus.Properties";

class StandardInterfacesTest : public testing::Test {
protected:
    // The name and the text of the error that a call is refused with; empty when it is not.
    template <class... Arguments>
    std::string refusal(const char *path, const char *interface, const char *member,
                        const char *types, Arguments... arguments)
    {
        BusError error;
        sd_bus_message *made = nullptr;
        int r = sd_bus_call_method(peer.bus(), "com.vemo.Event.Switch", path, interface, member,
                                   error.get(), &made, types, arguments...);
        reply.reset(made);
        return r < 0 ? std::string(error.get()->name) + ": " + error.message() : "";
    }
    std::string text_in_reply()
    {
        const char *text = "";
        EXPECT_GT(sd_bus_message_read(reply.get(), "s", &text), 0);
        return text;
    }
    std::string introspect(const char *path)
    {
        EXPECT_EQ(refusal(path, introspectable, "Introspect", ""), "");
        return text_in_reply();
    }

    // A device's own policy may allow what the project's does not.
    PrivateBus bus{chosen_bus(), "<policy context=\"mandatory\">"
                                 "<allow send_destination=\"com.vemo.Event.Switch\" "
                                 "send_interface=\"org.freedesktop.DBus.Properties\"/>"
                                 "</policy>"};
    SwitchProcess event_switch;
    RawPeer peer;
    BusMessageOwner reply;
};

TEST_F(StandardInterfacesTest, TheMachineIsNamedByItsId)
{
    sd_id128_t id;
    if (sd_id128_get_machine(&id) < 0)
        GTEST_SKIP() << "this machine has no id";
    char text[SD_ID128_STRING_MAX];
    EXPECT_EQ(refusal(switch_object, peer_interface, "GetMachineId", ""), "");
    EXPECT_EQ(text_in_reply(), sd_id128_to_string(id, text));
}

TEST_F(StandardInterfacesTest, APathAboveTheObjectsLeadsToThem)
{
    EXPECT_THAT(introspect("/"), HasSubstr("<node name=\"com\"/>"));
    EXPECT_THAT(introspect("/com/vemo"),
                AllOf(HasSubstr("<node name=\"Event\"/>"), Not(HasSubstr(properties))));
    EXPECT_THAT(introspect(switch_object),
                AllOf(HasSubstr("<interface name=\"com.vemo.Event.Switch.Producer\">"),
                      HasSubstr("<property name=\"Consumers\" type=\"u\" access=\"read\"/>"),
                      HasSubstr("<node name=\"Questions\"/>")));
}

TEST_F(StandardInterfacesTest, WhereNothingIsThereIsNoObject)
{
    EXPECT_EQ(refusal("/nowhere", peer_interface, "Ping", ""),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object /nowhere");
    EXPECT_EQ(refusal("/com/vemo/Event/Switch/Elsewhere", introspectable, "Introspect", ""),
              "org.freedesktop.DBus.Error.UnknownObject: "
              "Unknown object /com/vemo/Event/Switch/Elsewhere");
}

TEST_F(StandardInterfacesTest, AMethodIsFoundByItsInterfaceItsNameAndItsArguments)
{
    EXPECT_EQ(refusal(switch_object, peer_interface, "Pong", ""),
              "org.freedesktop.DBus.Error.UnknownMethod: Unknown method Pong");
    EXPECT_EQ(refusal(switch_object, monitor, "Ping", ""),
              "org.freedesktop.DBus.Error.UnknownMethod: Unknown method Ping");
    EXPECT_EQ(refusal(switch_object, peer_interface, "Ping", "s", "text"),
              "org.freedesktop.DBus.Error.InvalidArgs: Invalid arguments: expected '', got 's'");
}

TEST_F(StandardInterfacesTest, APropertyThatIsNotThereIsNamedInTheRefusal)
{
    EXPECT_EQ(refusal(switch_object, properties, "Get", "ss", monitor, "Secrets"),
              "org.freedesktop.DBus.Error.UnknownProperty: Unknown property Secrets");
    EXPECT_EQ(
        refusal(switch_object, properties, "Get", "ss", "com.vemo.Event.Switch.Query", "Producers"),
        "org.freedesktop.DBus.Error.UnknownProperty: Unknown property Producers");
}

TEST_F(StandardInterfacesTest, WithoutAnInterfaceThePropertiesOfAllAreMeant)
{
    EXPECT_EQ(refusal(switch_object, properties, "Get", "ss", "", "Producers"), "");
    guint32 producers = 77;
    EXPECT_GT(sd_bus_message_read(reply.get(), "v", "u", &producers), 0);
    EXPECT_EQ(producers, 0u);
}

TEST_F(StandardInterfacesTest, PropertiesAreReadOnly)
{
    EXPECT_EQ(refusal(switch_object, properties, "Set", "ssv", monitor, "Producers", "u", 7),
              "org.freedesktop.DBus.Error.PropertyReadOnly: The properties are for reading");
    EXPECT_EQ(refusal(switch_object, properties, "Get", "ss", monitor, "Producers"), "");
}

// What wants no answer has no effect either, and costs none.
TEST_F(StandardInterfacesTest, AQuestionThatWantsNoAnswerIsDropped)
{
    peer.tell("Query.GetAllDeclarations");
    peer.tell("Query.GetDeclarationTypes");
    EXPECT_EQ(peer.call("Query.GetAllDeclarations").error, "");
}

} // namespace
