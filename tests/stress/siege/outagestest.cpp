// SPDX-License-Identifier: LGPL-2.1-or-later

// The bus daemon or the switch is killed and restarted under load, or the switch starts late.
// Events flow again soon, and each accepted event is delivered or reported as lost.

#include "stress/siege/handles.hpp"
#include "stress/siege/siege.hpp"

#include "bus/switch/rawpeer.hpp"
#include "bus/switch/rawrecords.hpp"

#include <algorithm>
#include <list>

using namespace qandor::test;

namespace {

constexpr double back_within = 10; // seconds; a bound against hanging

class Outages : public Siege {
protected:
    // Starts a consumer, and a producer that sends an event in each interval.
    void live(guint milliseconds)
    {
        consumer.emplace(*bus, bystander, [this](OtherUser::Line &line) {
            ReceivingHandle handle("Device", [this](gint number) {
                received.add();
                latest.set(static_cast<guint64>(number));
            });
            wait_until([&] { return line.is_over(); }, 3600);
        });
        await_subscriptions(1);
        producer.emplace(*bus, attacker, [=, this](OtherUser::Line &line) {
            ToldLosses losses(told);
            SendingHandle handle("Device");
            line.say(handle.is_complete() ? "ready" : "not declared");
            {
                Beat beat(milliseconds, [&](gint number) {
                    ++(handle.send(number) ? own_accepted : own_refused);
                    accepted.set(own_accepted);
                    refused.set(own_refused);
                    sent.set(static_cast<guint64>(number));
                });
                wait_until([&] { return line.is_over(); }, 3600);
            }
            handle.free();
        });
        ASSERT_TRUE(producer->says("ready"));
        ASSERT_TRUE(received.reaches(20, 20));
    }
    // Waits for an event that is sent from now on. Returns the milliseconds since @since, or
    // nullopt after a timeout.
    std::optional<double> wait_until_back(gint64 since) const
    {
        if (!latest.reaches(sent.get() + 1, back_within))
            return std::nullopt;
        return static_cast<double>(g_get_monotonic_time() - since) / 1000;
    }
    // Waits until that number of further events has been delivered.
    bool goes_on(guint64 events = 50) const
    {
        return received.reaches(received.get() + events, back_within);
    }
    void expect_all_back(std::vector<double> times, int rounds) const
    {
        std::sort(times.begin(), times.end());
        auto at = [&times](double share) {
            auto index = static_cast<std::size_t>(share * static_cast<double>(times.size()));
            return times.empty() ? 0 : times[std::min(index, times.size() - 1)];
        };
        tell_figure("times back", static_cast<double>(times.size()),
                    ("of " + std::to_string(rounds)).c_str());
        tell_figure("back after, p50", at(0.5), "ms");
        tell_figure("back after, p99", at(0.99), "ms");
        tell_figure("back after, longest", at(1), "ms");
        EXPECT_EQ(times.size(), static_cast<std::size_t>(rounds));
    }
    void expect_nothing_lost_untold()
    {
        EXPECT_TRUE(producer->end());
        received.settles(0.5, 20);
        tell_figure("accepted", static_cast<double>(accepted.get()), "events");
        tell_figure("delivered", static_cast<double>(received.get()), "events");
        tell_figure("told as dropped", static_cast<double>(told.get()), "events");
        tell_figure("lost untold",
                    static_cast<double>(accepted.get()) -
                        static_cast<double>(received.get() + told.get()),
                    "events");
        tell_figure("refused", static_cast<double>(refused.get()), "events");
        // One whose answer was under way when the bus went is told, although it may have arrived.
        EXPECT_GE(received.get() + told.get(), accepted.get());
        EXPECT_TRUE(consumer->is_running());
        EXPECT_TRUE(consumer->end());
    }

    guint64 own_accepted = 0, own_refused = 0; // of the producer's process
    SharedCount sent, accepted, refused, received, latest, told;
    std::optional<OtherUser> consumer, producer;
};

TEST_F(Outages, TheSwitchIsKilledUnderLoad)
{
    live(1);
    const int rounds = scaled(10, 1000);
    std::vector<double> times;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        gint64 begin = g_get_monotonic_time();
        guint64 before = refused.get();
        event_switch->kill();
        EXPECT_TRUE(refused.reaches(before + 1, back_within)) << "nobody noticed";
        event_switch->start();
        switch_pid = event_switch->process().pid();
        std::optional<double> time = wait_until_back(begin);
        EXPECT_TRUE(time) << "no event comes after round " << round;
        if (time)
            times.push_back(*time);
        EXPECT_TRUE(goes_on());
    }
    expect_all_back(times, rounds);
    expect_nothing_lost_untold();
}

TEST_F(Outages, TheBusIsRestartedUnderLoad)
{
    live(2);
    const int rounds = scaled(3, 20);
    std::vector<double> times;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        gint64 begin = g_get_monotonic_time();
        bus->kill();
        event_switch->process().wait(); // it ends without a bus
        bus->start();
        event_switch->start();
        switch_pid = event_switch->process().pid();
        std::optional<double> time = wait_until_back(begin);
        EXPECT_TRUE(time) << "no event comes after round " << round;
        if (time)
            times.push_back(*time);
    }
    expect_all_back(times, rounds);
    expect_nothing_lost_untold();
}

// Handles that declare while the bus is starting the switch.

class SlowStart : public testing::TestWithParam<int> {
protected:
    // Writes an activation file for a switch that takes two seconds to start.
    static void install(const TemporaryFolder &folder)
    {
        std::string types = (folder.path() / "types").string();
        std::filesystem::create_directory(types);
        std::string script =
            folder.write("slow-switch", "sleep 2\n"
                                        "DBUS_SYSTEM_BUS_ADDRESS=$DBUS_STARTER_ADDRESS\n"
                                        "export DBUS_SYSTEM_BUS_ADDRESS\n"
                                        "exec '" QANDOR_SWITCH_PROGRAM
                                        "' --log-level=warning --types-read-only='" +
                                            types + "' --types-writable='" + types + "'\n");
        folder.write("com.vemo.Event.Switch.service", "[D-BUS Service]\n"
                                                      "Name=com.vemo.Event.Switch\n"
                                                      "Exec=/bin/sh " +
                                                          script + "\n");
    }
    static std::size_t known()
    {
        RawPeer onlooker;
        Answer all = onlooker.call("Query.GetAllDeclarations");
        return all.error.empty() ? read_list(all.bytes).size() : 0;
    }
};

TEST_P(SlowStart, OfTheSwitchForgetsNoDeclaration)
{
    constexpr int each = 60;
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be two other users";
    if (chosen_bus() == BusKind::Broker)
        GTEST_SKIP() << "dbus-broker leaves starting to the service manager";
    TemporaryFolder folder;
    install(folder);
    PrivateBus bus(BusKind::Daemon, "<servicedir>" + folder.path().string() + "</servicedir>\n");
    const int handles = GetParam();
    OtherUser declarer(bus, bystander, [&](OtherUser::Line &line) {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0", "Early", VALUE_TYPE_STRING);
        for (int i = 0; i < handles; ++i) {
            event_producer *producer = event_producer_new("early");
            for (int j = 0; j < each; ++j)
                event_producer_declare(producer, declaration.get());
        }
        line.say("declared");
        wait_until([&] { return line.is_over(); }, 600);
    });
    ASSERT_TRUE(declarer.says("declared"));
    const auto wanted = static_cast<std::size_t>(handles * each);
    std::size_t found = 0;
    gint64 until = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
    while ((found = known()) < wanted && g_get_monotonic_time() < until)
        usleep(50000);
    tell_figure("declarations lost", static_cast<double>(wanted - found),
                ("of " + std::to_string(wanted)).c_str());
    EXPECT_EQ(found, wanted);
    EXPECT_TRUE(declarer.is_running());
}

std::vector<int> handle_counts()
{
    return is_full_siege() ? std::vector<int>{10, 20, 40} : std::vector<int>{20};
}

INSTANTIATE_TEST_SUITE_P(Handles, SlowStart, testing::ValuesIn(handle_counts()),
                         [](const testing::TestParamInfo<int> &info) {
                             return std::to_string(info.param);
                         });

} // namespace
