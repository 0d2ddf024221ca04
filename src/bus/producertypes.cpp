// SPDX-License-Identifier: LGPL-2.1-or-later

// A producer's requests to install and remove types.

#include "bus/producer.hpp"

#include "bus/errors.hpp"

#include <qandor/switchbusclient.h>

#include <cerrno>
#include <mutex>

using namespace qandor;

void ProducerState::TypeRequest::tell(int code) const
{
    if (!callback)
        return;
    GError *error = code >= 1 ? new_bus_error(code, "Failed to add/remove declaration") : nullptr;
    callback(type.c_str(), user_data, error);
}

int ProducerState::receive_type_answer(sd_bus_message *reply, void *data, sd_bus_error *)
{
    auto *asked = static_cast<TypeRequest *>(data);
    ProducerState &state = *asked->owner;
    std::list<TypeRequest> taken;
    {
        std::lock_guard lock(state.mutex);
        taken.splice(taken.begin(), state.type_requests_, asked->place);
    }
    asked->tell(sd_bus_message_get_errno(reply));
    return 1;
}

ProducerState::TypeRequest *ProducerState::new_type_request(const TypeRequest &request)
{
    type_requests_.push_front(request);
    type_requests_.front().place = type_requests_.begin();
    return &type_requests_.front();
}

void ProducerState::add_type(const gchar *type, const event_declaration *declaration,
                             producer_declaration_callback callback, gpointer callback_data)
{
    TypeRequest request{this, type ? type : "", callback, callback_data, {}};
    std::unique_lock lock(mutex);
    if (presence.is_lost()) {
        lock.unlock();
        request.tell(ENOTCONN);
        return;
    }
    ArrayOwner bytes(event_declaration_serialize(declaration));
    com_vemo_Event_Switch_Producer_add_declaration_async(
        presence.bus, type, reinterpret_cast<const guint8 *>(bytes->data), bytes->len,
        receive_type_answer, new_type_request(request));
}

void ProducerState::remove_type(const gchar *type, producer_declaration_callback callback,
                                gpointer callback_data)
{
    TypeRequest request{this, type ? type : "", callback, callback_data, {}};
    std::unique_lock lock(mutex);
    if (presence.is_lost()) {
        lock.unlock();
        request.tell(ENOTCONN);
        return;
    }
    com_vemo_Event_Switch_Producer_remove_declaration_async(presence.bus, type, receive_type_answer,
                                                            new_type_request(request));
}

void producer_add_declaration(Producer *self, const gchar *type,
                              const event_declaration *declaration,
                              producer_declaration_callback callback, gpointer user_data)
{
    state_of(self).add_type(type, declaration, callback, user_data);
}

void producer_remove_declaration(Producer *self, const gchar *type,
                                 producer_declaration_callback callback, gpointer user_data)
{
    state_of(self).remove_type(type, callback, user_data);
}
