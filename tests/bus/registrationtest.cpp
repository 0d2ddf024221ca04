// SPDX-License-Identifier: LGPL-2.1-or-later

// Types that are installed through the real switch, registered by their names.

#include "support/installedtypes.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/records.hpp"
#include "support/switchprocess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor::test;
using testing::ElementsAre;

namespace {

// What a consumer was told: the values that it wants of each event, and the number of declarations
// that are there.
struct Receiver {
    std::vector<const char *> keys;
    std::vector<std::string> events;
    int declarations = 0;

    static void receive_event(event *received, gpointer self)
    {
        Owned<event> owner(received);
        auto *receiver = static_cast<Receiver *>(self);
        std::string text;
        for (const char *key : receiver->keys)
            text += (text.empty() ? "" : " ") + std::string(event_get_value(received, key));
        receiver->events.push_back(text);
    }
    static void receive_notification(notification *received, gpointer self)
    {
        Owned<notification> owner(received);
        static_cast<Receiver *>(self)->declarations +=
            notification_is_type_deleted(received) ? -1 : 1;
    }
};

class RegistrationTest : public testing::Test {
protected:
    RegistrationTest()
        : types(event_switch.read_only_types(), event_switch.writable_types()),
          producer(event_producer_new("producer")), consumer(event_consumer_new("consumer"))
    {
    }
    ~RegistrationTest() override
    {
        int freed = 0;
        event_consumer_int_free(
            consumer, [](event_consumer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        event_producer_int_free(
            producer, [](event_producer *, gpointer count) { ++*static_cast<int *>(count); },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed == 2; }));
    }

    // Installs a type of the topic "Device" with two open keys, of which the second may be a state.
    void install(const char *type, bool is_property)
    {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
        event_declaration_add_key(declaration.get(), "level", VALUE_TYPE_DOUBLE);
        event_declaration_add_key(declaration.get(), "on", VALUE_TYPE_BOOL);
        if (is_property)
            event_declaration_add_key_tag(declaration.get(), "on", PROPERTY_STATE_TAG);
        bool installed = false;
        event_producer_add_declaration(
            producer, type, declaration.get(),
            [](const gchar *, gpointer data, GError *error) {
                EXPECT_EQ(error, nullptr) << error->message;
                *static_cast<bool *>(data) = true;
            },
            &installed);
        ASSERT_TRUE(wait_until([&] { return installed; }));
    }

    void subscribe(Receiver &receiver)
    {
        Owned<subscribe_expression> expression(subscribe_expression_new());
        subscribe_expression_add_key_value(expression.get(), "topic0", "Device");
        event_consumer_subscribe_full(consumer, expression.get(), Receiver::receive_event,
                                      Receiver::receive_notification, &receiver);
    }

    static void note_completion(guint32 local_id, gpointer completed)
    {
        static_cast<std::vector<guint32> *>(completed)->push_back(local_id);
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    InstalledTypes types;
    event_producer *producer;
    event_consumer *consumer;
    gdouble level = 2.5;
    gboolean on = 7;
};

TEST_F(RegistrationTest, EventsOfARegisteredTypeReachConsumersWithWhatWasGiven)
{
    install("device", false);
    Receiver receiver{{"level", "on"}, {}};
    subscribe(receiver);
    guint32 id =
        event_producer_register(producer, "device", "level", &level, VALUE_TYPE_DOUBLE, NULL);
    ASSERT_NE(id, 0u);
    ASSERT_TRUE(wait_until([&] { return receiver.declarations == 1; }));
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, id); }));

    ASSERT_TRUE(wait_until([&] {
        Owned<event> event(event_producer_prepare_event(producer, id));
        event_set_value(event.get(), "on", &on);
        EXPECT_TRUE(event_producer_send_event(producer, event.get(), nullptr));
        return !receiver.events.empty();
    }));
    EXPECT_EQ(receiver.events.front(), "2.500000 1");
}

TEST_F(RegistrationTest, ThePropertysStateIsKnownFromTheRegistrationOn)
{
    install("device", true);
    guint32 id = event_producer_register(producer, "device", "on", &on, VALUE_TYPE_BOOL, "level",
                                         &level, VALUE_TYPE_DOUBLE, NULL);
    ASSERT_NE(id, 0u);
    Receiver receiver{{"level", "on"}, {}};
    subscribe(receiver);
    ASSERT_TRUE(wait_until([&] { return receiver.events.size() == 1; }));

    on = FALSE;
    Owned<event> state(event_producer_prepare_event(producer, id));
    EXPECT_FALSE(event_is_complete(state.get())) << "each event brings its own state";
    event_set_value(state.get(), "on", &on);
    EXPECT_TRUE(event_producer_send_event(producer, state.get(), nullptr));
    ASSERT_TRUE(wait_until([&] { return receiver.events.size() == 2; }));
    EXPECT_THAT(receiver.events, ElementsAre("2.500000 1", "2.500000 0"));
}

TEST_F(RegistrationTest, ThePropertysStateSurvivesARestartOfTheSwitch)
{
    install("device", true);
    guint32 id = event_producer_register(producer, "device", "on", &on, VALUE_TYPE_BOOL, "level",
                                         &level, VALUE_TYPE_DOUBLE, NULL);
    ASSERT_TRUE(wait_until([&] { return event_producer_declaration_complete(producer, id); }));
    event_switch.kill();
    ASSERT_TRUE(wait_until([&] { return !event_producer_declaration_complete(producer, id); }));
    event_switch.start();
    Receiver receiver{{"on"}, {}};
    subscribe(receiver);
    ASSERT_TRUE(wait_until([&] { return receiver.events.size() == 1; }));
    EXPECT_EQ(receiver.events.front(), "1");
}

TEST_F(RegistrationTest, AStateThatTheTypeFixesIsToldLikeAnyOther)
{
    types.add("fixed", "<declare><expression><keyvalue key=\"topic0\" value=\"Device\"/>"
                       "<keyvalue key=\"on\" value=\"always\"><tag tag=\"property-state\"/>"
                       "</keyvalue></expression></declare>");
    EXPECT_NE(event_producer_register(producer, "fixed", NULL), 0u);
    Receiver receiver{{"on"}, {}};
    subscribe(receiver);
    ASSERT_TRUE(wait_until([&] { return receiver.events.size() == 1; }));
    EXPECT_EQ(receiver.events.front(), "always");
}

TEST_F(RegistrationTest, TheSwitchsCompletionIsToldInBothForms)
{
    install("device", false);
    std::vector<guint32> completed;
    guint32 first =
        event_producer_register_and_notify(producer, "device", note_completion, &completed, NULL);
    ASSERT_TRUE(wait_until([&] { return completed.size() == 1; }));

    GList *triples = g_list_append(nullptr, const_cast<char *>("on"));
    triples = g_list_append(triples, &on);
    triples = g_list_append(triples, GUINT_TO_POINTER(VALUE_TYPE_BOOL));
    guint32 second = event_producer_register_and_notify_list(producer, "device", note_completion,
                                                             &completed, triples);
    g_list_free(triples);
    ASSERT_TRUE(wait_until([&] { return completed.size() == 2; }));
    EXPECT_THAT(completed, ElementsAre(first, second));
    EXPECT_NE(first, second);
}

} // namespace
