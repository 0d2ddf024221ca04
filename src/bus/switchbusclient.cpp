// SPDX-License-Identifier: LGPL-2.1-or-later

// The client stubs of the event switch's three interfaces.

#include "bus/switchbusclient.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"

#include <qandor/switchbusclient.h>

using namespace qandor;

namespace {

Method producer_method(const char *member)
{
    return {DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_PRODUCER, member};
}

Method consumer_method(const char *member)
{
    return {DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_CONSUMER, member};
}

Method query_method(const char *member)
{
    return {DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH, DBUS_INTERFACE_SWITCH_QUERY, member};
}

// Copies the one array of bytes of an answer. An answer that is not there cannot be read either.
int copy_bytes(sd_bus_message *reply, guint8 **out_data, gsize *out_length)
{
    const void *data = nullptr;
    size_t length = 0;
    int r = sd_bus_message_read_array(reply, 'y', &data, &length);
    CHECK(r >= 0);
    *out_data = static_cast<guint8 *>(g_memdup2(data, length));
    *out_length = length;
    return r;
}

} // namespace

MethodCall qandor::declare_call(sd_bus *bus, const char *object, const char *name,
                                const Bytes &declaration)
{
    MethodCall call(bus, producer_method("Declare"),
                    "com_vemo_Event_Switch_Producer_declare_async");
    call.append("ss", object, name).append_bytes(declaration);
    return call;
}

MethodCall qandor::subscribe_call(sd_bus *bus, const char *object, const char *name, guint32 token,
                                  const Bytes &expression)
{
    MethodCall call(bus, consumer_method("Subscribe"),
                    "com_vemo_Event_Switch_Consumer_subscribe_async");
    call.append("ssu", object, name, token).append_bytes(expression);
    return call;
}

MethodCall qandor::undeclare_call(sd_bus *bus, const char *object, guint32 global_id)
{
    MethodCall call(bus, producer_method("Undeclare"),
                    "com_vemo_Event_Switch_Producer_undeclare_async");
    call.append("su", object, global_id).without_starting();
    return call;
}

MethodCall qandor::unsubscribe_call(sd_bus *bus, const char *object, guint32 token)
{
    MethodCall call(bus, consumer_method("Unsubscribe"),
                    "com_vemo_Event_Switch_Consumer_unsubscribe_async");
    call.append("su", object, token).without_starting();
    return call;
}

void com_vemo_Event_Switch_Producer_declare_async(sd_bus *bus, const gchar *object,
                                                  const gchar *name, const guint8 *declaration,
                                                  gsize declaration_length,
                                                  sd_bus_message_handler_t callback,
                                                  gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    RETURN_IF_FAIL(name != NULL);
    declare_call(bus, object, name, {declaration, declaration_length}).send(callback, userdata);
}

void com_vemo_Event_Switch_Producer_undeclare_async(sd_bus *bus, const gchar *object,
                                                    guint32 global_id,
                                                    sd_bus_message_handler_t callback,
                                                    gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    undeclare_call(bus, object, global_id).send(callback, userdata);
}

void com_vemo_Event_Switch_Producer_add_declaration_async(sd_bus *bus, const gchar *type,
                                                          const guint8 *declaration,
                                                          gsize declaration_length,
                                                          sd_bus_message_handler_t callback,
                                                          gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(type != NULL);
    MethodCall(bus, producer_method("AddDeclaration"), __func__)
        .append("s", type)
        .append_bytes({declaration, declaration_length})
        .send(callback, userdata);
}

void com_vemo_Event_Switch_Producer_remove_declaration_async(sd_bus *bus, const gchar *type,
                                                             sd_bus_message_handler_t callback,
                                                             gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(type != NULL);
    MethodCall(bus, producer_method("RemoveDeclaration"), __func__)
        .append("s", type)
        .send(callback, userdata);
}

void com_vemo_Event_Switch_Producer_disconnect_async(sd_bus *bus, const gchar *object,
                                                     sd_bus_message_handler_t callback,
                                                     gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    MethodCall(bus, producer_method("Disconnect"), __func__)
        .append("s", object)
        .without_starting()
        .send(callback, userdata);
}

void com_vemo_Event_Switch_Consumer_subscribe_async(sd_bus *bus, const gchar *object,
                                                    const gchar *name, guint32 consumer_token,
                                                    const guint8 *subscribe_expression_data,
                                                    gsize subscribe_expression_length,
                                                    sd_bus_message_handler_t callback,
                                                    gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    RETURN_IF_FAIL(name != NULL);
    RETURN_IF_FAIL(subscribe_expression_data != NULL);
    subscribe_call(bus, object, name, consumer_token,
                   {subscribe_expression_data, subscribe_expression_length})
        .send(callback, userdata);
}

void com_vemo_Event_Switch_Consumer_unsubscribe_async(sd_bus *bus, const gchar *object,
                                                      guint32 consumer_token,
                                                      sd_bus_message_handler_t callback,
                                                      gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    unsubscribe_call(bus, object, consumer_token).send(callback, userdata);
}

void com_vemo_Event_Switch_Consumer_refresh_property_async(sd_bus *bus, const gchar *object,
                                                           guint32 consumer_token,
                                                           sd_bus_message_handler_t callback,
                                                           gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    MethodCall(bus, consumer_method("RefreshProperty"), __func__)
        .append("su", object, consumer_token)
        .without_starting()
        .send(callback, userdata);
}

void com_vemo_Event_Switch_Consumer_disconnect_async(sd_bus *bus, const gchar *object,
                                                     sd_bus_message_handler_t callback,
                                                     gpointer userdata)
{
    RETURN_IF_FAIL(bus != NULL);
    RETURN_IF_FAIL(object != NULL);
    MethodCall(bus, consumer_method("Disconnect"), __func__)
        .append("s", object)
        .without_starting()
        .send(callback, userdata);
}

int com_vemo_Event_Switch_Consumer_get_property_state(sd_bus *bus, const guint8 *data, gsize length,
                                                      sd_bus_error *error, guint8 **out_data,
                                                      gsize *out_length)
{
    if (!bus || !data) {
        log_critical("Assertion failed 'bus == NULL || subscribe_expression_data == NULL'");
        return -1;
    }
    MethodCall call(bus, consumer_method("GetPropertyState"), __func__);
    call.append_bytes({data, length});
    sd_bus_message *reply = nullptr;
    int r = call.send_and_wait(error, &reply);
    if (r < 0)
        return r;
    BusMessageOwner owner(reply);
    r = copy_bytes(reply, out_data, out_length);
    CHECK_TEXT(*out_data != nullptr, "'dest' should not be NULL");
    return r;
}

int com_vemo_Event_Switch_Query_get_all_declarations(sd_bus *bus, sd_bus_error *error,
                                                     guint8 **out_data, gsize *out_length)
{
    if (!bus) {
        log_critical("Assertion failed 'bus == NULL'");
        return -1;
    }
    MethodCall call(bus, query_method("GetAllDeclarations"), __func__);
    sd_bus_message *reply = nullptr;
    call.send_and_wait(error, &reply);
    BusMessageOwner owner(reply);
    return copy_bytes(reply, out_data, out_length);
}

int com_vemo_Event_Switch_Query_get_declaration_types(sd_bus *bus, sd_bus_error *error,
                                                      sd_bus_message **reply)
{
    if (!bus) {
        log_critical("Assertion failed 'bus == NULL'");
        return -1;
    }
    MethodCall call(bus, query_method("GetDeclarationTypes"), __func__);
    return call.send_and_wait(error, reply);
}
