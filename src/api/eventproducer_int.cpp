// SPDX-License-Identifier: LGPL-2.1-or-later

// What the producer's calls are made of: the part on the caller's thread, and the command that does
// the rest on the main context's thread.

#include "api/eventcommand.hpp"
#include "api/eventproducer.hpp"
#include "bus/errors.hpp"
#include "bus/producer.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

using namespace qandor;

event_producer *event_producer_int_new_empty(void)
{
    auto *made = new event_producer();
    made->idgen = idgenerator_new();
    made->commands = command_source_new_full(nullptr, made, 1, nullptr);
    return made;
}

void event_producer_int_setup(event_producer *event_producer, const char *name,
                              event_producer_setup_callback setup_callback,
                              producer_ids_callback ids_callback, gpointer user_data)
{
    event_producer->producer = producer_new(name, ids_callback, user_data);
    state_of(event_producer->producer).presence.backlog =
        command_source_backlog(event_producer->commands);
    command_source_post_function(event_producer->commands, [=] {
        GError *error = nullptr;
        producer_init_dbus(event_producer->producer, &error);
        if (setup_callback) {
            setup_callback(event_producer, user_data, error);
            return;
        }
        ErrorOwner owner(error);
        if (error)
            log_critical("Failed to setup dbus: %s (%d)", error->message, error->code);
    });
}

void event_producer_int_free(event_producer *event_producer, event_producer_freed_callback callback,
                             gpointer user_data)
{
    CHECK(event_producer != NULL);
    producer_prepare_free(event_producer->producer);
    command_source_post_function(event_producer->commands, [=] {
        producer_send_disconnect(event_producer->producer);
        // An undeclare that is about to return may keep the instance, on another thread.
        disconnect_producer(event_producer->producer);
        g_object_unref(event_producer->producer);
        command_source_free(event_producer->commands);
        idgenerator_free(event_producer->idgen);
        delete event_producer;
        if (callback)
            callback(event_producer, user_data);
    });
}

namespace {

bool has_its_topic(event_declaration *declaration)
{
    return event_declaration_is_internal(declaration) ||
           inspectable_get_value(event_declaration_get_inspectable(declaration), "topic0");
}

} // namespace

guint32 event_producer_int_get_decl_id(event_producer *event_producer,
                                       event_declaration *declaration, GError **error)
{
    if (refuse_error_already_set(error))
        return 0;
    if (!event_producer) {
        set_event_error(error, EventError::NullObject, "NULL object supplied as event producer");
        return 0;
    }
    if (!declaration) {
        set_event_error(error, EventError::NullObject, "NULL object supplied as declaration");
        return 0;
    }
    if (!has_its_topic(declaration)) {
        set_event_error(error, EventError::Incomplete, "External event is missing topic");
        return 0;
    }
    return idgenerator_reserve(event_producer->idgen);
}

void event_producer_int_declare(event_producer *event_producer, event_declaration *declaration,
                                guint32 local_decl_id,
                                event_producer_declared_callback declared_callback,
                                producer_complete_callback notify_callback, gpointer user_data)
{
    Producer *producer = event_producer->producer;
    producer_allocate_decl_data(producer, local_decl_id, event_declaration_copy(declaration),
                                notify_callback, user_data);
    std::unique_ptr<event> event(producer_prepare_event(producer, local_decl_id));
    CHECK(event != NULL);
    {
        std::lock_guard lock(event_producer->mutex);
        bool is_new =
            event_producer->prepared_events.try_emplace(local_decl_id, std::move(event)).second;
        CHECK_TEXT(is_new, "g_hash_table_lookup(event_producer->prepared_events, "
                           "GINT_TO_POINTER(local_decl_id)) == NULL");
    }
    command_source_post_function(event_producer->commands, [=] {
        if (declared_callback)
            declared_callback(local_decl_id, user_data);
        producer_send_declare(producer, local_decl_id);
    });
}

namespace {

void forget_prepared_event(event_producer *event_producer, guint32 local_id)
{
    std::lock_guard lock(event_producer->mutex);
    bool was_there = event_producer->prepared_events.erase(local_id) > 0;
    CHECK_TEXT(was_there, "g_hash_table_remove(event_producer->prepared_events, "
                          "GINT_TO_POINTER(local_decl_id))");
}

// Takes a declaration back; the record, of a known one, ends with the command.
struct UndeclareCommand : Command {
    void run() override
    {
        if (record) {
            producer_send_undeclare(handle->producer, record.release());
            idgenerator_release(handle->idgen, local_id);
            forget_prepared_event(handle, local_id);
        } else if (callback) {
            set_event_error(&error, EventError::NotDeclared,
                            "Could not find the declaration to undeclare.");
        }
        if (callback)
            callback(local_id, user_data, error);
    }

    event_producer *handle;
    std::unique_ptr<decl_data> record;
    guint32 local_id;
    event_producer_undeclared_callback callback;
    gpointer user_data;
    GError *error = nullptr;
};

} // namespace

gboolean event_producer_int_undeclare(event_producer *event_producer, guint32 local_declare_id,
                                      event_producer_undeclared_callback callback,
                                      gpointer user_data)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(local_declare_id != 0, FALSE);
    KeepAlive alive(event_producer->producer);
    Producer *producer = event_producer->producer;
    bool lost_subscribers = false;
    auto command = std::make_unique<UndeclareCommand>();
    command->handle = event_producer;
    command->record = state_of(producer).release(local_declare_id, lost_subscribers);
    command->local_id = local_declare_id;
    command->callback = callback;
    command->user_data = user_data;
    bool was_known = command->record != nullptr;
    command_source_post(event_producer->commands, std::move(command));
    // Last, since the application may free the handle then.
    if (lost_subscribers)
        tell_of_release(producer);
    return was_known;
}

namespace {

struct SendCommand : EventCommand {
    // The checks of the caller's thread.
    void check()
    {
        GError *failure = nullptr;
        if (!original) {
            set_event_error(&failure, EventError::NullObject, "NULL object supplied as event");
        } else {
            producer_fill_global_event_data(handle->producer, copy.get());
            if (copy->global_id == 0 && !copy->property)
                set_event_error(&failure, EventError::NotDeclared,
                                "The event has not been declared to the event switch. (The "
                                "connection to the switch is likely to be broken)");
            else if (event_is_complete(copy.get()))
                set_event_time_now(copy.get());
            else
                set_event_error(&failure, EventError::Incomplete,
                                "The event has keys with unset values");
        }
        error.reset(failure);
    }

    void run() override
    {
        if (!error) {
            GError *failure = nullptr;
            producer_send_event(handle->producer, copy.get(), &failure);
            error.reset(failure);
        }
        tell();
    }
};

} // namespace

gboolean event_producer_int_send_event(event_producer *event_producer, event *event,
                                       struct event *copy, event_producer_sent_callback callback,
                                       gpointer user_data, GError **error)
{
    auto command = std::make_unique<SendCommand>();
    command->fill(event_producer, event, copy, callback, user_data);
    if (refuse_error_already_set(error))
        command->error.reset(g_error_copy(*error));
    else
        command->check();

    bool passed = !command->error;
    if (error && !passed && !*error)
        *error = g_error_copy(command->error.get());
    // One that has failed only tells its callback.
    if (passed || callback)
        command_source_post(event_producer->commands, std::move(command));
    return passed;
}
