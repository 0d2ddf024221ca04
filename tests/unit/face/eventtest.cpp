// SPDX-License-Identifier: LGPL-2.1-or-later

// Values of events in their own types.

#include <qandor/qandor.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qandor;
using testing::ElementsAre;

namespace {

Event open_event()
{
    return Declaration()
        .topic("Device")
        .key<double>("load")
        .key<int>("count")
        .key<bool>("on")
        .key<std::string>("state")
        .sample();
}

TEST(EventValues, ComeBackInTheirTypes)
{
    Event event = open_event();
    event["load"] = 0.25;
    event["count"] = -7;
    event["on"] = true;
    event["state"] = "ready";

    double load = event["load"];
    int count = event["count"];
    bool on = event["on"];
    std::string state = event["state"];
    EXPECT_EQ(load, 0.25);
    EXPECT_EQ(count, -7);
    EXPECT_TRUE(on);
    EXPECT_EQ(state, "ready");
    EXPECT_TRUE(event.is_complete());
}

TEST(EventValues, AnIntegerGoesWhereADoubleIsWanted)
{
    Event event = open_event();
    event["load"] = 3;
    EXPECT_EQ(event["load"].as<double>(), 3.0);
}

TEST(EventValues, AnotherTypeIsAnErrorThatNamesTheKeyAndChangesNothing)
{
    Event event = open_event();
    Result<void> result = event.try_set("count", "seven");
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().message(),
              "The key 'count' does not take this: an int that is open is wanted");
    EXPECT_FALSE(event.try_set("count", 1.5));
    EXPECT_FALSE(event.try_set("count", true));
    EXPECT_FALSE(event.try_set("on", 1));
    EXPECT_FALSE(event.try_set("state", 1));
    EXPECT_FALSE(event.try_set("count", gint64{1} << 40));
    EXPECT_FALSE(event.try_set("count", guint64{G_MAXUINT64}));
    EXPECT_THROW(event["count"] = "seven", Error);
    EXPECT_FALSE(event.is_complete());
}

TEST(EventValues, UnknownKeysAndThoseOfAnEventThatWasReceivedCannotBeSet)
{
    Event event = open_event();
    event["state"] = "ready";
    EXPECT_EQ(event.try_set("nothing", 1).error().message(), "The event has no key 'nothing'");

    std::unique_ptr<GArray, decltype(&g_array_unref)> bytes(event_serialize(event.c()),
                                                            g_array_unref);
    Event received(event_deserialize(bytes.get()));
    EXPECT_FALSE(received.try_set("state", "changed"));
    EXPECT_EQ(received["state"].as<std::string>(), "ready");
}

TEST(EventValues, WhatIsNotThereOrNotOfTheTypeIsNothing)
{
    Event event = open_event();
    event["state"] = "12x";
    EXPECT_EQ(event.get<int>("state"), std::nullopt);
    EXPECT_EQ(event.get<bool>("state"), std::nullopt);
    EXPECT_EQ(event.get<double>("state"), std::nullopt);
    EXPECT_EQ(event.get<int>("nothing"), std::nullopt);
    EXPECT_THROW(event["state"].as<int>(), Error);
    event["state"] = "300";
    EXPECT_EQ(event.get<int>("state"), 300);
    EXPECT_EQ(event.get<guint8>("state"), std::nullopt);
}

TEST(EventValues, KeysComeInTheirOrder)
{
    EXPECT_THAT(open_event().keys(), ElementsAre("topic0", "load", "count", "on", "state"));
    EXPECT_TRUE(open_event().has("topic0"));
    EXPECT_FALSE(open_event().has("nothing"));
}

TEST(Event, CopiesAreIndependent)
{
    Event event = open_event();
    event["count"] = 1;
    Event copy = event;
    copy["count"] = 2;
    EXPECT_EQ(event["count"].as<int>(), 1);
    EXPECT_EQ(copy["count"].as<int>(), 2);
    event = copy;
    EXPECT_EQ(event["count"].as<int>(), 2);
}

TEST(Event, MatchesExpressions)
{
    Event event = open_event();
    event["count"] = 5;
    EXPECT_TRUE(event.matches(key("count") == 5 && key("topic0") == "Device"));
    EXPECT_FALSE(event.matches(key("count") == 6));
}

TEST(Event, AnUnsentOneHappenedAtTheEpoch)
{
    EXPECT_EQ(open_event().time().time_since_epoch().count(), 0);
    Event event = open_event();
    event_set_timestamp(event.c(), 12, 500000);
    EXPECT_EQ(event.time().time_since_epoch(), std::chrono::milliseconds(12500));
}

TEST(Result, ThrowsWhatWentWrong)
{
    Result<int> failed = Error("domain", 4, "words");
    try {
        failed.value();
        FAIL();
    } catch (const Error &error) {
        EXPECT_EQ(error.domain(), "domain");
        EXPECT_EQ(error.code(), 4);
        EXPECT_STREQ(error.what(), "words");
    }
    EXPECT_EQ(Result<int>(3).value(), 3);
}

} // namespace
