// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells about itself, to whom, and that it says when it changes.

#include "rawpeer.hpp"
#include "rawrecords.hpp"
#include "strangeruser.hpp"

#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <tuple>

using namespace qandor;
using namespace qandor::test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *monitor = "com.vemo.Event.Switch.Monitor";
constexpr const char *access_denied = "org.freedesktop.DBus.Error.AccessDenied";

// Calls a method of the interface and reads the rows of its answer.
template <class ReadRow> std::string list(sd_bus *bus, const char *member, ReadRow read_row)
{
    BusError error;
    sd_bus_message *made = nullptr;
    int r = sd_bus_call_method(bus, "com.vemo.Event.Switch", "/com/vemo/Event/Switch", monitor,
                               member, error.get(), &made, "");
    BusMessageOwner reply(made);
    if (r < 0)
        return error.get()->name;
    const char *types = nullptr;
    sd_bus_message_peek_type(made, nullptr, &types);
    sd_bus_message_enter_container(made, 'a', types);
    while (sd_bus_message_at_end(made, 0) == 0)
        read_row(made);
    return "";
}

std::vector<guint32> read_ids(sd_bus_message *reply)
{
    std::vector<guint32> ids;
    guint32 id;
    sd_bus_message_enter_container(reply, 'a', "u");
    while (sd_bus_message_read(reply, "u", &id) > 0)
        ids.push_back(id);
    sd_bus_message_exit_container(reply);
    return ids;
}

struct PeerRow {
    std::string bus_name, object, title;
    guint32 pid = 0, uid = 0, id = 0;
    std::vector<guint32> ids;
};

PeerRow read_peer(sd_bus_message *reply, bool has_id)
{
    PeerRow row;
    const char *name, *object, *title;
    sd_bus_message_enter_container(reply, 'r', has_id ? "sssuuuau" : "sssuuau");
    sd_bus_message_read(reply, "sssuu", &name, &object, &title, &row.pid, &row.uid);
    if (has_id)
        sd_bus_message_read(reply, "u", &row.id);
    row.ids = read_ids(reply);
    sd_bus_message_exit_container(reply);
    row.bus_name = name;
    row.object = object;
    row.title = title;
    return row;
}

guint32 count_of(sd_bus *bus, const char *property)
{
    guint32 count = G_MAXUINT32;
    BusError error;
    sd_bus_get_property_trivial(bus, "com.vemo.Event.Switch", "/com/vemo/Event/Switch", monitor,
                                property, error.get(), 'u', &count);
    return count;
}

class MonitorTest : public testing::Test {
protected:
    MonitorTest()
    {
        producer.call("Producer.Declare", "/p", "the producer",
                      Octets{declaration_bytes("Device", 7)});
        consumer.call("Consumer.Subscribe", "/c", "the consumer", guint32(5),
                      Octets{expression_bytes("Device")});
        consumer.call("Consumer.Subscribe", "/c", "the consumer", guint32(6),
                      Octets{expression_bytes("Elsewhere")});
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    RawPeer producer, consumer, onlooker;
};

TEST_F(MonitorTest, ProducersAreListedWithWhoTheyAre)
{
    std::vector<PeerRow> rows;
    EXPECT_EQ(list(onlooker.bus(), "ListProducers",
                   [&](sd_bus_message *reply) { rows.push_back(read_peer(reply, true)); }),
              "");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].bus_name, producer.name());
    EXPECT_EQ(rows[0].object, "/p");
    EXPECT_EQ(rows[0].title, "the producer");
    EXPECT_EQ(rows[0].pid, static_cast<guint32>(getpid()));
    EXPECT_EQ(rows[0].uid, getuid());
    EXPECT_EQ(rows[0].id, 1u);
    EXPECT_THAT(rows[0].ids, ElementsAre(1u));
}

TEST_F(MonitorTest, NamesThatPeersGiveThemselvesAreListedUpToALength)
{
    std::string title;
    for (int i = 0; i < 1000; ++i)
        title += "ü";
    onlooker.call("Producer.Declare", "/q", title, Octets{declaration_bytes("Device", 1)});
    std::vector<PeerRow> rows;
    EXPECT_EQ(list(onlooker.bus(), "ListProducers",
                   [&](sd_bus_message *reply) { rows.push_back(read_peer(reply, true)); }),
              "");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[1].title, title.substr(0, 512)) << "256 characters of 2 bytes";
}

// One that is not has the bus throw the switch out.
TEST(Monitor, AListIsNoLongerThanTheBusTakes)
{
    TemporaryFolder folder;
    PrivateBus bus;
    SwitchProcess event_switch(
        {"--config=" + folder.write("conf", "[limits]\nstored_bytes=268435456\n")});
    RawPeer onlooker;
    constexpr std::size_t count = 500;
    const std::string path = "/" + std::string(65500, 'a');
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_EQ(onlooker
                      .call("Producer.Declare", path + std::to_string(i), std::string(1000, 't'),
                            Octets{declaration_bytes("Device", 1)})
                      .error,
                  "");
    std::size_t rows = 0;
    EXPECT_EQ(list(onlooker.bus(), "ListProducers",
                   [&](sd_bus_message *reply) {
                       read_peer(reply, true);
                       ++rows;
                   }),
              "");
    EXPECT_GT(rows, 400u);
    EXPECT_LT(rows, count);
}

TEST_F(MonitorTest, ConsumersAndTheirSubscriptionsAreListed)
{
    std::vector<PeerRow> rows;
    EXPECT_EQ(list(onlooker.bus(), "ListConsumers",
                   [&](sd_bus_message *reply) { rows.push_back(read_peer(reply, false)); }),
              "");
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].title, "the consumer");
    EXPECT_THAT(rows[0].ids, ElementsAre(1u, 2u));

    std::vector<std::tuple<guint32, std::string, guint32, bool, std::string>> subscriptions;
    std::vector<std::vector<guint32>> matching;
    EXPECT_EQ(list(onlooker.bus(), "ListSubscriptions",
                   [&](sd_bus_message *reply) {
                       guint32 id, token;
                       int clandestine;
                       const char *name, *object, *text;
                       sd_bus_message_enter_container(reply, 'r', "ussubsau");
                       sd_bus_message_read(reply, "ussubs", &id, &name, &object, &token,
                                           &clandestine, &text);
                       matching.push_back(read_ids(reply));
                       sd_bus_message_exit_container(reply);
                       EXPECT_EQ(name, consumer.name());
                       subscriptions.emplace_back(id, object, token, clandestine, text);
                   }),
              "");
    EXPECT_THAT(subscriptions, ElementsAre(std::tuple(1u, "/c", 5u, false, "topic0=Device"),
                                           std::tuple(2u, "/c", 6u, false, "topic0=Elsewhere")));
    EXPECT_THAT(matching, ElementsAre(ElementsAre(1u), IsEmpty()));
}

TEST_F(MonitorTest, LimitsAreListedWithWhatIsUsedOfThem)
{
    std::map<std::string, std::pair<guint64, guint64>> limits;
    EXPECT_EQ(list(onlooker.bus(), "ListLimits",
                   [&](sd_bus_message *reply) {
                       guint32 uid;
                       const char *name;
                       guint64 used, limit;
                       sd_bus_message_read(reply, "(ustt)", &uid, &name, &used, &limit);
                       EXPECT_TRUE(uid == getuid() || uid == G_MAXUINT32);
                       limits[name] = {used, limit};
                   }),
              "");
    EXPECT_EQ(limits["peers"], std::pair(guint64{2}, guint64{512}));
    EXPECT_EQ(limits["declarations"], std::pair(guint64{1}, guint64{4096}));
    EXPECT_EQ(limits["subscriptions"], std::pair(guint64{2}, guint64{4096}));
    EXPECT_EQ(limits["questions"], std::pair(guint64{0}, guint64{64}));
    EXPECT_EQ(limits["key_names"], std::pair(guint64{2}, guint64{16384}));
    EXPECT_EQ(limits["total_stored_bytes"].first, declaration_bytes("Device", 7).size());
    EXPECT_EQ(limits.size(), 7u);
}

TEST(Monitor, EachUsersOwnLimitsAreListed)
{
    TemporaryFolder folder;
    PrivateBus bus;
    SwitchProcess event_switch(
        {"--config=" + folder.write("conf", "[limits]\npeers=7\n[user " + std::to_string(getuid()) +
                                                "]\npeers=9\n")});
    RawPeer onlooker;
    onlooker.call("Consumer.Subscribe", "/c", "", guint32(5), Octets{expression_bytes("Device")});
    guint64 peers = 0;
    EXPECT_EQ(list(onlooker.bus(), "ListLimits",
                   [&](sd_bus_message *reply) {
                       guint32 uid;
                       const char *name;
                       guint64 used, limit;
                       sd_bus_message_read(reply, "(ustt)", &uid, &name, &used, &limit);
                       if (std::string(name) == "peers")
                           peers = limit;
                   }),
              "");
    EXPECT_EQ(peers, 9u);
}

TEST_F(MonitorTest, CountsSayWhenTheyChange)
{
    EXPECT_EQ(count_of(onlooker.bus(), "Producers"), 1u);
    EXPECT_EQ(count_of(onlooker.bus(), "Consumers"), 1u);
    EXPECT_EQ(count_of(onlooker.bus(), "Declarations"), 1u);
    EXPECT_EQ(count_of(onlooker.bus(), "Subscriptions"), 2u);

    std::map<std::string, guint32> told;
    auto note = [](sd_bus_message *signal, void *data, sd_bus_error *) {
        sd_bus_message_skip(signal, "s");
        sd_bus_message_enter_container(signal, 'a', "{sv}");
        while (sd_bus_message_enter_container(signal, 'e', "sv") > 0) {
            const char *name;
            guint32 count;
            sd_bus_message_read(signal, "sv", &name, "u", &count);
            sd_bus_message_exit_container(signal);
            (*static_cast<std::map<std::string, guint32> *>(data))[name] = count;
        }
        return 0;
    };
    sd_bus_match_signal(onlooker.bus(), nullptr, nullptr, "/com/vemo/Event/Switch",
                        "org.freedesktop.DBus.Properties", "PropertiesChanged", note, &told);
    auto is_told = [&](guint32 count) {
        return run_until(
            [&] { return told.count("Subscriptions") > 0 && told["Subscriptions"] == count; });
    };
    consumer.call("Consumer.Subscribe", "/c", "name", guint32(7),
                  Octets{expression_bytes("Device")});
    EXPECT_TRUE(is_told(3));
    consumer.call("Consumer.Disconnect", "/c");
    EXPECT_TRUE(is_told(0));
    EXPECT_EQ(told["Consumers"], 0u);
    EXPECT_EQ(told.count("Declarations") ? told["Declarations"] : 1u, 1u);
}

TEST_F(MonitorTest, ChangesAreToldToThoseAloneWhoHaveReadACount)
{
    RawPeer reader, stranger;
    unsigned told_reader = 0, told_stranger = 0;
    auto note = [](sd_bus_message *, void *told, sd_bus_error *) {
        ++*static_cast<unsigned *>(told);
        return 0;
    };
    for (auto [peer, told] : {std::pair(&reader, &told_reader), {&stranger, &told_stranger}})
        sd_bus_match_signal(peer->bus(), nullptr, nullptr, "/com/vemo/Event/Switch",
                            "org.freedesktop.DBus.Properties", "PropertiesChanged", note, told);
    count_of(reader.bus(), "Producers");
    consumer.call("Consumer.Disconnect", "/c");
    EXPECT_TRUE(run_until([&] { return told_reader > 0; }));
    stranger.take();
    EXPECT_EQ(told_stranger, 0u);
}

// The error of a call to the switch, "" for none.
std::string error_of(RawPeer &peer, const char *interface, const char *member, const char *types,
                     const char *first = "", const char *second = "")
{
    BusError error;
    sd_bus_message *reply = nullptr;
    int r =
        sd_bus_call_method(peer.bus(), "com.vemo.Event.Switch", "/com/vemo/Event/Switch", interface,
                           member, error.get(), &reply, types, first, second, "u", 1);
    BusMessageOwner owner(reply);
    return r < 0 ? error.get()->name : "";
}

bool answers_everybody(RawPeer &peer)
{
    return error_of(peer, "org.freedesktop.DBus.Peer", "Ping", "") == "" &&
           error_of(peer, "org.freedesktop.DBus.Properties", "Get", "ss", monitor, "Producers") ==
               "" &&
           error_of(peer, "org.freedesktop.DBus.Properties", "GetAll", "s", monitor) == "";
}

TEST_F(MonitorTest, ItsOwnUserMayPingReadAndIntrospectIt)
{
    EXPECT_TRUE(answers_everybody(onlooker));
    EXPECT_EQ(error_of(onlooker, "org.freedesktop.DBus.Introspectable", "Introspect", ""), "");
}

TEST_F(MonitorTest, OthersMayPingAndReadItAndNoMore)
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    int allowed = as_stranger(bus.address(), [] {
        RawPeer stranger;
        return answers_everybody(stranger) &&
               error_of(stranger, "org.freedesktop.DBus.Properties", "Set", "ssv", monitor,
                        "Producers") == access_denied &&
               error_of(stranger, "org.freedesktop.DBus.Introspectable", "Introspect", "") ==
                   access_denied;
    });
    EXPECT_EQ(allowed, 0);
}

TEST_F(MonitorTest, WhoListensToWhatIsNotForAll)
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    int seen = as_stranger(bus.address(), [] {
        RawPeer stranger;
        auto skip = [](sd_bus_message *reply) { sd_bus_message_skip(reply, nullptr); };
        std::set<guint32> users;
        std::string limits = list(stranger.bus(), "ListLimits", [&](sd_bus_message *reply) {
            guint32 uid;
            const char *name;
            guint64 used, limit;
            sd_bus_message_read(reply, "(ustt)", &uid, &name, &used, &limit);
            users.insert(uid);
        });
        return list(stranger.bus(), "ListConsumers", skip) == access_denied &&
               list(stranger.bus(), "ListSubscriptions", skip) == access_denied &&
               list(stranger.bus(), "ListProducers", skip).empty() && limits.empty() &&
               users.count(0) == 0 && count_of(stranger.bus(), "Subscriptions") == 2;
    });
    EXPECT_EQ(seen, 0);
}

} // namespace
