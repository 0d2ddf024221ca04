// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer's declarations: filing them, making them known to the switch, and forgetting them.

#include "bus/producer.hpp"

#include "bus/shortdescription.hpp"
#include "bus/switchbusclient.hpp"
#include "model/callbackparams.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

namespace {

constexpr const char *declare_method = "com.vemo.Event.Switch.Producer.Declare";

} // namespace

decl_data *ProducerState::find(guint32 local_id)
{
    auto found = declared_events.find(local_id);
    return found == declared_events.end() ? nullptr : found->second.get();
}

void decl_data::cache(std::unique_ptr<event> event)
{
    if (!event)
        return;
    CHECK_TEXT(event_is_complete(event.get()), "event_is_complete(event)");
    cached_event = std::move(event);
}

void ProducerState::declare(guint32 local_id, decl_data &data)
{
    if (data.declared || presence.is_lost())
        return;
    ArrayOwner array(event_declaration_serialize(data.declaration.get()));
    Bytes bytes{reinterpret_cast<const guint8 *>(array->data), array->len};
    const char *object = presence.object.c_str(), *name = presence.name.c_str();
    if (!presence.bus) {
        // Which is the critical that a missing connection is.
        com_vemo_Event_Switch_Producer_declare_async(nullptr, object, name, bytes.data,
                                                     bytes.length, ignore_answer, nullptr);
        return;
    }
    Ticket *ticket = tickets_.issue(this, local_id);
    data.declared = true;
    data.sending = ticket->sending;
    declare_call(presence.bus, object, name, bytes)
        .send(receive_declare_answer, ticket, receive_declare_not_sent);
}

int ProducerState::receive_declare_answer(sd_bus_message *reply, void *ticket, sd_bus_error *)
{
    CHECK(reply != NULL);
    settle_declare(static_cast<Ticket *>(ticket),
                   AnnouncementResult::of_answer(reply, declare_method));
    return 0;
}

void ProducerState::receive_declare_not_sent(void *ticket, int error)
{
    settle_declare(static_cast<Ticket *>(ticket),
                   AnnouncementResult::of_failed_call(error, declare_method));
}

// The answer to an earlier sending of a declaration says nothing about a later one.
void ProducerState::settle_declare(const Ticket *ticket, const AnnouncementResult &result)
{
    ProducerState &state = *ticket->owner;
    std::lock_guard lock(state.mutex);
    Ticket taken = state.tickets_.take_back(ticket);
    decl_data *record = state.find(taken.id);
    if (record && record->sending == taken.sending) {
        if (result.outcome == AnnouncementResult::NotSent)
            record->declared = false;
        if (result.outcome == AnnouncementResult::Refused)
            log_warning("The event switch refuses the declaration %u (%s): %s", taken.id,
                        short_description(record->declaration->content).c_str(),
                        result.text.c_str());
    }
    if (state.resending_.note(taken.sending, result))
        state.declare_all();
}

void ProducerState::try_one()
{
    for (auto &[local_id, data] : declared_events) {
        if (data->declared)
            continue;
        declare(local_id, *data);
        if (data->declared)
            resending_.set_trial(data->sending);
        return;
    }
}

void ProducerState::declare_all()
{
    for (auto &[local_id, data] : declared_events)
        declare(local_id, *data);
}

void ProducerState::tell_to_forget(guint32 global_id)
{
    retractions_.add(global_id);
}

void producer_allocate_decl_data(Producer *self, guint32 id, event_declaration *declaration,
                                 producer_complete_callback complete_cb, gpointer complete_data)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    CHECK(declaration != NULL);
    CHECK_TEXT(!state.find(id),
               "g_hash_table_lookup(prv->declared_events, GUINT_TO_POINTER(id)) == NULL");
    auto data = std::make_unique<decl_data>();
    data->declaration.reset(declaration);
    data->declaration->local_id = id;
    data->complete_cb = complete_cb;
    data->complete_data = complete_data;
    state.declared_events.emplace(id, std::move(data));
}

void producer_send_declare(Producer *self, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data)
        return;
    CHECK_TEXT(data->declaration->local_id != 0,
               "event_declaration_get_local_id(decl_data->declaration) != 0");
    // The application's callback may undeclare or free: it works on a copy, and the record is
    // looked up again.
    std::unique_ptr<event_declaration> declaration(event_declaration_copy(data->declaration.get()));
    std::unique_ptr<event> property_event(event_declaration_get_property_event(declaration.get()));
    data = state.find(local_id);
    if (!data)
        return;
    data->cache(std::move(property_event));
    state.declare(local_id, *data);
}

gboolean producer_declaration_complete(Producer *self, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    return data && data->declaration->global_id != 0;
}

std::unique_ptr<decl_data> ProducerState::release(guint32 local_id, bool &lost_subscribers)
{
    std::lock_guard lock(mutex);
    auto node = declared_events.extract(local_id);
    if (!node)
        return nullptr;
    std::unique_ptr<decl_data> data = std::move(node.mapped());
    lost_subscribers = data->subscriptions.has_visible();
    data->released_at = switch_number_;
    data->held = held_.take(local_id);
    if (data->held.empty())
        data->subscriptions.clear();
    drop_property_callback(*data->declaration);
    data->complete_cb = nullptr;
    data->complete_data = nullptr;
    return data;
}

decl_data *producer_release_declare_id(Producer *self, guint32 local_id)
{
    KeepAlive alive(self);
    bool lost_subscribers = false;
    std::unique_ptr<decl_data> data = state_of(self).release(local_id, lost_subscribers);
    if (lost_subscribers)
        tell_of_release(self);
    return data.release();
}

void producer_send_undeclare(Producer *self, decl_data *data)
{
    std::unique_ptr<decl_data> owner(data);
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.deliver_held_of(*data);
    if (state.is_known_to_switch(*data) && !state.presence.is_lost())
        state.tell_to_forget(data->declaration->global_id);
}

event *producer_prepare_event(Producer *self, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    return data ? event_declaration_generate_event(data->declaration.get()) : nullptr;
}

void producer_add_callback_params(Producer *self, guint32 local_id, const callback_params *params)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data)
        return;
    std::unique_ptr<event> event(event_declaration_generate_event(data->declaration.get()));
    set_event_time_now(event.get());
    if (params->key && params->value)
        inspectable_set_value_as_string(&event->content, params->key->c_str(),
                                        params->value->c_str());
    data->cache(std::move(event));
}

void producer_receive_global_declare_id(Producer *self, guint32 local_id, guint32 global_id,
                                        guint32 producer_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data) {
        state.tell_to_forget(global_id);
        return;
    }
    data->declaration->global_id = global_id;
    data->declaration->producer_id = producer_id;
}

void producer_receive_declaration_complete(Producer *self, guint32 local_id, guint32 global_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    decl_data *data = state.find(local_id);
    if (!data) {
        state.tell_to_forget(global_id);
        return;
    }
    state.complete(*data);
    if (!data->complete_cb)
        return;
    data->complete_cb(local_id, data->complete_data);
    data = state.find(local_id);
    if (data)
        data->complete_cb = nullptr;
}
