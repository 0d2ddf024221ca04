// SPDX-License-Identifier: LGPL-2.1-or-later

// Asking the real switch what there is.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"
#include "support/topictrees.hpp"

#include "platform/owners.hpp"

#include <qandor/query.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

struct TreeDeleter {
    void operator()(GNode *head) const { event_query_free_topic_tree(head); }
};
using Tree = std::unique_ptr<GNode, TreeDeleter>;

using Declarations = std::vector<Owned<event_declaration>>;

Declarations take_declarations(GList *list)
{
    Declarations declarations;
    for (GList *link = list; link; link = link->next)
        declarations.emplace_back(static_cast<event_declaration *>(link->data));
    g_list_free(list);
    return declarations;
}

// Runs a function that waits, on a thread of its own, while this one runs the main context.
template <class Result> Result beside_the_loop(const std::function<Result()> &function)
{
    Result result{};
    std::atomic<bool> done = false;
    std::thread thread([&] {
        result = function();
        done = true;
    });
    EXPECT_TRUE(wait_until([&] { return done.load(); }));
    thread.join();
    return result;
}

class QueryTest : public testing::Test {
protected:
    ~QueryTest() override
    {
        event_query_free(query);
        if (producer)
            free_producer();
        run_pending();
    }

    void free_producer()
    {
        bool freed = false;
        event_producer_int_free(
            producer, [](event_producer *, gpointer data) { *static_cast<bool *>(data) = true; },
            &freed);
        EXPECT_TRUE(wait_until([&] { return freed; }));
        producer = nullptr;
    }

    guint32 declare(const Owned<event_declaration> &declaration)
    {
        if (!producer)
            producer = event_producer_new("producer");
        bool complete = false;
        guint32 id = event_producer_declare_and_notify(
            producer, declaration.get(),
            [](guint32, gpointer data) { *static_cast<bool *>(data) = true; }, &complete);
        EXPECT_TRUE(wait_until([&] { return complete; }));
        return id;
    }
    void install(const std::string &type, const Owned<event_declaration> &declaration)
    {
        Owned<gchar> xml(event_declaration_serialize_xml(declaration.get()));
        std::ofstream(event_switch.read_only_types() / (type + ".xml")) << xml.get();
    }

    GList *list(GList *(*ask)(event_query *))
    {
        return beside_the_loop<GList *>([&] { return ask(query); });
    }
    std::string tree(GNode *(*ask)(event_query *))
    {
        Tree tree(beside_the_loop<GNode *>([&] { return ask(query); }));
        return text_of_tree(tree.get());
    }

    PrivateBus bus;
    SwitchProcess event_switch;
    event_query *query = event_query_new();
    event_producer *producer = nullptr;
};

TEST_F(QueryTest, NothingIsDeclaredAndInstalledAtFirst)
{
    LogCapture log;
    EXPECT_EQ(list(event_query_get_declarations), nullptr);
    EXPECT_EQ(list(event_query_get_declaration_types), nullptr);
    EXPECT_EQ(tree(event_query_get_topic_tree), "");
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "");
    EXPECT_THAT(log.texts(G_LOG_LEVEL_MASK), IsEmpty());
}

TEST_F(QueryTest, DeclarationsComeWithTheIdsOfTheSwitchAndInTheOrderOfDeclaring)
{
    declare(declaration_of({{"Device"}, {"Load"}}));
    Owned<event_declaration> property = declaration_of({{"Device"}, {"Power"}});
    event_declaration_set_property(property.get(), "state", nullptr, nullptr);
    guint32 id = declare(property);

    Declarations declarations = take_declarations(list(event_query_get_declarations));
    ASSERT_EQ(declarations.size(), 2u);
    EXPECT_FALSE(event_declaration_is_property(declarations[0].get()));
    EXPECT_TRUE(event_declaration_is_property(declarations[1].get()));
    EXPECT_EQ(event_declaration_get_local_id(declarations[1].get()), id);
    EXPECT_NE(event_declaration_get_global_id(declarations[1].get()), 0u);
    EXPECT_NE(event_declaration_get_producer_id(declarations[1].get()), 0u);
    EXPECT_STREQ(
        inspectable_get_value(event_declaration_get_inspectable(declarations[1].get()), "topic1"),
        "Power");
}

TEST_F(QueryTest, WhatIsDeclaredMakesATreeAndLeavesItWhenItIsUndeclared)
{
    guint32 first = declare(declaration_of({{"Device", "n", "The device", {"t"}}, {"Load"}}));
    declare(declaration_of({{"Device"}, {"Power"}}));
    Owned<event_declaration> internal(event_declaration_new(TRUE));
    declare(internal);
    EXPECT_EQ(tree(event_query_get_topic_tree), "Device {n} (The device) #t=true\n"
                                                "  Load 1\n"
                                                "  Power 2\n");
    EXPECT_EQ(take_declarations(list(event_query_get_declarations)).size(), 3u);

    event_producer_undeclare(producer, first);
    EXPECT_TRUE(
        wait_until([&] { return tree(event_query_get_topic_tree) == "Device\n  Power 2\n"; }));
    free_producer();
    EXPECT_TRUE(wait_until([&] { return tree(event_query_get_topic_tree).empty(); }));
}

TEST_F(QueryTest, InstalledTypesMakeATreeOfTheirOwn)
{
    install("b", declaration_of({{"Device"}, {"Power"}}));
    install("a", declaration_of({{"Device", "", "The device"}, {"Load", "n"}}));
    declare(declaration_of({{"Clock"}}));
    EXPECT_EQ(take_declarations(list(event_query_get_declaration_types)).size(), 2u);
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device (The device)\n"
                                                           "  Load {n} 0\n"
                                                           "  Power 0\n");
}

TEST_F(QueryTest, ThousandsOfDeclarationsAreToldInOnePiece)
{
    constexpr int count = 3000;
    guint32 last = declare(declaration_of({{"a"}, {"0"}}));
    for (int i = 1; i < count; ++i)
        last = event_producer_declare(producer, declaration_of({{"a"}, {std::to_string(i)}}).get());
    ASSERT_TRUE(
        wait_until([&] { return event_producer_declaration_complete(producer, last); }, 120));

    Tree tree(beside_the_loop<GNode *>([&] { return event_query_get_topic_tree(query); }));
    ASSERT_EQ(g_node_n_children(tree.get()), 1u);
    int found = 0;
    for (GNode *node = tree->children->children; node; node = node->next, ++found)
        ASSERT_EQ(static_cast<topic_node_data *>(node->data)->topic, std::to_string(found));
    EXPECT_EQ(found, count);
}

TEST_F(QueryTest, SeveralThreadsMayAskOneHandleAtOnce)
{
    declare(declaration_of({{"a"}}));
    constexpr std::size_t count = 4;
    std::atomic<std::size_t> answered = 0;
    std::vector<std::thread> askers;
    for (std::size_t i = 0; i < count; ++i)
        askers.emplace_back([&] {
            for (int round = 0; round < 20; ++round) {
                Tree tree(event_query_get_topic_tree(query));
                EXPECT_EQ(text_of_tree(tree.get()), "a 1\n");
            }
            ++answered;
        });
    EXPECT_TRUE(wait_until([&] { return answered == count; }));
    for (std::thread &asker : askers)
        asker.join();
}

TEST_F(QueryTest, AskingForTypesWithoutASwitchIsAWarningWithTheBusesWords)
{
    event_switch.kill();
    LogCapture log;
    EXPECT_EQ(list(event_query_get_declaration_types), nullptr);
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "");
    auto warning = StartsWith("Could not get event declaration types: The name "
                              "com.vemo.Event.Switch was not provided by any .service files");
    EXPECT_THAT(log.warnings(), ElementsAre(warning, warning));
    EXPECT_THAT(log.criticals(), IsEmpty());
    event_switch.start();
    install("a", declaration_of({{"Device"}}));
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device 0\n");
}

using QueryDeathTest = QueryTest;

TEST_F(QueryDeathTest, AskingForDeclarationsWithoutASwitchEndsTheProcess)
{
    event_switch.kill();
    EXPECT_DEATH(
        {
            Query *object = query_new();
            query_init_dbus(object);
            query_send_get_declarations(object);
        },
        "r >= 0");
}

TEST_F(QueryTest, TheNextQuestionConnectsAgainAfterARestartOfTheBus)
{
    install("a", declaration_of({{"Device"}}));
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device 0\n");
    LogCapture log;
    bus.kill();
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "");
    EXPECT_EQ(tree(event_query_get_topic_tree), "") << "which does not end the process";
    bus.start();
    event_switch.kill();
    event_switch.start();
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device 0\n");
    // Without a turn of the main context in between.
    bus.kill();
    bus.start();
    event_switch.kill();
    event_switch.start();
    EXPECT_EQ(tree(event_query_get_topic_tree), "");
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device 0\n");
}

TEST_F(QueryTest, AHandleThatFoundNoBusConnectsWithALaterQuestion)
{
    run_pending();
    bus.kill();
    LogCapture log;
    event_query *early = event_query_new();
    run_pending();
    EXPECT_THAT(log.warnings(), ElementsAre("Failed to connect to the bus for Query object"));
    bus.start();
    event_switch.kill();
    event_switch.start();
    install("a", declaration_of({{"Device"}}));
    std::swap(query, early);
    EXPECT_EQ(tree(event_query_get_declaration_type_tree), "Device 0\n");
    event_query_free(early);
    run_pending();
}

// Sees who is on the bus.
class Onlooker {
public:
    Onlooker()
    {
        sd_bus *made = nullptr;
        sd_bus_open_system(&made);
        bus_.reset(made);
    }

    std::size_t count_connections()
    {
        gchar **names = nullptr;
        EXPECT_GE(sd_bus_list_names(bus_.get(), &names, nullptr), 0);
        std::size_t count = 0;
        for (gchar **name = names; name && *name; ++name) {
            count += **name == ':';
            free(*name);
        }
        free(names);
        return count;
    }

private:
    Owner<sd_bus, sd_bus_flush_close_unref> bus_;
};

TEST_F(QueryTest, AHandleHasOneConnectionUntilItIsFreed)
{
    // The switch, the query and the onlooker.
    Onlooker onlooker;
    run_pending();
    EXPECT_TRUE(wait_until([&] { return onlooker.count_connections() == 3; }));
    event_query *other = event_query_new();
    EXPECT_TRUE(wait_until([&] { return onlooker.count_connections() == 4; }));
    event_query_free(other);
    EXPECT_TRUE(wait_until([&] { return onlooker.count_connections() == 3; }));
}

// The switch sends a name no more when it does not show that it reads.
TEST_F(QueryTest, AProgramThatOnlyAsksIsAnsweredForEver)
{
    constexpr int count = 40, rounds = 40;
    for (int i = 0; i < count; ++i) {
        Owned<event_declaration> declaration(event_declaration_new(FALSE));
        event_declaration_add_key_value(declaration.get(), "topic0",
                                        std::string(50000, 'a').c_str(), VALUE_TYPE_STRING);
        event_declaration_add_key_value(declaration.get(), "number", std::to_string(i).c_str(),
                                        VALUE_TYPE_STRING);
        declare(declaration);
    }
    Query *asking = query_new();
    query_init_dbus(asking);
    // The main context does not run: 80 MB are sent.
    for (int round = 0; round < rounds && !HasFailure(); ++round)
        EXPECT_EQ(take_declarations(query_send_get_declarations(asking)).size(),
                  std::size_t(count));
    g_object_unref(asking);
}

} // namespace
