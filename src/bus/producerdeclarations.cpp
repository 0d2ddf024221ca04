// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer's declarations: filing them, making them known to the switch, and forgetting them.

#include "bus/producer.hpp"

#include "bus/errors.hpp"
#include "model/callbackparams.hpp"
#include "platform/check.hpp"

#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

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
    if (data.declared)
        return;
    ArrayOwner bytes(event_declaration_serialize(data.declaration.get()));
    auto *ticket = tickets_.issue(this, local_id);
    data.declared = true;
    data.sending = ticket->sending;
    com_vemo_Event_Switch_Producer_declare_async(
        presence.bus, presence.object.c_str(), presence.name.c_str(),
        reinterpret_cast<const guint8 *>(bytes->data), bytes->len, receive_declare_answer, ticket);
}

// A declaration that found no switch counts as not sent, so that the switch learns of it when it
// comes. An answer to an earlier sending says nothing about a later one.
int ProducerState::receive_declare_answer(sd_bus_message *reply, void *data, sd_bus_error *error)
{
    auto *ticket = static_cast<SendTickets<ProducerState>::Ticket *>(data);
    ProducerState &state = *ticket->owner;
    std::lock_guard lock(state.mutex);
    auto taken = state.tickets_.take_back(ticket);
    decl_data *record = state.find(taken.id);
    if (record && record->sending == taken.sending && was_not_delivered(reply))
        record->declared = false;
    return ignore_answer(reply, nullptr, error);
}

void ProducerState::declare_all()
{
    for (auto &[local_id, data] : declared_events)
        declare(local_id, *data);
}

void ProducerState::tell_to_forget(guint32 global_id)
{
    com_vemo_Event_Switch_Producer_undeclare_async(presence.bus, presence.object.c_str(), global_id,
                                                   ignore_answer, nullptr);
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

decl_data *producer_release_declare_id(Producer *self, guint32 local_id)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    auto node = state.declared_events.extract(local_id);
    if (!node)
        return nullptr;
    std::unique_ptr<decl_data> data = std::move(node.mapped());
    bool was_visible = data->subscriptions.has_visible();
    state.release(*data);
    data->subscriptions.clear();
    drop_property_callback(*data->declaration);
    data->complete_cb = nullptr;
    data->complete_data = nullptr;
    if (was_visible)
        state.notify_subscriptions_changed();
    return data.release();
}

void producer_send_undeclare(Producer *self, decl_data *data)
{
    std::unique_ptr<decl_data> owner(data);
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    if (state.is_known_to_switch(*data))
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
    // A declaration that was under way while the switch restarted is declared twice: then the
    // switch forwards the subscriptions to the later one, and those to the earlier are void.
    guint32 former_id = data->declaration->global_id;
    if (former_id != 0 && former_id != global_id)
        data->subscriptions.clear();
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
    if (!data->complete_cb)
        return;
    data->complete_cb(local_id, data->complete_data);
    data = state.find(local_id);
    if (data)
        data->complete_cb = nullptr;
}

// The application's function runs without the lock.
int ProducerState::receive_type_answer(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto *asked = static_cast<TypeRequest *>(data);
    ProducerState &state = *asked->owner;
    std::list<TypeRequest> taken;
    {
        std::lock_guard lock(state.mutex);
        taken.splice(taken.begin(), state.type_requests_, asked->place);
    }
    if (!asked->callback)
        return 1;
    int code = sd_bus_message_get_errno(reply);
    GError *error = code >= 1 ? new_bus_error(code, "Failed to add/remove declaration") : nullptr;
    asked->callback(asked->type.c_str(), asked->user_data, error);
    return 1;
}

void *ProducerState::new_type_request(const gchar *type, producer_declaration_callback callback,
                                      gpointer callback_data)
{
    type_requests_.push_front({this, type ? type : "", callback, callback_data, {}});
    type_requests_.front().place = type_requests_.begin();
    return &type_requests_.front();
}

void ProducerState::add_type(const gchar *type, const event_declaration *declaration,
                             producer_declaration_callback callback, gpointer callback_data)
{
    ArrayOwner bytes(event_declaration_serialize(declaration));
    com_vemo_Event_Switch_Producer_add_declaration_async(
        presence.bus, type, reinterpret_cast<const guint8 *>(bytes->data), bytes->len,
        receive_type_answer, new_type_request(type, callback, callback_data));
}

void ProducerState::remove_type(const gchar *type, producer_declaration_callback callback,
                                gpointer callback_data)
{
    com_vemo_Event_Switch_Producer_remove_declaration_async(
        presence.bus, type, receive_type_answer, new_type_request(type, callback, callback_data));
}

void producer_add_declaration(Producer *self, const gchar *type,
                              const event_declaration *declaration,
                              producer_declaration_callback callback, gpointer user_data)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.add_type(type, declaration, callback, user_data);
}

void producer_remove_declaration(Producer *self, const gchar *type,
                                 producer_declaration_callback callback, gpointer user_data)
{
    ProducerState &state = state_of(self);
    std::lock_guard lock(state.mutex);
    state.remove_type(type, callback, user_data);
}
