/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The calls to the event switch, one function for each method. Objects travel as their serialized
 * bytes. docs/bus-protocol.md says what the switch does with each.
 *
 * The asynchronous functions return at once; @callback runs on the connection's thread when the
 * answer, an error or the end of 60 s comes. A NULL @bus or text is a critical and nothing is sent;
 * a message that cannot be built is fatal; a call that cannot be sent is a warning, and @callback
 * never runs.
 *
 * All of them are used on the connection's thread.
 */
#pragma once

#include <qandor/api.h>

#include <glib.h>
#include <systemd/sd-bus.h>

G_BEGIN_DECLS

/** The event switch's name, object and interfaces. */
#define DBUS_SERVICE_SWITCH "com.vemo.Event.Switch"
#define DBUS_OBJECT_SWITCH "/com/vemo/Event/Switch"
#define DBUS_INTERFACE_SWITCH_PRODUCER "com.vemo.Event.Switch.Producer"
#define DBUS_INTERFACE_SWITCH_CONSUMER "com.vemo.Event.Switch.Consumer"
#define DBUS_INTERFACE_SWITCH_QUERY "com.vemo.Event.Switch.Query"

/** Declare: the producer's object and name, and an event declaration. */
QANDOR_API void
com_vemo_Event_Switch_Producer_declare_async(sd_bus *bus, const gchar *object, const gchar *name,
                                             const guint8 *declaration, gsize declaration_length,
                                             sd_bus_message_handler_t callback, gpointer userdata);

/** Undeclare: the producer's object and the declaration's global id. */
QANDOR_API void com_vemo_Event_Switch_Producer_undeclare_async(sd_bus *bus, const gchar *object,
                                                               guint32 global_id,
                                                               sd_bus_message_handler_t callback,
                                                               gpointer userdata);

/** AddDeclaration: the name of a type to install, and its event declaration. */
QANDOR_API void com_vemo_Event_Switch_Producer_add_declaration_async(
    sd_bus *bus, const gchar *type, const guint8 *declaration, gsize declaration_length,
    sd_bus_message_handler_t callback, gpointer userdata);

/** RemoveDeclaration: the name of an installed type. */
QANDOR_API void com_vemo_Event_Switch_Producer_remove_declaration_async(
    sd_bus *bus, const gchar *type, sd_bus_message_handler_t callback, gpointer userdata);

/** Disconnect: the producer's object. */
QANDOR_API void com_vemo_Event_Switch_Producer_disconnect_async(sd_bus *bus, const gchar *object,
                                                                sd_bus_message_handler_t callback,
                                                                gpointer userdata);

/** Subscribe: the consumer's object and name, its token, and a subscribe expression. */
QANDOR_API void com_vemo_Event_Switch_Consumer_subscribe_async(
    sd_bus *bus, const gchar *object, const gchar *name, guint32 consumer_token,
    const guint8 *subscribe_expression_data, gsize subscribe_expression_length,
    sd_bus_message_handler_t callback, gpointer userdata);

/** Unsubscribe: the consumer's object and its token. */
QANDOR_API void com_vemo_Event_Switch_Consumer_unsubscribe_async(sd_bus *bus, const gchar *object,
                                                                 guint32 consumer_token,
                                                                 sd_bus_message_handler_t callback,
                                                                 gpointer userdata);

/** RefreshProperty: the consumer's object and its token. */
QANDOR_API void com_vemo_Event_Switch_Consumer_refresh_property_async(
    sd_bus *bus, const gchar *object, guint32 consumer_token, sd_bus_message_handler_t callback,
    gpointer userdata);

/** Disconnect: the consumer's object. */
QANDOR_API void com_vemo_Event_Switch_Consumer_disconnect_async(sd_bus *bus, const gchar *object,
                                                                sd_bus_message_handler_t callback,
                                                                gpointer userdata);

/**
 * GetPropertyState: asks for the state of the property that a subscribe expression names, and waits
 * for at most 60 s.
 *
 * Returns 0 or more with the serialized property state in a new buffer that the caller frees with
 * g_free(); a negative errno with @error filled when the call failed; -1 with a critical for a NULL
 * @bus or @data.
 */
QANDOR_API int com_vemo_Event_Switch_Consumer_get_property_state(sd_bus *bus, const guint8 *data,
                                                                 gsize length, sd_bus_error *error,
                                                                 guint8 **out_data,
                                                                 gsize *out_length);

/**
 * GetAllDeclarations: returns the serialized list of all event declarations in a new buffer that
 * the caller frees with g_free(). A call that fails is fatal. -1 with a critical for a NULL @bus.
 */
QANDOR_API int com_vemo_Event_Switch_Query_get_all_declarations(sd_bus *bus, sd_bus_error *error,
                                                                guint8 **out_data,
                                                                gsize *out_length);

/**
 * GetDeclarationTypes: returns the answer, from which the caller reads one "ay", the serialized
 * list of the declarations of all installed types, and which it unrefs. A negative errno with
 * @error filled when the call failed; -1 with a critical for a NULL @bus.
 */
QANDOR_API int com_vemo_Event_Switch_Query_get_declaration_types(sd_bus *bus, sd_bus_error *error,
                                                                 sd_bus_message **reply);

G_END_DECLS
