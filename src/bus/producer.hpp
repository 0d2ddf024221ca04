// SPDX-License-Identifier: LGPL-2.1-or-later

// What a Producer instance keeps. Its lock is held by whoever touches anything of it.
#pragma once

#include "bus/announcement.hpp"
#include "bus/buspresence.hpp"
#include "bus/eventcall.hpp"
#include "bus/formersubscribers.hpp"
#include "bus/forwardedsubscriptions.hpp"
#include "bus/heldevents.hpp"
#include "bus/maintimer.hpp"
#include "bus/retractions.hpp"
#include "bus/sendtickets.hpp"
#include "messages/event.hpp"
#include "messages/eventdeclaration.hpp"
#include "messages/subscribeexpression.hpp"
#include "platform/owners.hpp"

#include <qandor/producer.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

struct decl_data {
    std::unique_ptr<event_declaration> declaration;
    bool declared = false; // sent since the switch last went away
    guint64 sending = 0;   // which sending that was
    guint released_at = 0; // the switch, by its number, that the global id of a released one is of
    producer_complete_callback complete_cb = nullptr;
    gpointer complete_data = nullptr;
    std::unique_ptr<event> cached_event; // a property's last state
    bool returning = false;              // known to a former switch, not yet complete at this one
    std::deque<qandor::HeldEvent> held;  // of a released one
    qandor::FormerSubscribers former;
    qandor::ForwardedSubscriptions subscriptions;

    void cache(std::unique_ptr<event> event);
    // Files the ids that came after the state was remembered.
    void fill_ids_of_cached_event();
    void forget_switch();
};

namespace qandor {

class ProducerState {
public:
    explicit ProducerState(Producer *instance);

    decl_data *find(guint32 local_id);
    void declare(guint32 local_id, decl_data &data);
    void declare_all();
    // Declares one that is not declared, to see whether the switch can be reached.
    void try_one();
    void tell_to_forget(guint32 global_id);
    void notify_subscriptions_changed();
    // Takes a declaration out; NULL for an unknown one. The caller tells of lost subscribers.
    std::unique_ptr<decl_data> release(guint32 local_id, bool &lost_subscribers);
    void send_property(decl_data &data, guint32 subscription_id);

    // The application's functions run without the lock.
    void add_type(const gchar *type, const event_declaration *declaration,
                  producer_declaration_callback callback, gpointer callback_data);
    void remove_type(const gchar *type, producer_declaration_callback callback,
                     gpointer callback_data);

    // Delivers an event now or, while the switch returns, in its turn.
    void deliver(decl_data &data, const event &event);
    // Delivers the events that no longer have to wait.
    void deliver_held();
    // Delivers all that wait, of this declaration.
    void deliver_held_of(decl_data &released);
    void deliver_all_held();
    // The switch has announced all that it knows to this declaration.
    void complete(decl_data &data);
    // A subscriber is there, perhaps one that had been there before.
    void welcome(decl_data &data, guint32 subscription_id);
    // Waits no longer for subscribers whose time is over.
    void give_up_former();

    void come_online();
    // Whether the switch of today is the one that gave a released declaration its global id.
    bool is_known_to_switch(const decl_data &data) const
    {
        return data.declaration->global_id != 0 && data.released_at == switch_number_;
    }
    void go_offline();
    void lose_bus(); // takes the lock itself

    RecursiveMutex mutex;
    BusPresence presence;
    producer_ids_callback subscriptions_changed = nullptr;
    gpointer user_data = nullptr;
    std::unordered_map<guint32, std::unique_ptr<decl_data>> declared_events;
    std::atomic<GThread *> main_thread = nullptr; // on which subscriptions come

private:
    // Whom to tell how installing or removing a type went. Those that are never answered end with
    // the producer.
    struct TypeRequest {
        ProducerState *owner;
        std::string type;
        producer_declaration_callback callback;
        gpointer user_data;
        std::list<TypeRequest>::iterator place;

        // Calls the function with an error of the code, or none for 0 and less.
        void tell(int code) const;
    };

    using Ticket = SendTickets<ProducerState>::Ticket;

    static int receive_declare_answer(sd_bus_message *reply, void *ticket, sd_bus_error *error);
    static void receive_declare_not_sent(void *ticket, int error);
    static void settle_declare(const Ticket *ticket, const AnnouncementResult &result);
    static int receive_type_answer(sd_bus_message *reply, void *request, sd_bus_error *error);
    TypeRequest *new_type_request(const TypeRequest &request);
    bool has_to_wait(const decl_data &data, const event &event) const;
    void hold(const event &event);
    void let_go(decl_data &data, HeldEvent held, bool is_complete);
    void deliver_to_all(decl_data &data, const event &event);
    void start_former_timer();
    void tell_of_lost_events();

    guint switch_number_ = 0; // counts the switches that went away
    SendTickets<ProducerState> tickets_;
    Resending resending_;
    Retractions retractions_;
    HeldEvents held_;
    guint not_waited_for_ = 0; // held events that were let go too early, not yet told
    MainTimer held_timer_;
    MainTimer former_timer_;
    std::list<TypeRequest> type_requests_;
};

ProducerState &state_of(Producer *self);

// Ends the connection; with the instance if not before.
void disconnect_producer(Producer *self);

// Tells that a release has cost a declaration its subscribers: at once on the thread of the main
// context, and any other thread leaves it to that one. The application may free the handle then.
void tell_of_release(Producer *self);

// Serves the instance's object; a negative errno on failure.
int serve_producer(ProducerState &state);

// One event on its way to its subscribers: it is serialized when the first one is found, once.
class Delivery {
public:
    Delivery(sd_bus *bus, const event &event) : bus_(bus), event_(event) {}
    void to(const subscribe_expression &subscription);

private:
    sd_bus *bus_;
    const event &event_;
    std::shared_ptr<const EventBytes> bytes_; // the deliveries that wait share them
};

} // namespace qandor
