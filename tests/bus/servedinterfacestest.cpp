// SPDX-License-Identifier: LGPL-2.1-or-later

// The objects that producers and consumers serve: what they look like on the bus, how they read
// calls, and whom they take for the sender.

#include "bus/busobjects.hpp"
#include "bus/sendercredentials.hpp"
#include "bus/switch/rawpeer.hpp"
#include "bus/switch/strangeruser.hpp"
#include "support/busseam.hpp"
#include "support/logcapture.hpp"
#include "support/openbus.hpp"
#include "support/privatebus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

using namespace qandor;
using namespace qandor::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What an object was registered with: "Member signature -> result flags" of each entry.
std::vector<std::string> entries_of(const sd_bus_vtable *vtable)
{
    std::vector<std::string> entries;
    auto or_none = [](const char *text) { return std::string(text ? text : "nothing"); };
    auto flags_of = [](const sd_bus_vtable &entry) { return " " + std::to_string(entry.flags); };
    for (; vtable->type != _SD_BUS_VTABLE_END; ++vtable) {
        if (vtable->type == _SD_BUS_VTABLE_METHOD)
            entries.push_back(std::string("method ") + vtable->x.method.member + " " +
                              vtable->x.method.signature + " -> " +
                              or_none(vtable->x.method.result) + flags_of(*vtable));
        else if (vtable->type == _SD_BUS_VTABLE_PROPERTY)
            entries.push_back(std::string("property ") + vtable->x.property.member + " " +
                              vtable->x.property.signature + flags_of(*vtable));
    }
    return entries;
}

std::string unprivileged(const char *entry)
{
    return std::string("method ") + entry + " " + std::to_string(SD_BUS_VTABLE_UNPRIVILEGED);
}

const std::string constant_name = "property Name s " + std::to_string(SD_BUS_VTABLE_PROPERTY_CONST);

std::vector<sd_bus_message_handler_t> handlers_of(const sd_bus_vtable *vtable)
{
    std::vector<sd_bus_message_handler_t> handlers;
    for (; vtable->type != _SD_BUS_VTABLE_END; ++vtable)
        if (vtable->type == _SD_BUS_VTABLE_METHOD)
            handlers.push_back(vtable->x.method.handler);
    return handlers;
}

std::string path_of(const char *kind, gconstpointer instance)
{
    TextOwner path(g_strdup_printf("/com/vemo/Event/%s/%p", kind, instance));
    return path.get();
}

TEST(ServedObjects, AProducerServesItsInterfaceAtThePathMadeOfItsAddress)
{
    PrivateBus private_bus;
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    BusSeam seam;
    producer.connect(producer_init_dbus);
    ASSERT_EQ(seam.objects.size(), 1u);
    EXPECT_EQ(seam.objects[0].path, path_of("Producer", static_cast<Producer *>(producer)));
    EXPECT_EQ(seam.objects[0].interface, "com.vemo.Event.Producer");
    EXPECT_THAT(entries_of(seam.objects[0].vtable),
                ElementsAre(unprivileged("GlobalDeclareId uuu -> nothing"),
                            unprivileged("DeclarationComplete uu -> nothing"),
                            unprivileged("Subscribe ayu -> nothing"),
                            unprivileged("RefreshProperty uu -> nothing"),
                            unprivileged("Unsubscribe uu -> nothing"), constant_name));
}

TEST(ServedObjects, AConsumerServesItsInterfaceAtThePathMadeOfItsAddress)
{
    PrivateBus private_bus;
    BusObject<Consumer> consumer(consumer_new("c"));
    BusSeam seam;
    consumer.connect(consumer_init_dbus);
    ASSERT_EQ(seam.objects.size(), 1u);
    EXPECT_EQ(seam.objects[0].path, path_of("Consumer", static_cast<Consumer *>(consumer)));
    EXPECT_EQ(seam.objects[0].interface, "com.vemo.Event.Consumer");
    EXPECT_THAT(entries_of(seam.objects[0].vtable),
                ElementsAre(unprivileged("Event ayu -> nothing"),
                            unprivileged("Notification ayu -> nothing"), constant_name));
}

TEST(ServedObjects, TellTheNamesTheyWereGiven)
{
    OpenBus open_bus;
    FakeSwitch event_switch;
    BusObject<Producer> producer(producer_new("the producer", nullptr, nullptr));
    BusObject<Consumer> consumer(consumer_new("the consumer"));
    producer.connect(producer_init_dbus);
    consumer.connect(consumer_init_dbus);
    auto name_of = [&](const ObjectAddress &object, const std::string &interface) {
        return event_switch
            .call(object, "org.freedesktop.DBus.Properties.Get", interface, std::string("Name"))
            .text;
    };
    EXPECT_EQ(name_of(producer.address(), "com.vemo.Event.Producer"), "the producer");
    EXPECT_EQ(name_of(consumer.address(), "com.vemo.Event.Consumer"), "the consumer");
}

TEST(ServedObjects, TheirNamesCannotBeSet)
{
    OpenBus open_bus;
    RawPeer stranger;
    BusObject<Producer> producer(producer_new("the producer", nullptr, nullptr));
    producer.connect(producer_init_dbus);
    ObjectAddress object = producer.address();
    std::string error = "no answer";
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(stranger.bus(), &made, object.name.c_str(), object.path.c_str(),
                                   "org.freedesktop.DBus.Properties", "Set");
    BusMessageOwner set(made);
    sd_bus_message_append(made, "ssv", "com.vemo.Event.Producer", "Name", "s", "another");
    auto take = [](sd_bus_message *reply, void *text, sd_bus_error *) {
        const sd_bus_error *refused = sd_bus_message_get_error(reply);
        *static_cast<std::string *>(text) = refused ? refused->name : "";
        return 0;
    };
    sd_bus_call_async(stranger.bus(), nullptr, made, take, &error, 0);
    EXPECT_TRUE(wait_until([&] {
        while (sd_bus_process(stranger.bus(), nullptr) > 0) {
        }
        return error != "no answer";
    }));
    EXPECT_EQ(error, SD_BUS_ERROR_PROPERTY_READ_ONLY);
}

// Calls as they come in.

class ServedCallsTest : public testing::Test {
protected:
    ServedCallsTest()
    {
        producer.connect(producer_init_dbus);
        consumer.connect(consumer_init_dbus);
    }

    template <class... Arguments>
    ObjectAnswer call_producer(const std::string &member, const Arguments &...arguments)
    {
        return event_switch.call(producer.address(), "com.vemo.Event.Producer." + member,
                                 arguments...);
    }
    template <class... Arguments>
    ObjectAnswer call_consumer(const std::string &member, const Arguments &...arguments)
    {
        return event_switch.call(consumer.address(), "com.vemo.Event.Consumer." + member,
                                 arguments...);
    }

    PrivateBus private_bus;
    FakeSwitch event_switch;
    BusObject<Producer> producer{producer_new("producer", nullptr, nullptr)};
    BusObject<Consumer> consumer{consumer_new("consumer")};
};

MATCHER(IsEmptyAnswer, "")
{
    *result_listener << arg.error << " " << arg.text << " (" << arg.signature << ")";
    return arg.error.empty() && arg.signature.empty();
}

TEST_F(ServedCallsTest, EveryCallIsAnsweredWithNothingInIt)
{
    producer_allocate_decl_data(producer, 1, new_declaration("Device").release(), nullptr, nullptr);
    Forwarded subscription{7, 9, event_switch.unique_name()};
    EXPECT_THAT(call_producer("GlobalDeclareId", 1u, 10u, 100u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("DeclarationComplete", 1u, 10u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("Subscribe", Blob{subscription.bytes()}, 1u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("RefreshProperty", 7u, 1u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("Unsubscribe", 7u, 1u), IsEmptyAnswer());

    auto free_event = [](event *event, gpointer) { event_free(event); };
    auto free_notification = [](notification *record, gpointer) { notification_free(record); };
    consumer_prepare_subscribe(
        consumer, 3, new_expression("Device").get(),
        G_CALLBACK(static_cast<consumer_event_callback>(free_event)),
        G_CALLBACK(static_cast<consumer_notification_callback>(free_notification)), nullptr,
        SUBSCRIPTION_TYPE_NORMAL);
    EXPECT_THAT(call_consumer("Event", Blob{event_bytes("Device", "on")}, 3u), IsEmptyAnswer());
    EXPECT_THAT(call_consumer("Notification", Blob{notification_bytes()}, 3u), IsEmptyAnswer());
}

TEST_F(ServedCallsTest, WhatNobodyWantsIsAnsweredToo)
{
    Blob rubbish{"\x01rubbish"};
    EXPECT_THAT(call_consumer("Event", rubbish, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_consumer("Notification", rubbish, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("Subscribe", rubbish, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("RefreshProperty", 99u, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("Unsubscribe", 99u, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("GlobalDeclareId", 99u, 99u, 99u), IsEmptyAnswer());
    EXPECT_THAT(call_producer("DeclarationComplete", 99u, 99u), IsEmptyAnswer());
}

TEST_F(ServedCallsTest, AnotherSignatureIsRefusedBeforeAnythingIsRead)
{
    EXPECT_EQ(call_producer("GlobalDeclareId", 1u, 10u).error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_producer("DeclarationComplete", 1u).error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_producer("Subscribe", std::string("text"), 1u).error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_producer("RefreshProperty").error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_producer("Unsubscribe", 1u).error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_consumer("Event", 1u, Blob{}).error, SD_BUS_ERROR_INVALID_ARGS);
    EXPECT_EQ(call_consumer("Notification", Blob{}).error, SD_BUS_ERROR_INVALID_ARGS);
    settle(event_switch, producer);
    EXPECT_THAT(event_switch.calls(), IsEmpty());
}

TEST_F(ServedCallsTest, OtherMethodsAreUnknown)
{
    EXPECT_EQ(call_producer("Event", Blob{}, 1u).error, SD_BUS_ERROR_UNKNOWN_METHOD);
    EXPECT_EQ(call_consumer("Subscribe", Blob{}, 1u).error, SD_BUS_ERROR_UNKNOWN_METHOD);
}

// A death test's child makes its own connections.
TEST(ServedCallsDeathTest, HandlersWantAMessageAndAnInstance)
{
    PrivateBus private_bus;
    FakeSwitch event_switch;
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    BusObject<Consumer> consumer(consumer_new("c"));
    BusSeam seam;
    producer.connect(producer_init_dbus);
    consumer.connect(consumer_init_dbus);
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(producer.bus(), &made, ":1.1", "/o", "com.vemo.I", "M");
    BusMessageOwner message(made);
    for (const BusSeam::Object &object : seam.objects) {
        for (sd_bus_message_handler_t handler : handlers_of(object.vtable)) {
            EXPECT_DEATH(handler(nullptr, producer, nullptr), "assertion failed: \\(m != NULL\\)");
            EXPECT_DEATH(handler(made, nullptr, nullptr), "assertion failed: \\(self != NULL\\)");
        }
    }
}

TEST(ServedCallsDeathTest, HandlersTrustTheBusToCheckSignatures)
{
    PrivateBus private_bus;
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    BusObject<Consumer> consumer(consumer_new("c"));
    BusSeam seam;
    producer.connect(producer_init_dbus);
    consumer.connect(consumer_init_dbus);
    sd_bus_message *made = nullptr;
    sd_bus_message_new_method_call(producer.bus(), &made, ":1.1", "/o", "com.vemo.I", "M");
    BusMessageOwner message(made);
    sd_bus_message_append(made, "s", "text");
    sd_bus_message_seal(made, 1, 0);
    Producer *first = producer;
    Consumer *second = consumer;
    for (sd_bus_message_handler_t handler : handlers_of(seam.objects.at(0).vtable))
        EXPECT_DEATH(handler(made, first, nullptr), "assertion failed: \\(r >= 0\\)");
    for (sd_bus_message_handler_t handler : handlers_of(seam.objects.at(1).vtable))
        EXPECT_DEATH(handler(made, second, nullptr), "assertion failed: \\(r >= 0\\)");
}

// Rubbish for a known declaration or subscription: the switch and the producers are trusted.

enum class Victim { Event, SecureEvent, Notification, Subscribe };

void give_rubbish_to(Victim victim)
{
    FakeSwitch peer(FakeSwitch::Name::NotTaken);
    BusObject<Producer> producer(producer_new("p", nullptr, nullptr));
    BusObject<Consumer> consumer(consumer_new("c"));
    producer.connect(producer_init_dbus);
    consumer.connect(consumer_init_dbus);
    producer_allocate_decl_data(producer, 1, new_declaration("Device").release(), nullptr, nullptr);
    auto ignore = [](event *, gpointer) {};
    GCallback function = G_CALLBACK(static_cast<consumer_event_callback>(ignore));
    consumer_prepare_subscribe(
        consumer, 1, new_expression("Device").get(), function, function, nullptr,
        victim == Victim::SecureEvent ? SUBSCRIPTION_TYPE_SECURE : SUBSCRIPTION_TYPE_NORMAL);
    Blob rubbish{"\x01"};
    if (victim == Victim::Subscribe)
        peer.call(producer.address(), "com.vemo.Event.Producer.Subscribe", rubbish, 1u);
    else if (victim == Victim::Notification)
        peer.call(consumer.address(), "com.vemo.Event.Consumer.Notification", rubbish, 1u);
    else
        peer.call(consumer.address(), "com.vemo.Event.Consumer.Event", rubbish, 1u);
}

TEST(ServedCallsDeathTest, RubbishForWhatIsKnownEndsTheProcess)
{
    PrivateBus private_bus;
    EXPECT_DEATH(give_rubbish_to(Victim::Event), "type == SERIALIZE_ID_EVENT");
    EXPECT_DEATH(give_rubbish_to(Victim::SecureEvent), "type == SERIALIZE_ID_EVENT");
    EXPECT_DEATH(give_rubbish_to(Victim::Notification), "type == SERIALIZE_ID_NOTIFICATION");
    EXPECT_DEATH(give_rubbish_to(Victim::Subscribe), "type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION");
}

// Senders.

struct Seen {
    int events = 0;
    int notifications = 0;
    std::vector<guint32> uids;

    static void event(::event *received, gpointer self)
    {
        event_free(received);
        ++static_cast<Seen *>(self)->events;
    }
    static void secure_event(::event *received, guint32 uid, gpointer self)
    {
        event(received, self);
        static_cast<Seen *>(self)->uids.push_back(uid);
    }
    static void notification(::notification *received, gpointer self)
    {
        notification_free(received);
        ++static_cast<Seen *>(self)->notifications;
    }
    static void secure_notification(::notification *received, guint32 uid, gpointer self)
    {
        notification(received, self);
        static_cast<Seen *>(self)->uids.push_back(uid);
    }
};

class SendersTest : public ServedCallsTest {
protected:
    SendersTest()
    {
        Owned<subscribe_expression> expression = new_expression("Device");
        consumer_prepare_subscribe(consumer, normal, expression.get(), G_CALLBACK(Seen::event),
                                   G_CALLBACK(Seen::notification), &seen, SUBSCRIPTION_TYPE_NORMAL);
        consumer_prepare_subscribe(
            consumer, secure, expression.get(), G_CALLBACK(Seen::secure_event),
            G_CALLBACK(Seen::secure_notification), &seen, SUBSCRIPTION_TYPE_SECURE);
        consumer_prepare_subscribe(consumer, other, expression.get(), G_CALLBACK(Seen::event),
                                   G_CALLBACK(Seen::notification), &seen, 2);
    }

    void send_event(guint32 token)
    {
        call_consumer("Event", Blob{event_bytes("Device", "on")}, token);
    }
    void notify(guint32 token) { call_consumer("Notification", Blob{notification_bytes()}, token); }

    static constexpr guint32 normal = 1, secure = 2, other = 3;
    Seen seen;
};

TEST_F(SendersTest, OnlySecureSubscriptionsAreToldTheSendersUserId)
{
    send_event(normal);
    send_event(other);
    notify(normal);
    notify(other);
    EXPECT_EQ(seen.events, 2);
    EXPECT_EQ(seen.notifications, 2);
    EXPECT_THAT(seen.uids, IsEmpty());
    send_event(secure);
    EXPECT_THAT(seen.uids, ElementsAre(geteuid()));
    notify(secure);
    EXPECT_THAT(seen.uids, ElementsAre(geteuid(), geteuid()));
    EXPECT_EQ(seen.notifications, 3);
}

TEST_F(SendersTest, OnlySecureSubscriptionsPayForTheQuestion)
{
    BusSeam seam;
    send_event(normal);
    send_event(other);
    send_event(99);
    notify(normal);
    notify(99);
    EXPECT_EQ(seam.count("sd_bus_query_sender_creds"), 0u);
    send_event(secure);
    send_event(secure);
    EXPECT_EQ(seam.count("sd_bus_query_sender_creds"), 2u);
    notify(secure);
    EXPECT_EQ(seam.count("sd_bus_query_sender_creds"), 3u);
}

TEST_F(SendersTest, AnotherUserIsSeenAsThatUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become somebody else";
    ObjectAddress object = consumer.address();
    std::string bytes = event_bytes("Device", "on");
    // The consumer asks the bus about the stranger, who therefore waits for the answer.
    std::atomic<bool> done = false;
    int result = -1;
    std::thread waiting([&] {
        result = as_stranger(private_bus.address(), [&] {
            sd_bus *made = nullptr;
            sd_bus_open_system(&made);
            sd_bus_message *event = nullptr;
            sd_bus_message_new_method_call(made, &event, object.name.c_str(), object.path.c_str(),
                                           "com.vemo.Event.Consumer", "Event");
            sd_bus_message_append_array(event, 'y', bytes.data(), bytes.size());
            sd_bus_message_append(event, "u", secure);
            return sd_bus_call(made, event, 0, nullptr, nullptr) >= 0;
        });
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    waiting.join();
    EXPECT_EQ(result, 0);
    EXPECT_THAT(seen.uids, ElementsAre(65534));
}

TEST_F(SendersTest, TheRealUserIdStandsInForTheEffectiveOne)
{
    BusSeam seam;
    seam.fail("sd_bus_creds_get_euid", -ENODATA);
    seam.real_user_id = 4711;
    LogCapture log;
    send_event(secure);
    EXPECT_THAT(seen.uids, ElementsAre(4711));
    send_event(secure);
    EXPECT_THAT(seen.uids, ElementsAre(4711, geteuid())) << "the effective one is preferred";
    EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST_F(SendersTest, CredentialsWithoutAUserIdAreAWarningAndAllBitsSet)
{
    BusSeam seam;
    seam.fail("sd_bus_creds_get_euid", -ENXIO);
    seam.fail("sd_bus_creds_get_uid", -ENODATA);
    LogCapture log;
    send_event(secure);
    EXPECT_THAT(seen.uids, ElementsAre(G_MAXUINT32));
    EXPECT_THAT(log.warnings(), ElementsAre("Failed to retireve UID of the connection: -61"));
}

constexpr const char *missing_credentials =
    "sd_bus_query_sender_creds\\(call, SD_BUS_CREDS_UID\\|SD_BUS_CREDS_EUID, &creds\\) >= 0";

TEST(SendersDeathTest, WantAMessage)
{
    EXPECT_DEATH(get_uid_from_message(nullptr), "assertion failed: \\(call\\)");
}

void be_sent_an_event_without_credentials()
{
    FakeSwitch event_switch;
    BusObject<Consumer> consumer(consumer_new("c"));
    consumer.connect(consumer_init_dbus);
    Seen seen;
    consumer_prepare_subscribe(consumer, 1, new_expression("Device").get(),
                               G_CALLBACK(Seen::secure_event), nullptr, &seen,
                               SUBSCRIPTION_TYPE_SECURE);
    BusSeam seam;
    seam.fail("sd_bus_query_sender_creds", -EINVAL);
    event_switch.call(consumer.address(), "com.vemo.Event.Consumer.Event",
                      Blob{event_bytes("Device", "on")}, 1u);
}

TEST(SendersDeathTest, CredentialsThatCannotBeReadEndTheProcess)
{
    PrivateBus private_bus;
    EXPECT_DEATH(be_sent_an_event_without_credentials(), missing_credentials);
}

TEST_F(SendersTest, AnEventIsDeliveredAlthoughItsSenderHasLeft)
{
    ObjectAddress object = consumer.address();
    LogCapture log;
    // The consumer's context must not run before the sender has left, so this waits outside of it.
    RawPeer sender, bystander;
    for (int i = 0; i < 20; ++i)
        sender.send_event(object.name.c_str(), object.path.c_str(), event_bytes("Device", "on"),
                          secure);
    sender.call("Query.GetAllDeclarations"); // answered behind the events
    std::string name = sender.name();
    sender.leave();
    auto is_there = [&] {
        sd_bus_creds *made = nullptr;
        int r = sd_bus_get_name_creds(bystander.bus(), name.c_str(), 0, &made);
        BusCredentialsOwner owner(made);
        return r >= 0;
    };
    while (is_there()) {
    }
    EXPECT_TRUE(wait_until([&] { return seen.events == 20; }));
    EXPECT_THAT(seen.uids, Each(G_MAXUINT32));
    EXPECT_THAT(log.warnings(), Each("Failed to retireve UID of the connection: -6"));
    EXPECT_EQ(log.warnings().size(), 20u);
}

TEST_F(SendersTest, ABusThatHasGoneDoesNotEndTheConsumerOfItsLastEvents)
{
    ObjectAddress object = consumer.address();
    LogCapture log;
    RawPeer sender;
    sender.send_event(object.name.c_str(), object.path.c_str(), event_bytes("Device", "on"),
                      secure);
    sender.call("Query.GetAllDeclarations");
    private_bus.kill();
    EXPECT_TRUE(wait_until([&] { return seen.events == 1; }));
    EXPECT_THAT(seen.uids, ElementsAre(G_MAXUINT32));
}

} // namespace
