// SPDX-License-Identifier: LGPL-2.1-or-later

// Declaring an installed type by its name: the calls of applications.

#include "api/eventregistration.hpp"

#include "api/eventproducer.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

using namespace qandor;

namespace {

// Returns the local id, or 0 with an error. What has no local id is declared all the same, as 0.
guint32 declare_registered(event_producer *handle, event_declaration *declaration,
                           const callback_params *params,
                           producer_complete_callback notify_callback, gpointer user_data,
                           GError **error)
{
    guint32 local_id = event_producer_int_get_decl_id(handle, declaration, error);
    event_producer_int_declare(handle, declaration, local_id, nullptr, notify_callback, user_data);
    if (params)
        producer_add_callback_params(handle->producer, local_id, params);
    return local_id;
}

guint32 register_list(event_producer *handle, const char *type,
                      producer_complete_callback notify_callback, gpointer user_data,
                      GList *register_list)
{
    event_declaration *declaration = nullptr;
    callback_params *params = nullptr;
    GError *error = nullptr;
    event_producer_int_register_list(type, register_list, &declaration, &params, &error);
    DeclarationOwner declaration_owner(declaration);
    CallbackParamsOwner params_owner(params);

    guint32 local_id = 0;
    if (declaration)
        local_id =
            declare_registered(handle, declaration, params, notify_callback, user_data, &error);
    if (local_id != 0)
        return local_id;
    CHECK(error != NULL);
    ErrorOwner error_owner(error);
    log_warning("Error when registering event: %s", error->message);
    return 0;
}

} // namespace

guint32 event_producer_register(event_producer *event_producer, const char *type, ...)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, 0);
    RETURN_VALUE_IF_FAIL(type != NULL, 0);
    va_list arguments;
    va_start(arguments, type);
    RegisterListOwner list(event_producer_int_parse_register_valist(arguments));
    va_end(arguments);
    return register_list(event_producer, type, nullptr, nullptr, list.get());
}

guint32 event_producer_register_and_notify(event_producer *event_producer, const char *type,
                                           producer_complete_callback notify_callback,
                                           gpointer user_data, ...)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, 0);
    RETURN_VALUE_IF_FAIL(type != NULL, 0);
    va_list arguments;
    va_start(arguments, user_data);
    RegisterListOwner list(event_producer_int_parse_register_valist(arguments));
    va_end(arguments);
    return register_list(event_producer, type, notify_callback, user_data, list.get());
}

guint32 event_producer_register_list(event_producer *event_producer, const char *type,
                                     GList *triples)
{
    return event_producer_register_and_notify_list(event_producer, type, nullptr, nullptr, triples);
}

guint32 event_producer_register_and_notify_list(event_producer *event_producer, const char *type,
                                                producer_complete_callback notify_callback,
                                                gpointer user_data, GList *triples)
{
    RETURN_VALUE_IF_FAIL(event_producer != NULL, 0);
    RETURN_VALUE_IF_FAIL(type != NULL, 0);
    RegisterListOwner list(event_producer_int_convert_to_string_list(triples));
    return register_list(event_producer, type, notify_callback, user_data, list.get());
}
