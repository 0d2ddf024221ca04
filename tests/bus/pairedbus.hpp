// SPDX-License-Identifier: LGPL-2.1-or-later

// A connection to a bus that is played by the test, over a socket pair and without time: the calls
// that a stock bus would count are counted here, and destinations answer when the test says so.
#pragma once

#include "platform/owners.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace qandor::test {

class PairedBus {
public:
    using BusOwner = Owner<sd_bus, sd_bus_close_unref>;
    static constexpr std::size_t stock_limit = 128; // unanswered calls of one connection

    // What has come to one destination.
    struct Peer {
        std::vector<guint32> numbers;
        std::deque<BusMessageOwner> unanswered;
        bool is_hung = false;
        bool lies = false; // never answers every second call
        guint calls = 0;
    };

    PairedBus()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        sd_bus *made = nullptr;
        sd_bus_new(&made);
        client_.reset(made);
        sd_bus_set_fd(made, ends[0], ends[0]);
        sd_bus_set_anonymous(made, 1);
        sd_bus_new(&made);
        server_.reset(made);
        sd_bus_set_fd(made, ends[1], ends[1]);
        sd_bus_set_server(made, 1, SD_ID128_MAKE(1, 2, 3, 4, 5, 6, 7, 8, 9, a, b, c, d, e, f, 0));
        sd_bus_set_anonymous(made, 1);
        sd_bus_add_filter(made, nullptr, receive, this);
        EXPECT_GE(sd_bus_start(client_.get()), 0);
        EXPECT_GE(sd_bus_start(server_.get()), 0);
        process();
    }

    sd_bus *client() const { return client_.get(); }
    Peer &peer(const std::string &name) { return peers_[name]; }

    // Lets everything happen that takes no time.
    void process()
    {
        bool worked = true;
        while (worked) {
            worked = false;
            while (sd_bus_process(client_.get(), nullptr) > 0)
                worked = true;
            while (sd_bus_process(server_.get(), nullptr) > 0)
                worked = true;
        }
    }

    // The peer answers so many of the calls that it has not answered, the oldest first.
    void answer(const std::string &name, std::size_t count = G_MAXSIZE)
    {
        std::deque<BusMessageOwner> &unanswered = peers_[name].unanswered;
        for (; count > 0 && !unanswered.empty(); --count)
            reply(unanswered);
        process();
    }
    void thaw(const std::string &name)
    {
        peers_[name].is_hung = false;
        answer(name);
    }
    // The peer leaves: the bus answers in its place.
    void leave(const std::string &name)
    {
        std::deque<BusMessageOwner> &unanswered = peers_[name].unanswered;
        for (; !unanswered.empty(); unanswered.pop_front(), --unanswered_)
            refuse(unanswered.front().get(), SD_BUS_ERROR_NO_REPLY);
        peers_.erase(name);
        gone_.insert(name);
        process();
    }
    // The peer answers the oldest call, but the bus drops the answer.
    void drop_answer(const std::string &name)
    {
        peers_[name].unanswered.pop_front();
        --unanswered_;
    }
    // The bus refuses the next call to the peer.
    void refuse_next(const std::string &name) { refused_next_.insert(name); }

    std::size_t most_unanswered = 0;
    guint refused = 0; // because of the limit

private:
    static int receive(sd_bus_message *message, void *self, sd_bus_error *)
    {
        guint8 type = 0;
        sd_bus_message_get_type(message, &type);
        if (type == SD_BUS_MESSAGE_METHOD_CALL)
            static_cast<PairedBus *>(self)->take(message);
        return 1;
    }

    void take(sd_bus_message *call)
    {
        std::string name = sd_bus_message_get_destination(call);
        if (gone_.count(name))
            return refuse(call, SD_BUS_ERROR_SERVICE_UNKNOWN);
        if (refused_next_.erase(name))
            return refuse(call, SD_BUS_ERROR_LIMITS_EXCEEDED);
        bool wants_answer = sd_bus_message_get_expect_reply(call) > 0;
        if (wants_answer && unanswered_ == stock_limit) {
            ++refused;
            return refuse(call, SD_BUS_ERROR_LIMITS_EXCEEDED);
        }
        Peer &peer = peers_[name];
        peer.numbers.push_back(number_in(call));
        if (!wants_answer)
            return;
        most_unanswered = std::max(most_unanswered, ++unanswered_);
        peer.unanswered.emplace_back(sd_bus_message_ref(call));
        if (!peer.is_hung && !(peer.lies && ++peer.calls % 2 == 0))
            reply(peer.unanswered, peer.lies);
    }

    // Every call carries a number in the place of an event.
    static guint32 number_in(sd_bus_message *call)
    {
        const void *data = nullptr;
        size_t size = 0;
        guint32 number = 0;
        if (sd_bus_message_read_array(call, 'y', &data, &size) > 0 && size >= sizeof number)
            std::memcpy(&number, data, sizeof number);
        return GUINT32_FROM_LE(number);
    }

    void reply(std::deque<BusMessageOwner> &unanswered, bool to_newest = false)
    {
        BusMessageOwner call = std::move(to_newest ? unanswered.back() : unanswered.front());
        to_newest ? unanswered.pop_back() : unanswered.pop_front();
        --unanswered_;
        sd_bus_message *made = nullptr;
        EXPECT_GE(sd_bus_message_new_method_return(call.get(), &made), 0);
        BusMessageOwner owner(made);
        sd_bus_send(server_.get(), made, nullptr);
    }

    void refuse(sd_bus_message *call, const char *name)
    {
        sd_bus_message *made = nullptr;
        EXPECT_GE(sd_bus_message_new_method_errorf(call, &made, name, "refused"), 0);
        BusMessageOwner owner(made);
        sd_bus_message_set_sender(made, "org.freedesktop.DBus");
        sd_bus_send(server_.get(), made, nullptr);
    }

    std::map<std::string, Peer> peers_;
    std::set<std::string> gone_;
    std::set<std::string> refused_next_;
    std::size_t unanswered_ = 0;
    BusOwner client_;
    BusOwner server_;
};

} // namespace qandor::test
