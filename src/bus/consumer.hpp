// SPDX-License-Identifier: LGPL-2.1-or-later

// What a Consumer instance keeps. Its lock is held by whoever touches anything of it.
#pragma once

#include "bus/announcement.hpp"
#include "bus/buspresence.hpp"
#include "bus/retractions.hpp"
#include "bus/sendtickets.hpp"
#include "platform/owners.hpp"

#include <qandor/consumer.h>

#include <memory>
#include <unordered_map>

struct subscription_data {
    qandor::ArrayOwner expression_data; // what Subscribe sends, serialized once
    GCallback event_cb;
    GCallback notification_cb;
    gpointer user_data;
    guint32 token;
    guint32 type;
    bool subscribed = false; // sent since the switch last went away
    guint64 sending = 0;     // which sending that was
};

namespace qandor {

class ConsumerState {
public:
    explicit ConsumerState(Consumer *instance);

    subscription_data *find(guint32 token);
    void subscribe(subscription_data &subscription);
    void subscribe_all();
    void unsubscribe(guint32 token);
    // Subscribes one that is not subscribed, to see whether the switch can be reached.
    void try_one();
    void come_online();
    void go_offline();
    void lose_bus();

    RecursiveMutex mutex;
    BusPresence presence;
    std::unordered_map<guint32, std::unique_ptr<subscription_data>> subscriptions;

private:
    using Ticket = SendTickets<ConsumerState>::Ticket;

    static int receive_subscribe_answer(sd_bus_message *reply, void *ticket, sd_bus_error *error);
    static void receive_subscribe_not_sent(void *ticket, int error);
    static void settle_subscribe(const Ticket *ticket, const AnnouncementResult &result);

    SendTickets<ConsumerState> tickets_;
    Resending resending_;
    Retractions retractions_;
};

ConsumerState &state_of(Consumer *self);

// Serves the instance's object; a negative errno on failure.
int serve_consumer(ConsumerState &state);

} // namespace qandor
