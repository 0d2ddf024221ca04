// SPDX-License-Identifier: LGPL-2.1-or-later

// The event producer as applications hold it.

#include "api/eventproducer.hpp"

#include "bus/errors.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <string>

using namespace qandor;

event_producer *event_producer_new(const char *name)
{
    return event_producer_new_full(name, nullptr, nullptr);
}

event_producer *event_producer_new_full(const char *name, producer_ids_callback ids_callback,
                                        gpointer user_data)
{
    event_producer *made = event_producer_int_new_empty();
    event_producer_int_setup(made, name, nullptr, ids_callback, user_data);
    return made;
}

void event_producer_free(event_producer *event_producer)
{
    if (event_producer)
        event_producer_int_free(event_producer, nullptr, nullptr);
}

guint32 event_producer_declare(event_producer *event_producer, event_declaration *declaration)
{
    return event_producer_declare_and_notify(event_producer, declaration, nullptr, nullptr);
}

guint32 event_producer_declare_and_notify(event_producer *event_producer,
                                          event_declaration *declaration,
                                          producer_complete_callback notify_callback,
                                          gpointer user_data)
{
    GError *error = nullptr;
    guint32 local_id = event_producer_int_get_decl_id(event_producer, declaration, &error);
    ErrorOwner owner(error);
    if (local_id == 0) {
        log_warning("Failed to declare: %s", error->message);
        return 0;
    }
    event_producer_int_declare(event_producer, declaration, local_id, nullptr, notify_callback,
                               user_data);
    return local_id;
}

gboolean event_producer_declaration_complete(event_producer *event_producer,
                                             guint32 local_declare_id)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(local_declare_id != 0, FALSE);
    return producer_declaration_complete(event_producer->producer, local_declare_id);
}

gboolean event_producer_undeclare(event_producer *event_producer, guint32 local_declare_id)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(local_declare_id != 0, FALSE);
    return event_producer_int_undeclare(event_producer, local_declare_id, nullptr, nullptr);
}

gboolean event_producer_undeclare_and_notify(event_producer *event_producer,
                                             guint32 local_declare_id,
                                             event_producer_undeclared_callback callback,
                                             gpointer user_data)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(local_declare_id != 0, FALSE);
    return event_producer_int_undeclare(event_producer, local_declare_id, callback, user_data);
}

event *event_producer_prepare_event(event_producer *event_producer, guint32 local_declare_id)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(local_declare_id != 0, nullptr);
    std::lock_guard lock(event_producer->mutex);
    auto prepared = event_producer->prepared_events.find(local_declare_id);
    if (prepared == event_producer->prepared_events.end())
        return nullptr;
    return event_copy(prepared->second.get());
}

gboolean event_producer_send_event_async(event_producer *event_producer, event *event)
{
    return event_producer_send_event(event_producer, event, nullptr);
}

gboolean event_producer_send_event(event_producer *event_producer, event *event, GError **error)
{
    if (!event_producer) {
        set_event_error(error, EventError::NullObject, "NULL object supplied as event producer");
        return FALSE;
    }
    return event_producer_int_send_event(event_producer, event, event_copy(event), nullptr, nullptr,
                                         error);
}

gboolean event_producer_add_declaration(event_producer *event_producer, const char *type,
                                        event_declaration *declaration,
                                        producer_declaration_callback callback, gpointer user_data)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(type != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    std::unique_ptr<event_declaration, void (*)(event_declaration *)> copy(
        event_declaration_copy(declaration), event_declaration_free);
    command_source_post_function(
        event_producer->commands, [=, type = std::string(type), copy = std::move(copy)] {
            producer_add_declaration(event_producer->producer, type.c_str(), copy.get(), callback,
                                     user_data);
        });
    return TRUE;
}

gboolean event_producer_remove_declaration(event_producer *event_producer, const char *type,
                                           producer_declaration_callback callback,
                                           gpointer user_data)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(type != NULL, FALSE);
    command_source_post_function(event_producer->commands, [=, type = std::string(type)] {
        producer_remove_declaration(event_producer->producer, type.c_str(), callback, user_data);
    });
    return TRUE;
}
