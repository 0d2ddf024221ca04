// SPDX-License-Identifier: LGPL-2.1-or-later

// An attacker calls the switch as fast as possible, with each call that the policy allows. Other
// users are served meanwhile, also from connections that are new to the switch.

#include "stress/siege/flood.hpp"
#include "stress/siege/costlyrecords.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawrecords.hpp"

#include <list>

using namespace qandor::test;

namespace {

constexpr guint32 connections = 3;

class CallFlood : public Siege {
protected:
    void live_in(const Flood::Call &call)
    {
        Flood flood(bus->address(), connections, call);
        ASSERT_TRUE(run_until([&] { return flood.answered() > 0; }));
        guint64 before = flood.answered();
        DailyLife life(*bus);
        EXPECT_TRUE(life.goes_on(static_cast<guint64>(scaled(150, 2000)), 120));
        expect_served(life);
        guint64 answered = flood.answered() - before;
        tell_figure("calls of the flood", static_cast<double>(answered), "");
        EXPECT_GT(answered, 0u) << "there was no flood";
        expect_memory_bounded();
    }

    // A call of a method that has no arguments, on any interface.
    static void call_plain(RawPeer &peer, std::optional<Answer> &answer, const char *interface,
                           const char *method)
    {
        sd_bus_call_method_async(
            peer.bus(), nullptr, "com.vemo.Event.Switch", "/com/vemo/Event/Switch", interface,
            method,
            [](sd_bus_message *, void *answer, sd_bus_error *) {
                static_cast<std::optional<Answer> *>(answer)->emplace();
                return 0;
            },
            &answer, "");
    }
};

// The calls want no reply, so that only the bus limits the flood.
TEST_F(CallFlood, OfLargeMalformedDeclarationsBesideNewcomers)
{
    // The last byte is missing, so that the checker reads the whole record.
    std::string malformed = CostlyRecord::many_values(7900, 1);
    malformed.pop_back();
    SharedCount sent;
    OtherUser flood(*bus, attacker, [&](OtherUser::Line &line) {
        std::list<RawPeer> peers(connections);
        while (!line.is_over())
            for (RawPeer &peer : peers) {
                peer.tell("Producer.Declare", "/p", "flood", Octets{malformed});
                sent.add();
            }
    });
    // The switch has to ask the bus for the credentials of each of them.
    OtherUser newcomers(*bus, attacker, [](OtherUser::Line &line) {
        while (!line.is_over(100)) {
            RawPeer newcomer;
            newcomer.call("Consumer.Disconnect", "/nobody");
        }
    });
    ASSERT_TRUE(sent.reaches(1, 20));
    DailyLife life(*bus);
    const double flood_seconds = scaled(10, 120);
    sent.reaches(static_cast<guint64>(scaled(6000, 60000)), flood_seconds);
    bool goes_on = life.goes_on();
    flood.end(1);
    newcomers.end(1);
    // dbus-daemon refuses calls and drops answers to a receiver for which it already holds 127 MiB.
    // There calls are refused or wait, but soon after the flood each has been answered.
    if (bus->kind() == BusKind::Daemon) {
        EXPECT_LT(tell_waits(life).longest_ms, 1000 * (flood_seconds + (memory_tells() ? 15 : 60)));
    } else {
        EXPECT_TRUE(goes_on);
        expect_served(life);
    }
    // The bus may refuse the first calls, as long as it holds what the flood has left.
    RawPeer later;
    EXPECT_TRUE(
        run_until([&] { return later.call("Query.GetAllDeclarations").error.empty(); }, 90));
    tell_figure("calls of the flood", static_cast<double>(sent.get()), "");
    expect_memory_bounded();
}

TEST_F(CallFlood, OfEvents)
{
    std::string event = event_bytes("Power", "on");
    live_in([&](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        peer.event_later(answer, event, number);
    });
}

TEST_F(CallFlood, OfQueries)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        peer.call_later(answer,
                        number % 2 ? "Query.GetAllDeclarations" : "Query.GetDeclarationTypes");
    });
}

TEST_F(CallFlood, OfQuestions)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32) {
        peer.call_later(answer, "Consumer.GetPropertyState", Octets{expression_bytes("Power")});
    });
}

TEST_F(CallFlood, OfDeclarationsAndSubscriptions)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        if (number % 2)
            peer.call_later(answer, "Producer.Declare", "/p" + std::to_string(number % 100),
                            "flood", Octets{declaration_bytes("Flood", number % 500)});
        else
            peer.call_later(answer, "Consumer.Subscribe", "/c" + std::to_string(number % 100),
                            "flood", number % 50, Octets{expression_bytes("Else")});
    });
}

TEST_F(CallFlood, OfDisconnects)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32 number) {
        peer.call_later(answer, number % 2 ? "Producer.Disconnect" : "Consumer.Disconnect", "/x");
    });
}

TEST_F(CallFlood, OfIntrospection)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32) {
        call_plain(peer, answer, "org.freedesktop.DBus.Introspectable", "Introspect");
    });
}

TEST_F(CallFlood, OfMonitoring)
{
    live_in([](RawPeer &peer, std::optional<Answer> &answer, guint32) {
        call_plain(peer, answer, "com.vemo.Event.Switch.Monitor", "ListProducers");
    });
}

} // namespace
