// SPDX-License-Identifier: LGPL-2.1-or-later

// How many calls wait for an answer at a time, and what becomes of the others.

#include "bus/callwindow.hpp"
#include "bus/consumerbusclient.hpp"
#include "support/logcapture.hpp"
#include "support/mainloop.hpp"
#include "support/privatebus.hpp"

#include <qandor/busconnection.h>
#include <qandor/serialize.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

using namespace qandor;
using namespace qandor::test;
using testing::ElementsAre;

namespace {

using BusOwner = Owner<sd_bus, sd_bus_flush_close_unref>;

// A connection that takes calls and answers them only when it is asked to.
class SlowPeer {
public:
    SlowPeer()
    {
        sd_bus *made = nullptr;
        sd_bus_open_system(&made);
        bus_.reset(made);
        sd_bus_add_object_vtable(made, nullptr, "/consumer", "com.vemo.Event.Consumer", vtable,
                                 this);
        sd_bus_get_unique_name(made, &name);
    }

    // Answers what has come; whether there was anything.
    bool work() { return sd_bus_process(bus_.get(), nullptr) > 0; }

    const char *name = nullptr;
    std::vector<guint32> numbers;

private:
    static int receive(sd_bus_message *call, void *self, sd_bus_error *)
    {
        const void *data;
        size_t size;
        guint32 number;
        sd_bus_message_read_array(call, 'y', &data, &size);
        EXPECT_EQ(size, sizeof number);
        std::memcpy(&number, data, sizeof number);
        static_cast<SlowPeer *>(self)->numbers.push_back(GUINT32_FROM_LE(number));
        return sd_bus_reply_method_return(call, nullptr);
    }
    static const sd_bus_vtable vtable[];

    BusOwner bus_;
};

const sd_bus_vtable SlowPeer::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, receive, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

class CallWindowTest : public testing::Test {
protected:
    CallWindowTest()
    {
        GError *error = nullptr;
        connect_to_bus_and_attach_events(&source, &bus, &error);
    }
    ~CallWindowTest() override { disconnect_from_bus_and_detach_events(source, bus); }

    std::shared_ptr<CallWindow> open(const WindowLimits &limits)
    {
        CallWindow::close(bus);
        CallWindow::open(bus, limits);
        return CallWindow::find(bus);
    }

    // An event that is nothing but its number.
    EventCall event(guint32 number) const
    {
        GArray *bytes = serialize_create_array();
        serialize_32bit(bytes, number);
        return {new_event_bytes(bus, bytes), "/consumer", 1};
    }
    EventCall state(guint32 number, guint32 declaration) const
    {
        EventCall state = event(number);
        state.is_property = true;
        state.declaration = declaration;
        return state;
    }

    BusMessageOwner question() const
    {
        sd_bus_message *made = nullptr;
        sd_bus_message_new_method_call(bus, &made, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus", "GetId");
        return BusMessageOwner(made);
    }

    void call(const SlowPeer &peer, guint32 number)
    {
        deliver(peer, event(number).message(bus, peer.name));
    }
    template <class Content> void deliver(const SlowPeer &peer, Content content)
    {
        CallWindow::find(bus)->call(peer.name, {std::move(content), count_answer, this, 1000});
    }
    static int count_answer(sd_bus_message *answer, void *self, sd_bus_error *)
    {
        auto *test = static_cast<CallWindowTest *>(self);
        ++test->answers;
        test->errors += sd_bus_message_is_method_error(answer, nullptr) > 0;
        return 0;
    }

    PrivateBus private_bus;
    GSource *source = nullptr;
    sd_bus *bus = nullptr;
    guint answers = 0;
    guint errors = 0;
};

TEST_F(CallWindowTest, OneDestinationGetsItsShareAndAllTogetherTheWindow)
{
    SlowPeer one, other;
    auto window = CallWindow::find(bus);
    for (guint32 i = 0; i < 100; ++i)
        call(one, i);
    for (guint32 i = 0; i < 100; ++i)
        call(other, i);
    EXPECT_EQ(window->slots().taken(), 8u) << "four for each newcomer";
    EXPECT_TRUE(wait_until([&] {
        one.work();
        return answers > 0;
    }));
    EXPECT_EQ(window->slots().taken(), 64u + 4);
    EXPECT_TRUE(wait_until([&] {
        other.work();
        return window->slots().taken() == 96u;
    }));

    EXPECT_TRUE(wait_until([&] {
        while (one.work() || other.work()) {
        }
        return answers == 200;
    }));
    EXPECT_EQ(errors, 0u);
    for (guint32 i = 0; i < 100; ++i) {
        EXPECT_EQ(one.numbers[i], i);
        EXPECT_EQ(other.numbers[i], i);
    }
}

TEST_F(CallWindowTest, SilentDestinationsLeaveRoomForTheOthers)
{
    WindowLimits limits;
    limits.silence = 50000;
    auto window = open(limits);
    std::vector<std::unique_ptr<SlowPeer>> silent;
    for (int peer = 0; peer < 8; ++peer) {
        silent.push_back(std::make_unique<SlowPeer>());
        for (guint32 i = 0; i < 100; ++i)
            call(*silent.back(), i);
    }
    SlowPeer healthy;
    for (guint32 i = 0; i < 500; ++i)
        call(healthy, i);
    EXPECT_TRUE(wait_until([&] {
        while (healthy.work()) {
        }
        return healthy.numbers.size() == 500;
    }));
    EXPECT_LE(window->slots().taken(), limits.total);
    EXPECT_EQ(errors, 0u);
}

TEST_F(CallWindowTest, BeyondTheBoundStatesGiveWayToNewerOnesAndThenTheOldestEventsGo)
{
    WindowLimits limits;
    limits.destination = limits.newcomer = 1;
    auto backlog = std::make_shared<Backlog>(5 * (1000 + 4)); // five calls
    open(limits)->share(backlog);
    LogCapture log;
    SlowPeer peer;
    deliver(peer, event(0)); // under way
    deliver(peer, event(1));
    deliver(peer, state(2, 7));
    call(peer, 3);
    deliver(peer, state(4, 7));
    deliver(peer, event(5));
    EXPECT_TRUE(log.warnings().empty());
    deliver(peer, event(6));    // the state 2 gives way to 4
    deliver(peer, event(7));    // then the event 1 goes
    deliver(peer, state(8, 8)); // and the event 5
    EXPECT_EQ(log.warnings().size(), 1u) << "once in a while";

    EXPECT_TRUE(wait_until([&] {
        while (peer.work()) {
        }
        return answers == 6;
    }));
    EXPECT_THAT(peer.numbers, ElementsAre(0, 3, 4, 6, 7, 8));
}

TEST_F(CallWindowTest, CallsThatAreNoEventsAreNeverDropped)
{
    WindowLimits limits;
    limits.destination = limits.newcomer = 1;
    auto backlog = std::make_shared<Backlog>(3000);
    open(limits)->share(backlog);
    SlowPeer peer;
    for (guint32 i = 0; i < 20; ++i)
        call(peer, i);
    EXPECT_EQ(backlog->bytes(), 19000u);
    EXPECT_TRUE(wait_until([&] {
        while (peer.work()) {
        }
        return answers == 20;
    }));
}

TEST_F(CallWindowTest, ADestinationThatIsNotThereIsAnsweredForAll)
{
    SlowPeer peer;
    auto gone = std::make_unique<SlowPeer>();
    std::string name = gone->name;
    gone.reset();
    SlowPeer named;
    named.name = name.c_str();
    for (guint32 i = 0; i < 200; ++i)
        call(named, i);
    EXPECT_TRUE(wait_until([&] { return answers == 200; }));
    EXPECT_EQ(errors, 200u);
    EXPECT_EQ(CallWindow::find(bus)->slots().taken(), 0u);
}

// A consumer on a thread of its own that takes its time, and then asks the bus about the sender.
class AskingPeer {
public:
    explicit AskingPeer(guint count) : count_(count)
    {
        sd_bus *made = nullptr;
        sd_bus_open_system(&made);
        bus_.reset(made);
        sd_bus_add_filter(made, nullptr, receive, this);
        sd_bus_get_unique_name(made, &name);
        thread_ = std::thread([this] { run(); });
    }
    ~AskingPeer() { thread_.join(); }

    const char *name = nullptr;
    std::atomic<guint> calls = 0;
    std::atomic<guint> senders_there = 0;

private:
    static int receive(sd_bus_message *call, void *data, sd_bus_error *)
    {
        auto *self = static_cast<AskingPeer *>(data);
        if (!sd_bus_message_is_method_call(call, "com.vemo.Event.Consumer", "Event"))
            return 0;
        g_usleep(20000); // the work of a slow consumer
        sd_bus_creds *made = nullptr;
        self->senders_there += sd_bus_query_sender_creds(call, SD_BUS_CREDS_EUID, &made) >= 0;
        BusCredentialsOwner owner(made);
        ++self->calls;
        // Something that the producer does not expect.
        sd_bus_call_method_async(self->bus_.get(), nullptr, sd_bus_message_get_sender(call),
                                 "/consumer", "com.vemo.Event.Consumer", "Event", nullptr, nullptr,
                                 "ayu", 0, 1);
        return sd_bus_reply_method_return(call, nullptr);
    }
    void run()
    {
        while (calls < count_) {
            while (sd_bus_process(bus_.get(), nullptr) > 0) {
            }
            sd_bus_wait(bus_.get(), 10000);
        }
        sd_bus_flush(bus_.get());
    }

    const guint count_;
    BusOwner bus_;
    std::thread thread_;
};

class LastAnswersTest : public CallWindowTest {
protected:
    LastAnswersTest()
    {
        GError *error = nullptr;
        connect_to_bus_and_attach_events(&last_source, &last_bus, &error);
        sd_bus_add_object_vtable(last_bus, nullptr, "/consumer", "com.vemo.Event.Consumer", vtable,
                                 this);
    }
    static int count_incoming(sd_bus_message *call, void *self, sd_bus_error *)
    {
        ++static_cast<LastAnswersTest *>(self)->incoming;
        return sd_bus_reply_method_return(call, nullptr);
    }
    void send_last(const char *name, guint32 number)
    {
        QueuedCall call{event(number), count_answer, static_cast<CallWindowTest *>(this), 256};
        CallWindow::find(last_bus)->call(name, std::move(call));
    }

    static const sd_bus_vtable vtable[];
    GSource *last_source = nullptr;
    sd_bus *last_bus = nullptr;
    guint incoming = 0;
};

const sd_bus_vtable LastAnswersTest::vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, count_incoming, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

TEST_F(LastAnswersTest, ASenderIsThereUntilItsLastEventsHaveBeenHandled)
{
    constexpr guint count = 20;
    AskingPeer peer(count);
    for (guint32 i = 0; i < count; ++i)
        send_last(peer.name, i);
    disconnect_from_bus_and_detach_events(last_source, last_bus);
    EXPECT_EQ(peer.calls, count);
    EXPECT_EQ(peer.senders_there, count);
    EXPECT_EQ(answers, 0u) << "whom a callback belongs to is about to end";
    EXPECT_EQ(incoming, 0u);
    run_pending();
    EXPECT_EQ(answers + incoming, 0u);
}

// It would have to answer on the thread that waits.
TEST_F(LastAnswersTest, AConsumerOfTheSameProcessIsNotWaitedFor)
{
    CallWindow::find(bus)->call("org.freedesktop.DBus", {question(), count_answer, this, 256});
    ASSERT_TRUE(wait_until([&] { return answers == 1; }));
    const char *name = nullptr;
    sd_bus_get_unique_name(bus, &name);
    send_last(name, 1);
    auto window = CallWindow::find(last_bus);
    EXPECT_EQ(window->slots().taken(), 1u);
    window->finish(24 * 3600ULL * G_USEC_PER_SEC);
    EXPECT_EQ(window->slots().taken(), 1u);
    window.reset();
    disconnect_from_bus_and_detach_events(last_source, last_bus);
}

} // namespace
