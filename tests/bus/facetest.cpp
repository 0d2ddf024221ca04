// SPDX-License-Identifier: LGPL-2.1-or-later

// Producers and consumers as C++ programs hold them, over a real bus with the real switch.

#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <qandor/qandor.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>

using namespace qandor;
using qandor::test::wait_until;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Declaration load()
{
    return Declaration().topic("Device", "Load").key<double>("load");
}

Declaration power()
{
    return Declaration().topic("Power").key<std::string>("state").property("state");
}

// A handle that is waited for when it ends.
template <class Handle> class Ending {
public:
    template <class... Arguments> explicit Ending(Arguments... arguments)
    {
        handle_.emplace(std::move(arguments)...);
        handle_->when_gone([this] { gone_ = true; });
    }
    ~Ending()
    {
        handle_.reset();
        EXPECT_TRUE(wait_until([this] { return gone_; }));
    }
    Handle *operator->() { return &*handle_; }

private:
    std::optional<Handle> handle_;
    bool gone_ = false;
};

class FaceTest : public testing::Test {
protected:
    // Runs what waits for the main context beside it.
    template <class Ask> static void ask_beside(Ask ask)
    {
        std::atomic<bool> done = false;
        std::thread asker([&] {
            ask();
            done = true;
        });
        EXPECT_TRUE(wait_until([&] { return done.load(); }));
        asker.join();
    }

    test::PrivateBus bus;
    test::SwitchProcess event_switch;
};

TEST_F(FaceTest, AnEventArrivesWithItsValues)
{
    Ending<EventProducer> producer("producer");
    Ending<EventConsumer> consumer("consumer");
    bool is_known = false;
    Publication loads = producer->declare(load(), [&] { is_known = true; });
    std::vector<double> received;
    Subscription subscription = consumer->subscribe(
        key("topic1") == "Load", [&](Event event) { received.push_back(event["load"]); });
    ASSERT_TRUE(wait_until([&] { return is_known; }));
    EXPECT_TRUE(loads.is_known());
    EXPECT_TRUE(wait_until([&] {
        Event event = loads.event();
        event["load"] = 0.5;
        loads.send(event);
        return !received.empty();
    }));
    EXPECT_EQ(received.front(), 0.5);
}

TEST_F(FaceTest, AnOpenKeyIsAnErrorOfTheSending)
{
    Ending<EventProducer> producer("producer");
    Publication power_state = producer->declare(power());
    Result<void> sent = power_state.try_send(power_state.event());
    ASSERT_FALSE(sent);
    EXPECT_EQ(sent.error().code(), 6);
    EXPECT_THROW(power_state.send(power_state.event()), Error);
    EXPECT_FALSE(producer->try_declare(Declaration().key<int>("count")));
}

TEST_F(FaceTest, ProducersAreToldWhoListensAndConsumersWhatIsThere)
{
    std::vector<std::size_t> listened;
    Ending<EventProducer> producer(
        "producer", [&](const std::vector<guint32> &ids) { listened.push_back(ids.size()); });
    Ending<EventConsumer> consumer("consumer");
    std::vector<bool> removals;
    std::optional<Publication> loads = producer->declare(load());
    std::optional<Subscription> subscription = consumer->subscribe(
        key("load").exists(), [](Event) {},
        [&](Notification notification) {
            EXPECT_EQ(notification.declaration().sample().keys().size(), 3u);
            removals.push_back(notification.is_removal());
        });
    ASSERT_TRUE(wait_until([&] { return listened.size() == 1 && removals.size() == 1; }));
    loads.reset();
    ASSERT_TRUE(wait_until([&] { return removals.size() == 2; }));
    EXPECT_THAT(listened, ElementsAre(1u, 0u));
    EXPECT_THAT(removals, ElementsAre(false, true));
}

TEST_F(FaceTest, APropertysFunctionTellsItsState)
{
    Ending<EventProducer> producer("producer");
    Declaration declaration = power();
    declaration.property("state", [](Event &event) { event["state"] = "saving"; });
    Publication published = producer->declare(declaration);
    Ending<EventConsumer> consumer("consumer");
    std::vector<std::string> states;
    Subscription subscription = consumer->subscribe(
        key("topic0") == "Power", [&](Event event) { states.push_back(event["state"]); });
    ASSERT_TRUE(wait_until([&] { return states.size() == 1; }));
    subscription.refresh();
    ASSERT_TRUE(wait_until([&] { return states.size() == 2; }));
    EXPECT_THAT(states, ElementsAre("saving", "saving"));
}

TEST_F(FaceTest, ASecureSubscriptionIsToldTheUser)
{
    Ending<EventProducer> producer("producer");
    Ending<EventConsumer> consumer("consumer");
    Publication published = producer->declare(power());
    Event event = published.event();
    event["state"] = "on";
    published.send(event);
    std::optional<guint32> user;
    Subscription subscription = consumer->subscribe_secure(
        key("topic0") == "Power", [&](Event, std::optional<guint32> uid) { user = uid; });
    ASSERT_TRUE(wait_until([&] { return user.has_value(); }));
    EXPECT_EQ(*user, getuid());
}

TEST_F(FaceTest, AFunctionMayEndItsOwnSubscription)
{
    Ending<EventProducer> producer("producer");
    Ending<EventConsumer> consumer("consumer");
    Publication published = producer->declare(power());
    Event event = published.event();
    event["state"] = "on";
    int received = 0;
    std::optional<Subscription> once;
    bool is_known = false;
    once = consumer->subscribe(key("topic0") == "Power", [&](Event) {
        ++received;
        once.reset();
    });
    Subscription other = consumer->subscribe(key("topic0") == "Power", [&](Event received_event) {
        is_known = received_event["state"].as<std::string>() == "last";
    });
    EXPECT_TRUE(wait_until([&] {
        published.send(event);
        return received == 1;
    }));
    event["state"] = "last";
    EXPECT_TRUE(wait_until([&] {
        published.send(event);
        return is_known;
    }));
    EXPECT_EQ(received, 1);
}

TEST_F(FaceTest, AHandleLivesAsLongAsWhatIsHadFromIt)
{
    bool producer_gone = false, consumer_gone = false;
    std::optional<EventProducer> producer("producer");
    std::optional<EventConsumer> consumer("consumer");
    producer->when_gone([&] { producer_gone = true; });
    consumer->when_gone([&] { consumer_gone = true; });
    std::optional<Publication> published = producer->declare(power());
    std::optional<Subscription> subscription;
    bool received = false;
    subscription = consumer->subscribe(key("topic0") == "Power", [&](Event) { received = true; });
    producer.reset();
    consumer.reset();
    Event event = published->event();
    event["state"] = "on";
    EXPECT_TRUE(wait_until([&] {
        published->send(event);
        return received;
    }));
    EXPECT_FALSE(producer_gone || consumer_gone);
    published.reset();
    subscription.reset();
    EXPECT_TRUE(wait_until([&] { return producer_gone && consumer_gone; }));
}

TEST_F(FaceTest, WhatThereIsCanBeAskedFor)
{
    Ending<EventProducer> producer("producer");
    bool is_known = false;
    Publication loads = producer->declare(load(), [&] { is_known = true; });
    ASSERT_TRUE(wait_until([&] { return is_known; }));
    ask_beside([] {
        EventQuery query;
        std::vector<Declaration> declarations = query.declarations();
        ASSERT_EQ(declarations.size(), 1u);
        EXPECT_NE(declarations.front().global_id(), 0u);
        Topic root = query.topics();
        ASSERT_EQ(root.children.size(), 1u);
        EXPECT_EQ(root.children[0].name, "Device");
        ASSERT_EQ(root.children[0].children.size(), 1u);
        const Topic &leaf = root.children[0].children[0];
        EXPECT_EQ(leaf.name, "Load");
        ASSERT_EQ(leaf.events.size(), 1u);
        EXPECT_THAT(leaf.events[0].keys(), ElementsAre("topic0", "topic1", "load"));
        EXPECT_THAT(query.types(), IsEmpty());
        EXPECT_THAT(query.topics_of_types().children, IsEmpty());
    });
}

TEST_F(FaceTest, AskingForTheStateOfNoPropertyIsAnError)
{
    Ending<EventConsumer> consumer("consumer");
    ask_beside([&] {
        Result<PropertyState> state = consumer->try_property_state(key("topic0") == "Nowhere");
        ASSERT_FALSE(state);
        EXPECT_EQ(state.error().code(), 7);
    });
}

TEST_F(FaceTest, AStateCannotBeWaitedForOnTheMainContextsThread)
{
    Ending<EventConsumer> consumer("consumer");
    std::string words;
    test::LogCapture log;
    auto ask = [&] {
        words = consumer->try_property_state(key("topic0") == "Power").error().message();
    };
    g_idle_add(
        [](gpointer data) -> gboolean {
            (*static_cast<decltype(ask) *>(data))();
            return G_SOURCE_REMOVE;
        },
        &ask);
    EXPECT_TRUE(wait_until([&] { return !words.empty(); }));
    EXPECT_EQ(words, "A state cannot be waited for on the main context's thread");
    EXPECT_EQ(log.criticals().size(), 1u);
}

} // namespace
