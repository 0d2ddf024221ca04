// SPDX-License-Identifier: LGPL-2.1-or-later

// Signals with handlers that come while the library waits for an answer.

#include "platform/owners.hpp"
#include "support/privatebus.hpp"
#include "support/switchprocess.hpp"

#include <qandor/busconnection.h>
#include <qandor/switchbusclient.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <pthread.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace qandor::test;

namespace {

volatile std::sig_atomic_t handled = 0;

// Sends a thread signals until one is held back, and lets go on then what the thread waits for.
class Nuisance {
public:
    explicit Nuisance(pid_t stopped)
        : victim_(pthread_self()), victim_id_(syscall(SYS_gettid)), stopped_(stopped)
    {
        handled = 0;
        std::signal(SIGUSR1, [](int) { handled = handled + 1; });
        kill(stopped_, SIGSTOP);
        thread_ = std::thread([this] { disturb(); });
    }
    Nuisance(const Nuisance &) = delete;
    Nuisance &operator=(const Nuisance &) = delete;
    ~Nuisance()
    {
        end();
        std::signal(SIGUSR1, SIG_DFL);
    }
    void end()
    {
        over_ = true;
        if (thread_.joinable())
            thread_.join();
    }

private:
    void disturb() const
    {
        while (!over_ && !is_held()) {
            pthread_kill(victim_, SIGUSR1);
            std::this_thread::yield();
        }
        kill(stopped_, SIGCONT);
    }
    bool is_held() const
    {
        std::ifstream status("/proc/self/task/" + std::to_string(victim_id_) + "/status");
        unsigned long long pending = 0;
        for (std::string line; std::getline(status, line);)
            if (std::sscanf(line.c_str(), "SigPnd: %llx", &pending) == 1)
                break;
        return pending & 1ULL << (SIGUSR1 - 1);
    }

    pthread_t victim_;
    long victim_id_;
    pid_t stopped_;
    std::atomic<bool> over_ = false;
    std::thread thread_;
};

using Connection = qandor::Owner<sd_bus, sd_bus_flush_close_unref>;

// A connection that is set up to its end.
Connection connect()
{
    sd_bus *made = nullptr;
    const char *name = nullptr;
    EXPECT_GE(sd_bus_open_system(&made), 0);
    EXPECT_GE(sd_bus_get_unique_name(made, &name), 0);
    return Connection(made);
}

// The bus tells of itself as of everybody.
pid_t pid_of_bus()
{
    guint32 pid = 0;
    sd_bus_message *made = nullptr;
    EXPECT_GE(sd_bus_call_method(connect().get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetConnectionUnixProcessID", nullptr,
                                 &made, "s", "org.freedesktop.DBus"),
              0);
    qandor::BusMessageOwner reply(made);
    EXPECT_GT(sd_bus_message_read(made, "u", &pid), 0);
    return static_cast<pid_t>(pid);
}

TEST(Signals, DoNotEndASynchronousCall)
{
    PrivateBus bus;
    SwitchProcess event_switch;
    Connection connection = connect();
    guint8 *data = nullptr;
    gsize length = 0;
    qandor::BusError error;
    Nuisance nuisance(event_switch.process().pid());
    int r = com_vemo_Event_Switch_Query_get_all_declarations(connection.get(), error.get(), &data,
                                                             &length);
    nuisance.end();
    qandor::BytesOwner bytes(data);
    EXPECT_GE(r, 0);
    EXPECT_EQ(length, 4u) << "no declarations";
    EXPECT_GT(handled, 0) << "they are only held back";
}

TEST(Signals, DoNotKeepAConnectionFromBeingSetUp)
{
    PrivateBus bus;
    Nuisance nuisance(pid_of_bus());
    GSource *source = nullptr;
    sd_bus *made = nullptr;
    bus_driver_watcher watcher = {};
    EXPECT_GE(connect_to_bus_and_attach_events(&source, &made, nullptr), 0);
    EXPECT_GE(watch_bus_driver(made, &watcher), 0);
    nuisance.end();
    EXPECT_GT(handled, 0);
    disconnect_from_bus_and_detach_events(source, made);
}

} // namespace
