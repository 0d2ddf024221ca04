// SPDX-License-Identifier: LGPL-2.1-or-later

// Notifications. The setters of the nested objects leave an object that was set before to whoever
// still holds it.

#include "messages/eventdeclaration.hpp"
#include "messages/subscribeexpression.hpp"
#include "messages/userdata.hpp"
#include "model/grammar.hpp"
#include "model/serialize.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <qandor/notification.h>

#include <cstring>
#include <memory>

using namespace qandor;

struct notification : SliceAllocated {
    notification() = default;
    notification(const notification &) = delete;
    notification &operator=(const notification &) = delete;
    ~notification()
    {
        subscribe_expression_free(expression);
        event_declaration_free(declaration);
    }

    UserData user_data;
    glong seconds = 0;
    glong microseconds = 0;
    guint32 subscription_id = 0;
    guint32 declaration_id = 0;
    guint32 type = NOTIFY_DECLARATION_ADDED;
    subscribe_expression *expression = nullptr;
    event_declaration *declaration = nullptr;
};

notification *notification_new(void)
{
    return new notification();
}

void notification_free(notification *notification)
{
    delete notification;
}

notification *notification_copy(const notification *notification_src)
{
    auto *notification = notification_new();
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    notification->user_data = notification_src->user_data;
    notification->seconds = notification_src->seconds;
    notification->microseconds = notification_src->microseconds;
    notification->subscription_id = notification_src->subscription_id;
    notification->declaration_id = notification_src->declaration_id;
    notification->type = notification_src->type;
    if (notification_src->expression)
        notification->expression = subscribe_expression_copy(notification_src->expression);
    if (notification_src->declaration)
        notification->declaration = event_declaration_copy(notification_src->declaration);
    return notification;
}

void notification_set_user_data(notification *notification, gconstpointer user_data, guint32 size)
{
    RETURN_IF_FAIL(notification != NULL);
    RETURN_IF_FAIL(user_data != NULL);
    RETURN_IF_FAIL(size != 0);
    notification->user_data.set(user_data, size);
}

gpointer notification_get_user_data(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    return notification->user_data.copy();
}

void notification_set_user_data_string(notification *notification, const gchar *user_data)
{
    RETURN_IF_FAIL(notification != NULL);
    RETURN_IF_FAIL(user_data != NULL);
    notification->user_data.set(user_data, static_cast<guint32>(std::strlen(user_data) + 1));
}

gchar *notification_get_user_data_string(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    return static_cast<gchar *>(notification->user_data.copy());
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

void notification_set_timestamp(notification *notification, glong seconds, glong microseconds)
{
    RETURN_IF_FAIL(notification != NULL);
    notification->seconds = seconds;
    notification->microseconds = microseconds;
}

GTimeVal notification_get_timestamp(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, (GTimeVal{0, 0}));
    return {notification->seconds, notification->microseconds};
}

G_GNUC_END_IGNORE_DEPRECATIONS

void notification_set_subscription_id(notification *notification, guint32 subscription_id)
{
    notification->subscription_id = subscription_id;
}

guint32 notification_get_subscription_id(const notification *notification)
{
    return notification->subscription_id;
}

void notification_set_declaration_id(notification *notification, guint32 declaration_id)
{
    notification->declaration_id = declaration_id;
}

guint32 notification_get_declaration_id(const notification *notification)
{
    return notification->declaration_id;
}

void notification_set_type(notification *notification, guint32 type)
{
    notification->type = type;
}

guint32 notification_get_type(const notification *notification)
{
    return notification->type;
}

void notification_set_declaration(notification *notification, const event_declaration *declaration)
{
    notification->declaration = event_declaration_copy(declaration);
}

event_declaration *notification_get_declaration(const notification *notification)
{
    return notification->declaration;
}

void notification_set_subscribe_expression(notification *notification,
                                           const subscribe_expression *subscribe_expression)
{
    notification->expression = subscribe_expression_copy(subscribe_expression);
}

subscribe_expression *notification_get_subscribe_expression(const notification *notification)
{
    return notification->expression;
}

const gchar *notification_get_value(const notification *notification, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_value(event_declaration_get_inspectable(notification->declaration), key);
}

const gchar *notification_get_name_space(const notification *notification, const gchar *key)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    RETURN_VALUE_IF_FAIL(key != NULL, nullptr);
    return inspectable_get_name_space(event_declaration_get_inspectable(notification->declaration),
                                      key);
}

gboolean notification_is_internal(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, FALSE);
    return event_declaration_is_internal(notification->declaration);
}

gboolean notification_is_type_deleted(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, FALSE);
    return notification->type == NOTIFY_DECLARATION_REMOVED;
}

namespace {

wire::Blob blob_of(const GArray *array)
{
    return {reinterpret_cast<const guint8 *>(array->data), array->len};
}

// Each nested record is serialized into a buffer of its own.
struct WrittenNotification {
    explicit WrittenNotification(const notification &source)
        : expression_bytes(subscribe_expression_serialize(source.expression)),
          declaration_bytes(event_declaration_serialize(source.declaration)),
          user_data(source.user_data.blob()), seconds(source.seconds),
          microseconds(source.microseconds), subscription_id(source.subscription_id),
          declaration_id(source.declaration_id), removed(source.type > 0 ? 1 : 0)
    {
        CHECK_TEXT(expression_bytes != nullptr, "notification->subscribe_expression != NULL");
        CHECK_TEXT(declaration_bytes != nullptr, "notification->declaration != NULL");
        expression = blob_of(expression_bytes.get());
        declaration = blob_of(declaration_bytes.get());
    }

    ArrayOwner expression_bytes;
    ArrayOwner declaration_bytes;
    wire::Blob user_data;
    const glong seconds;
    const glong microseconds;
    const guint32 subscription_id;
    const guint32 declaration_id;
    const guint32 removed;
    wire::Blob expression;
    wire::Blob declaration;
};

struct ReadNotification {
    explicit ReadNotification(notification &made)
        : seconds(made.seconds), microseconds(made.microseconds),
          subscription_id(made.subscription_id), declaration_id(made.declaration_id)
    {
    }

    wire::Blob user_data;
    glong &seconds;
    glong &microseconds;
    guint32 &subscription_id;
    guint32 &declaration_id;
    guint32 removed = 0;
    wire::Blob expression;
    wire::Blob declaration;
};

// A nested record is read from a view of the outer buffer that ends where the record's size says.
GArray view_of(const wire::Blob &blob)
{
    return {const_cast<gchar *>(reinterpret_cast<const gchar *>(blob.data)), blob.size};
}

} // namespace

void notification_serialize_internal(const notification *notification, GArray *array)
{
    CHECK(notification != NULL);
    CHECK(array != NULL);
    WrittenNotification written(*notification);
    append_record(array, [&](auto &wire) { grammar::notification(wire, written); });
}

GArray *notification_serialize(const notification *notification)
{
    RETURN_VALUE_IF_FAIL(notification != NULL, nullptr);
    GArray *array = serialize_create_array();
    notification_serialize_internal(notification, array);
    return array;
}

notification *notification_deserialize_internal(GArray *array, guint *indx)
{
    CHECK(array != NULL);
    CHECK(indx != NULL);
    wire::Reader reader(array, indx);
    auto made = std::make_unique<notification>();
    ReadNotification reading(*made);
    grammar::notification(reader, reading);

    made->user_data.set(reading.user_data);
    made->type = reading.removed ? NOTIFY_DECLARATION_REMOVED : NOTIFY_DECLARATION_ADDED;
    GArray expression = view_of(reading.expression);
    made->expression = subscribe_expression_deserialize(&expression);
    GArray declaration = view_of(reading.declaration);
    made->declaration = event_declaration_deserialize(&declaration);
    return made.release();
}

notification *notification_deserialize(GArray *array)
{
    RETURN_VALUE_IF_FAIL(array != NULL, nullptr);
    guint indx = 0;
    return notification_deserialize_internal(array, &indx);
}

void notification_print(const notification *notification)
{
    RETURN_IF_FAIL(notification != NULL);
    log_message("---- Notification ------------------------");
    log_message("Subscription Id: %d", static_cast<gint>(notification->subscription_id));
    log_message("Declaration Id: %d", static_cast<gint>(notification->declaration_id));
    log_message("Declaration Type: %s",
                notification->type ? "NOTIFY_DECLARATION_REMOVED" : "NOTIFY_DECLARATION_ADDED");
    log_message("Subscribe expression:");
    subscribe_expression_print(notification->expression);
    log_message("Event declaration:");
    event_declaration_print(notification->declaration);
    log_message("-----------------------------------");
}
