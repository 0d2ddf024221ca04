// SPDX-License-Identifier: LGPL-2.1-or-later

// Registration by type with the asynchronous producer.

#include "bus/producer.hpp"
#include "support/installedtypes.hpp"
#include "unit/api/asynchandles.hpp"

#include "api/eventproducer.hpp"

#include <gmock/gmock.h>

using namespace qandor::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string type(const std::string &keys, const char *attributes = " internal=\"true\"")
{
    return std::string("<declare") + attributes + "><expression>" + keys +
           "</expression></declare>";
}

constexpr const char *open_keys = "<keyvalue key=\"a\" value-wildcard=\"true\"/>"
                                  "<keyvalue key=\"b\" value-wildcard=\"true\"/>";
constexpr const char *state_key = "<keyvalue key=\"s\" value-wildcard=\"true\">"
                                  "<tag tag=\"property-state\"/></keyvalue>";

class AsyncRegistrationTest : public AsyncHandlesTest {
protected:
    AsyncRegistrationTest()
    {
        types.ship("t", type(open_keys));
        types.ship("p", type(state_key));
        types.ship("external", type(open_keys, ""));
        run_pending();
        diary.lines.clear();
    }
    ~AsyncRegistrationTest() override { async_producer_free(producer, nullptr, nullptr); }

    // Registers without values; the error, of which nothing but it may come.
    std::string refuse(event_producer *handle, const char *type)
    {
        EXPECT_EQ(async_producer_register(handle, type, Diary::declared, Diary::complete, &diary,
                                          &error, NULL),
                  0u);
        EXPECT_FALSE(g_main_context_pending(nullptr));
        return take(std::exchange(error, nullptr));
    }

    InstalledTypes types;
    event_producer *producer = async_producer_new("producer", Diary::setup, nullptr, &diary);
};

TEST_F(AsyncRegistrationTest, BothFormsGiveTheIdAtOnceAndDeclareLater)
{
    GList *triples = g_list_append(nullptr, const_cast<char *>("a"));
    triples = g_list_append(triples, const_cast<char *>("y"));
    triples = g_list_append(triples, GUINT_TO_POINTER(VALUE_TYPE_STRING));
    EXPECT_EQ(async_producer_register(producer, "t", Diary::declared, nullptr, &diary, &error, "a",
                                      "x", VALUE_TYPE_STRING, NULL),
              1u);
    EXPECT_EQ(async_producer_register_list(producer, "t", Diary::declared, nullptr, &diary, triples,
                                           &error),
              2u);
    g_list_free(triples);
    EXPECT_EQ(error, nullptr);
    EXPECT_THAT(diary.lines, IsEmpty());
    EXPECT_EQ(async_producer_prepare_event(producer, 1), nullptr);

    run_pending();
    EXPECT_THAT(diary.lines, ElementsAre("declared 1", "declared 2"));
    Owned<event> first(async_producer_prepare_event(producer, 1));
    Owned<event> second(async_producer_prepare_event(producer, 2));
    EXPECT_STREQ(event_get_value(first.get(), "a"), "x");
    EXPECT_STREQ(event_get_value(second.get(), "a"), "y");
    EXPECT_FALSE(event_is_complete(first.get())) << "b is left to the events";
}

TEST_F(AsyncRegistrationTest, APropertysStateIsRememberedWhenTheDeclaredCallbackIsCalled)
{
    struct Told {
        event_producer *producer;
        std::string state;
    } told{producer, ""};
    async_producer_register(
        producer, "p",
        [](guint32 id, gpointer data) {
            auto *told = static_cast<Told *>(data);
            const decl_data *record = qandor::state_of(told->producer->producer).find(id);
            if (record && record->cached_event)
                told->state = event_get_value(record->cached_event.get(), "s");
        },
        nullptr, &told, &error, "s", "on", VALUE_TYPE_STRING, NULL);
    run_pending();
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(told.state, "on");
}

TEST_F(AsyncRegistrationTest, ARefusedRegistrationQueuesNothingAndCostsNoId)
{
    EXPECT_EQ(refuse(producer, "nowhere"),
              "12 event_declaration_new_from_type() failed for nowhere");
    EXPECT_EQ(refuse(producer, "p"), "15 Not all keys were parsed for type p");
    EXPECT_EQ(refuse(producer, "external"), "6 External event is missing topic");
    EXPECT_EQ(refuse(nullptr, "t"), "0 NULL object supplied as event producer");
    error = g_error_new_literal(g_quark_from_string("d"), 1, "old");
    EXPECT_EQ(refuse(producer, "t"), "10 Error object already set");
    EXPECT_EQ(async_producer_register_list(producer, "nowhere", nullptr, nullptr, nullptr, nullptr,
                                           nullptr),
              0u);
    EXPECT_THAT(log.warnings(), IsEmpty());
    EXPECT_EQ(async_producer_register(producer, "t", nullptr, nullptr, nullptr, nullptr, NULL), 1u);
}

TEST_F(AsyncRegistrationTest, ATypeWithoutANameIsACriticalAndNoError)
{
    EXPECT_EQ(refuse(producer, nullptr), "fine");
    EXPECT_THAT(log.criticals(), ElementsAre("event_producer_int_register_list: assertion 'type "
                                             "!= NULL' failed"));
}

using AsyncRegistrationDeathTest = AsyncRegistrationTest;

TEST_F(AsyncRegistrationDeathTest, WantsThreeElementsAKey)
{
    GList *one = g_list_append(nullptr, const_cast<char *>("a"));
    EXPECT_DEATH(
        async_producer_register_list(producer, "t", nullptr, nullptr, nullptr, one, nullptr),
        "g_list_length\\(iter\\) % 3 == 0");
    g_list_free(one);
}

} // namespace
