// SPDX-License-Identifier: LGPL-2.1-or-later

// What the query says when there is nothing to ask: no handle, no bus, no other thread.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"

#include <qandor/qandor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char *const no_connection = "Failed to connect to the bus for Query object";
const char *const no_bus = "Assertion failed 'bus == NULL'";
const char *const no_declarations = "Could not get event declarations: ";
const char *const no_types = "Could not get event declaration types: ";

class EventQueryTest : public testing::Test {
protected:
    EventQueryTest() { setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1); }
    ~EventQueryTest() override { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

    static bool is_bare(GNode *head)
    {
        bool bare = head && !head->data && !head->children;
        event_query_free_topic_tree(head);
        return bare;
    }

    LogCapture log;
};

TEST_F(EventQueryTest, AMissingBusIsLoggedByEveryCallAndNothingIsKnown)
{
    event_query *query = event_query_new();
    EXPECT_THAT(log.warnings(), IsEmpty());
    bool nothing = false, bare = false;
    std::atomic<bool> done = false;
    std::thread asker([&] {
        nothing = !event_query_get_declarations(query) && !event_query_get_declaration_types(query);
        bare = is_bare(event_query_get_topic_tree(query)) &&
               is_bare(event_query_get_declaration_type_tree(query));
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    asker.join();
    event_query_free(query);
    run_pending();

    EXPECT_TRUE(nothing);
    EXPECT_TRUE(bare);
    EXPECT_THAT(log.warnings(),
                ElementsAre(no_connection, no_declarations, no_types, no_declarations, no_types));
    EXPECT_THAT(log.criticals(), ElementsAre(no_bus, no_bus, no_bus, no_bus));
}

TEST_F(EventQueryTest, AHandleThatIsFreedAtOnceStillConnectsFirst)
{
    event_query_free(event_query_new());
    EXPECT_THAT(log.warnings(), IsEmpty());
    run_pending();
    EXPECT_THAT(log.warnings(), ElementsAre(no_connection));
}

TEST_F(EventQueryTest, ANullHandleIsACriticalOfTheCallThatAsks)
{
    EXPECT_EQ(event_query_get_declarations(nullptr), nullptr);
    EXPECT_EQ(event_query_get_declaration_types(nullptr), nullptr);
    EXPECT_TRUE(is_bare(event_query_get_topic_tree(nullptr)));
    EXPECT_TRUE(is_bare(event_query_get_declaration_type_tree(nullptr)));
    event_query_free(nullptr);
    const char *of_declarations =
        "event_query_get_declarations: assertion 'event_query != NULL' failed";
    const char *of_types =
        "event_query_get_declaration_types: assertion 'event_query != NULL' failed";
    EXPECT_THAT(log.criticals(), ElementsAre(of_declarations, of_types, of_declarations, of_types));
}

TEST_F(EventQueryTest, AskingOnTheThreadThatWouldHaveToAnswerIsRefused)
{
    event_query *query = event_query_new();
    run_pending();
    ASSERT_TRUE(g_main_context_acquire(nullptr));
    EXPECT_EQ(event_query_get_declarations(query), nullptr);
    EXPECT_TRUE(is_bare(event_query_get_declaration_type_tree(query)));
    g_main_context_release(nullptr);
    EXPECT_EQ(log.criticals().size(), 2u);
    EXPECT_THAT(log.warnings(), ElementsAre(no_connection));
    event_query_free(query);
    run_pending();
}

TEST_F(EventQueryTest, TheObjectIsAPlainGObjectThatCanBeAskedWithoutHavingConnected)
{
    EXPECT_STREQ(g_type_name(query_get_type()), "Query");
    EXPECT_EQ(g_type_parent(query_get_type()), G_TYPE_OBJECT);
    Query *query = query_new();
    EXPECT_EQ(query_send_get_declarations(query), nullptr);
    EXPECT_EQ(query_send_get_declaration_types(query), nullptr);
    g_object_unref(query);
    EXPECT_THAT(log.warnings(), ElementsAre(no_declarations, no_types));
    EXPECT_THAT(log.criticals(), ElementsAre(no_bus, no_bus));
}

TEST_F(EventQueryTest, ANullObjectIsACritical)
{
    query_init_dbus(nullptr);
    EXPECT_EQ(query_send_get_declarations(nullptr), nullptr);
    EXPECT_EQ(query_send_get_declaration_types(nullptr), nullptr);
    EXPECT_THAT(log.criticals(),
                ElementsAre("query_init_dbus: assertion 'self != NULL' failed",
                            "query_send_get_declarations: assertion 'self != NULL' failed",
                            "query_send_get_declaration_types: assertion 'self != NULL' failed"));
}

} // namespace
