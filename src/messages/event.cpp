// SPDX-License-Identifier: LGPL-2.1-or-later

// Events: lifecycle, own fields and log lines.

#include "messages/event.hpp"

#include "messages/subscribeexpression.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"

#include <cstring>

using namespace qandor;

event *event_new(void)
{
    return new event();
}

void event_free(event *event)
{
    delete event;
}

event *event_copy(const event *event_src)
{
    RETURN_VALUE_IF_FAIL(event_src != NULL, nullptr);
    return new event(*event_src);
}

inspectable *event_get_inspectable(event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return &event->content;
}

void event_set_inspectable(event *event, const inspectable *inspectable)
{
    RETURN_IF_FAIL(event != NULL);
    RETURN_IF_FAIL(inspectable != NULL);
    event->content = ::inspectable(*inspectable, IT_EVENT);
}

void event_set_user_data(event *event, gconstpointer user_data, guint32 size)
{
    RETURN_IF_FAIL(event != NULL);
    RETURN_IF_FAIL(user_data != NULL);
    RETURN_IF_FAIL(size != 0);
    event->user_data.set(user_data, size);
}

gpointer event_get_user_data(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return event->user_data.copy();
}

void event_set_user_data_string(event *event, const gchar *user_data)
{
    RETURN_IF_FAIL(event != NULL);
    RETURN_IF_FAIL(user_data != NULL);
    event->user_data.set(user_data, static_cast<guint32>(std::strlen(user_data) + 1));
}

gchar *event_get_user_data_string(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, nullptr);
    return static_cast<gchar *>(event->user_data.copy());
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

void event_set_timestamp(event *event, glong seconds, glong microseconds)
{
    RETURN_IF_FAIL(event != NULL);
    event->seconds = seconds;
    event->microseconds = microseconds;
}

GTimeVal event_get_timestamp(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, (GTimeVal{0, 0}));
    return {event->seconds, event->microseconds};
}

void set_event_time_now(event *event)
{
    RETURN_IF_FAIL(event != NULL);
    if (event->seconds != 0 || event->microseconds != 0)
        return;
    GTimeVal now;
    g_get_current_time(&now);
    event_set_timestamp(event, now.tv_sec, now.tv_usec);
}

G_GNUC_END_IGNORE_DEPRECATIONS

void event_set_producer_id(event *event, guint32 producer_id)
{
    RETURN_IF_FAIL(event != NULL);
    event->producer_id = producer_id;
}

guint32 event_get_producer_id(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, 0);
    return event->producer_id;
}

void event_set_global_id(event *event, guint32 global_id)
{
    RETURN_IF_FAIL(event != NULL);
    event->global_id = global_id;
}

guint32 event_get_global_id(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, 0);
    return event->global_id;
}

void event_set_local_id(event *event, guint32 local_id)
{
    RETURN_IF_FAIL(event != NULL);
    event->local_id = local_id;
}

guint32 event_get_local_id(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, 0);
    return event->local_id;
}

void event_set_property(event *event, gboolean property)
{
    RETURN_IF_FAIL(event != NULL);
    event->property = property;
}

gboolean event_is_property(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    return event->property;
}

gboolean event_is_internal(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    return inspectable_get_internal(&event->content);
}

gboolean event_is_complete(const event *event)
{
    RETURN_VALUE_IF_FAIL(event != NULL, FALSE);
    return inspectable_is_complete(&event->content);
}

gboolean event_contains(const event *container, const subscribe_expression *containee)
{
    RETURN_VALUE_IF_FAIL(container != NULL, FALSE);
    RETURN_VALUE_IF_FAIL(containee != NULL, FALSE);
    return inspectable_contains(&container->content, &containee->content);
}

void event_print(const event *event)
{
    RETURN_IF_FAIL(event != NULL);
    log_message("---- Event ------------------------");
    if (event->property)
        log_message("< Property >");
    if (event->content.internal)
        log_message("< Internal >");
    log_message("Global Declaration Id: %d", static_cast<gint>(event->global_id));
    log_message("Local Declaration Id: %d", static_cast<gint>(event->local_id));
    log_message("Producer Id: %d", static_cast<gint>(event->producer_id));
    log_message("Timestamp: %ld.%ld", event->seconds, event->microseconds);
    inspectable_print(&event->content);
    log_message("-----------------------------------");
}
