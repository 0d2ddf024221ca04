// SPDX-License-Identifier: LGPL-2.1-or-later

// The event producer driven without waiting: what the plain calls do on the caller's thread is a
// command here.

#include "api/eventcommand.hpp"
#include "api/eventproducer.hpp"
#include "api/eventregistration.hpp"
#include "platform/check.hpp"

#include <qandor/asyncproducer.h>

#include <string>

using namespace qandor;

event_producer *async_producer_new(const char *name, event_producer_setup_callback setup_callback,
                                   producer_ids_callback ids_callback, gpointer user_data)
{
    event_producer *made = event_producer_int_new_empty();
    command_source_post_function(made->commands, [=, name = std::string(name ? name : "")] {
        event_producer_int_setup(made, name.c_str(), setup_callback, ids_callback, user_data);
    });
    return made;
}

void async_producer_free(event_producer *event_producer, event_producer_freed_callback callback,
                         gpointer user_data)
{
    if (!event_producer)
        return;
    command_source_post_function(event_producer->commands, [=] {
        event_producer_int_free(event_producer, callback, user_data);
    });
}

namespace {

// Declares; the state that came with a registered property is remembered with it.
struct DeclareCommand : Command {
    void run() override
    {
        event_producer_int_declare(handle, declaration.get(), local_id, declared_callback,
                                   notify_callback, user_data);
        if (params)
            producer_add_callback_params(handle->producer, local_id, params.get());
    }

    event_producer *handle = nullptr;
    DeclarationOwner declaration;
    CallbackParamsOwner params;
    guint32 local_id = 0;
    event_producer_declared_callback declared_callback = nullptr;
    producer_complete_callback notify_callback = nullptr;
    gpointer user_data = nullptr;
};

// The command of a registration is filled in but for what comes of the type.
guint32 register_string_list(std::unique_ptr<DeclareCommand> command, const char *type,
                             GList *register_list, GError **error)
{
    event_declaration *declaration = nullptr;
    callback_params *params = nullptr;
    event_producer_int_register_list(type, register_list, &declaration, &params, error);
    command->declaration.reset(declaration);
    command->params.reset(params);
    if (!declaration)
        return 0;
    CHECK(error == NULL || *error == NULL);
    event_producer *handle = command->handle;
    guint32 local_id = event_producer_int_get_decl_id(handle, declaration, error);
    if (local_id == 0)
        return 0;
    command->local_id = local_id;
    command_source_post(handle->commands, std::move(command));
    return local_id;
}

std::unique_ptr<DeclareCommand>
new_declare_command(event_producer *handle, event_producer_declared_callback declared_callback,
                    producer_complete_callback notify_callback, gpointer user_data)
{
    auto command = std::make_unique<DeclareCommand>();
    command->handle = handle;
    command->declared_callback = declared_callback;
    command->notify_callback = notify_callback;
    command->user_data = user_data;
    return command;
}

} // namespace

guint32 async_producer_declare(event_producer *event_producer, event_declaration *declaration,
                               event_producer_declared_callback declared_callback,
                               producer_complete_callback notify_callback, gpointer user_data,
                               GError **error)
{
    guint32 local_id = event_producer_int_get_decl_id(event_producer, declaration, error);
    if (local_id == 0)
        return 0;
    auto command =
        new_declare_command(event_producer, declared_callback, notify_callback, user_data);
    command->declaration.reset(event_declaration_copy(declaration));
    command->local_id = local_id;
    command_source_post(event_producer->commands, std::move(command));
    return local_id;
}

guint32 async_producer_register(event_producer *event_producer, const char *type,
                                event_producer_declared_callback declared_callback,
                                producer_complete_callback notify_callback, gpointer user_data,
                                GError **error, ...)
{
    va_list arguments;
    va_start(arguments, error);
    RegisterListOwner list(event_producer_int_parse_register_valist(arguments));
    va_end(arguments);
    return register_string_list(
        new_declare_command(event_producer, declared_callback, notify_callback, user_data), type,
        list.get(), error);
}

guint32 async_producer_register_list(event_producer *event_producer, const char *type,
                                     event_producer_declared_callback declared_callback,
                                     producer_complete_callback notify_callback, gpointer user_data,
                                     GList *triples, GError **error)
{
    RegisterListOwner list(event_producer_int_convert_to_string_list(triples));
    return register_string_list(
        new_declare_command(event_producer, declared_callback, notify_callback, user_data), type,
        list.get(), error);
}

void async_producer_undeclare(event_producer *event_producer, guint32 local_declare_id,
                              event_producer_undeclared_callback callback, gpointer user_data)
{
    RETURN_IF_FAIL(event_producer != NULL);
    RETURN_IF_FAIL(local_declare_id != 0);
    command_source_post_function(event_producer->commands, [=] {
        event_producer_int_undeclare(event_producer, local_declare_id, callback, user_data);
    });
}

event *async_producer_prepare_event(event_producer *event_producer, guint32 local_declare_id)
{
    return event_producer_prepare_event(event_producer, local_declare_id);
}

namespace {

// The copy is handed over when its turn comes, or ends with a command that never runs.
struct SendCommand : EventCommand {
    void run() override
    {
        if (error)
            tell();
        else
            event_producer_int_send_event(handle, original, copy.release(), callback, user_data,
                                          nullptr);
    }
};

} // namespace

void async_producer_send_event(event_producer *event_producer, event *event,
                               event_producer_sent_callback callback, gpointer user_data)
{
    RETURN_IF_FAIL(event_producer != NULL);
    auto command = std::make_unique<SendCommand>();
    command->fill(event_producer, event, event_copy(event), callback, user_data);
    command_source_post(event_producer->commands, std::move(command));
}
