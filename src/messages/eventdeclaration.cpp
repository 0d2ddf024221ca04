// SPDX-License-Identifier: LGPL-2.1-or-later

// Event declarations: lifecycle, ids, property and the events made from them.

#include "messages/eventdeclaration.hpp"

#include "messages/event.hpp"
#include "messages/subscribeexpression.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

event_declaration *event_declaration_new(gboolean internal)
{
    return new event_declaration(internal);
}

void event_declaration_free(event_declaration *declaration)
{
    delete declaration;
}

event_declaration *event_declaration_copy(const event_declaration *declaration_src)
{
    RETURN_VALUE_IF_FAIL(declaration_src != NULL, nullptr);
    return new event_declaration(*declaration_src);
}

inspectable *event_declaration_get_inspectable(event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    return &declaration->content;
}

void event_declaration_set_producer_id(event_declaration *declaration, guint32 producer_id)
{
    RETURN_IF_FAIL(declaration != NULL);
    declaration->producer_id = producer_id;
}

guint32 event_declaration_get_producer_id(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, 0);
    return declaration->producer_id;
}

void event_declaration_set_global_id(event_declaration *declaration, guint32 global_id)
{
    RETURN_IF_FAIL(declaration != NULL);
    declaration->global_id = global_id;
}

guint32 event_declaration_get_global_id(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, 0);
    return declaration->global_id;
}

void event_declaration_set_local_id(event_declaration *declaration, guint32 local_id)
{
    RETURN_IF_FAIL(declaration != NULL);
    declaration->local_id = local_id;
}

guint32 event_declaration_get_local_id(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, 0);
    return declaration->local_id;
}

gboolean event_declaration_set_property(event_declaration *declaration, const gchar *key,
                                        event_declaration_property_callback callback,
                                        gpointer callback_data)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    declaration->callback = callback;
    declaration->callback_data = callback_data;
    declaration->property = TRUE;
    return key ? inspectable_add_key_tag(&declaration->content, key, PROPERTY_STATE_TAG) : TRUE;
}

gboolean event_declaration_is_property(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    return declaration->property;
}

gboolean event_declaration_is_internal(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    return inspectable_get_internal(&declaration->content);
}

gboolean event_declaration_contains(const event_declaration *declaration,
                                    const subscribe_expression *subscribe_expression)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(subscribe_expression != NULL, FALSE);
    return inspectable_contains(&declaration->content, &subscribe_expression->content);
}

event *event_declaration_generate_event(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    auto *made = new event(declaration->content);
    made->global_id = declaration->global_id;
    made->local_id = declaration->local_id;
    made->producer_id = declaration->producer_id;
    made->property = declaration->property;
    return made;
}

event *event_declaration_get_property_event(const event_declaration *declaration)
{
    RETURN_VALUE_IF_FAIL(declaration != NULL, nullptr);
    if (!declaration->property)
        return nullptr;
    std::unique_ptr<event> state(event_declaration_generate_event(declaration));
    if (declaration->callback)
        declaration->callback(state.get(), declaration->callback_data);
    set_event_time_now(state.get());
    return event_is_complete(state.get()) ? state.release() : nullptr;
}

void event_declaration_print(const event_declaration *declaration)
{
    RETURN_IF_FAIL(declaration != NULL);
    qandor::log_message("--- Event Declaration -----------------");
    if (declaration->property)
        qandor::log_message("< Property >");
    if (declaration->content.internal)
        qandor::log_message("< Internal >");
    qandor::log_message("Global Declaration Id: %d", static_cast<gint>(declaration->global_id));
    qandor::log_message("Local Declaration Id: %d", static_cast<gint>(declaration->local_id));
    qandor::log_message("Producer Id: %d", static_cast<gint>(declaration->producer_id));
    inspectable_print(&declaration->content);
    qandor::log_message("---------------------------------------");
}
