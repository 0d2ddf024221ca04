// SPDX-License-Identifier: LGPL-2.1-or-later

// An attacker sends forged NameOwnerChanged signals to every connection. A stock bus permits this:
// unicast signals are allowed, and the sender in a match rule does not filter them. They must have
// no effect.

#include "stress/siege/handles.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

using namespace qandor::test;

namespace {

constexpr const char *switch_name = "com.vemo.Event.Switch";

class Forgery : public Siege {
protected:
    using Names = std::vector<std::string>; // the texts of a forged signal: name, old and new owner

    static void forge(sd_bus *connection, const std::string &destination, const Names &names)
    {
        sd_bus_message *made = nullptr;
        sd_bus_message_new_signal(connection, &made, "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", "NameOwnerChanged");
        qandor::BusMessageOwner message(made);
        for (const std::string &name : names)
            sd_bus_message_append(made, "s", name.c_str());
        sd_bus_send_to(connection, made, destination.c_str(), nullptr);
        sd_bus_flush(connection);
    }
    static Names everybody(sd_bus *connection)
    {
        char **listed = nullptr;
        sd_bus_list_names(connection, &listed, nullptr);
        Names names;
        for (char **name = listed; name && *name; ++name) {
            if (**name == ':')
                names.emplace_back(*name);
            ::free(*name);
        }
        ::free(listed);
        return names;
    }

    // Sends each of the signals to every connection, as the attacker.
    void forge_to_everybody(const std::vector<Names> &lies)
    {
        OtherUser liar(*bus, attacker, [&](OtherUser::Line &line) {
            RawPeer peer;
            for (const std::string &destination : everybody(peer.bus()))
                for (const Names &lie : lies)
                    if (destination != peer.name())
                        forge(peer.bus(), destination, lie);
            // The bus answers in order: the signals have been forwarded before this answer.
            sd_bus_list_names(peer.bus(), nullptr, nullptr);
            line.say("told");
        });
        ASSERT_TRUE(liar.says("told"));
        EXPECT_TRUE(liar.end());
    }
};

TEST_F(Forgery, MakesTheSwitchForgetNobody)
{
    RawPeer consumer;
    ASSERT_EQ(consumer
                  .call("Consumer.Subscribe", "/c", "honest", guint32(1),
                        Octets{expression_bytes("Device")})
                  .error,
              "");
    std::string before = take_census(consumer.bus());
    forge_to_everybody({{consumer.name(), consumer.name(), ""}});
    std::string after = take_census(consumer.bus());
    tell_figure("peers forgotten", after != before, "");
    EXPECT_EQ(after, before);
}

// A producer and a consumer of the library, whose events must go on.
class ForgeryToHandles : public Forgery {
protected:
    void expect_events_in_spite_of(const std::vector<Names> &lies)
    {
        OtherUser consumer(*bus, bystander, [this](OtherUser::Line &line) {
            ReceivingHandle handle("Device", [this](gint) { received.add(); });
            wait_until([&] { return line.is_over(); }, 600);
        });
        await_subscriptions(1);
        OtherUser producer(*bus, bystander, [this](OtherUser::Line &line) {
            SendingHandle handle("Device");
            line.say(handle.is_complete() ? "ready" : "not declared");
            wait_until(
                [&] {
                    accepted.add(handle.send(1));
                    return line.is_over();
                },
                600);
        });
        ASSERT_TRUE(producer.says("ready"));
        forge_to_everybody(lies);
        // More events than can have been queued before the signals.
        guint64 wanted = accepted.get() + 500;
        bool flows = accepted.reaches(wanted, 20) && received.reaches(wanted, 20);
        tell_figure("producer alive", producer.is_running(), "");
        tell_figure("consumer alive", consumer.is_running(), "");
        tell_figure("events flow", flows, "");
        EXPECT_TRUE(flows) << accepted.get() << " of " << wanted << " events were accepted, "
                           << received.get() << " came";
        EXPECT_TRUE(producer.end());
        EXPECT_TRUE(consumer.end());
    }

    SharedCount accepted, received;
};

TEST_F(ForgeryToHandles, DoesNotUnplugThem)
{
    expect_events_in_spite_of({{switch_name, ":1.0", ""}});
}

TEST_F(ForgeryToHandles, WithAHandOverEndsNobody)
{
    expect_events_in_spite_of({{switch_name, ":1.0", ":1.5"}, {switch_name, "", ""}});
}

TEST_F(ForgeryToHandles, WithTooFewTextsEndsNobody)
{
    expect_events_in_spite_of({{switch_name}, {}});
}

} // namespace
