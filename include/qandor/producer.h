/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The Producer object: a producer's presence on the bus. It keeps the declarations, makes them
 * known to the event switch, keeps the subscriptions that the switch forwards, remembers the state
 * of each property, and delivers events straight to the consumers that they match.
 *
 * Applications use event_producer, which runs everything that talks to the bus on the right thread.
 *
 * One recursive lock guards an instance and is held through every operation, also while the
 * application's functions are called; these may call back into the same instance. Operations that
 * send something run on the thread that iterates the default main context; the others may be called
 * from any thread.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/event.h>
#include <qandor/eventdeclaration.h>
#include <qandor/eventutils.h>

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _Producer Producer;
typedef struct _ProducerClass ProducerClass;

#define QANDOR_TYPE_PRODUCER (producer_get_type())

/** A declaration as the Producer keeps it. */
typedef struct decl_data decl_data;

/**
 * Tells which declarations have subscribers: an array of guint32 local ids that ends with the call.
 * Clandestine subscriptions do not count. Called when a declaration gets its first subscriber or
 * loses its last one.
 */
typedef void (*producer_ids_callback)(GArray *local_ids, gpointer user_data);

/** Tells, once, that the event switch has finished with a declaration. */
typedef void (*producer_complete_callback)(guint32 local_id, gpointer user_data);

/**
 * Tells how adding or removing an installed type went. The error, NULL for success, belongs to the
 * callee, the type ends with the call.
 */
typedef void (*producer_declaration_callback)(const gchar *type, gpointer user_data, GError *error);

QANDOR_API GType producer_get_type(void) G_GNUC_CONST;

/** Returns a new instance without a bus; the last g_object_unref() disconnects it. */
QANDOR_API Producer *producer_new(const gchar *name, producer_ids_callback subscriptions_changed,
                                  gpointer user_data);

/**
 * Connects, serves the object and declares what is there. FALSE with @error set on failure: then it
 * is tried again later, by itself, after pauses from 0.1 s to 5 s. The same happens, after a
 * critical, when the connection ends.
 */
QANDOR_API gboolean producer_init_dbus(Producer *self, GError **error);

/**
 * Takes @declaration over and files it under @local_id, which must be new (fatal). @complete_cb may
 * be NULL.
 */
QANDOR_API void producer_allocate_decl_data(Producer *self, guint32 local_id,
                                            event_declaration *declaration,
                                            producer_complete_callback complete_cb,
                                            gpointer complete_data);

/** Remembers a property's state and declares it, unless it is declared; unknown ids are ignored. */
QANDOR_API void producer_send_declare(Producer *self, guint32 local_id);

/** Whether the event switch has given the declaration a global id. */
QANDOR_API gboolean producer_declaration_complete(Producer *self, guint32 local_id);

/**
 * Takes a declaration out and returns it for producer_send_undeclare(), or NULL. Lost subscribers
 * are told at once on the thread of the default main context; another thread leaves that to it.
 */
QANDOR_API decl_data *producer_release_declare_id(Producer *self, guint32 local_id);

/** Undeclares it, if the event switch knows it, and frees it. */
QANDOR_API void producer_send_undeclare(Producer *self, decl_data *data);

/** Returns a new event of the declaration, or NULL. */
QANDOR_API event *producer_prepare_event(Producer *self, guint32 local_id);

/** Copies the declaration's global id and producer id into the event, if it is known. */
QANDOR_API void producer_fill_global_event_data(Producer *self, event *event);

/**
 * Delivers the event to every subscription that it matches, in the order of subscription, and
 * remembers it when it is a property's state. While the event switch returns, a plain event waits
 * for its subscriptions first, for 1 s at most. FALSE with code 4 for an unknown local id.
 */
QANDOR_API gboolean producer_send_event(Producer *self, const event *event, GError **error);

/** Remembers the state that a new event has with the pair's key set to its value. */
QANDOR_API void producer_add_callback_params(Producer *self, guint32 local_id,
                                             const callback_params *params);

/** Asks the event switch to install a type. @callback may be NULL. */
QANDOR_API void producer_add_declaration(Producer *self, const gchar *type,
                                         const event_declaration *declaration,
                                         producer_declaration_callback callback,
                                         gpointer user_data);

/** Asks the event switch to remove an installed type. @callback may be NULL. */
QANDOR_API void producer_remove_declaration(Producer *self, const gchar *type,
                                            producer_declaration_callback callback,
                                            gpointer user_data);

/** Says farewell to the event switch. */
QANDOR_API void producer_send_disconnect(Producer *self);

/** Makes sure that no function of the application is called any more; before the last unref. */
QANDOR_API void producer_prepare_free(Producer *self);

/** The event switch gave a declaration its global id. */
QANDOR_API void producer_receive_global_declare_id(Producer *self, guint32 local_id,
                                                   guint32 global_id, guint32 producer_id);

/** The event switch has finished with a declaration. */
QANDOR_API void producer_receive_declaration_complete(Producer *self, guint32 local_id,
                                                      guint32 global_id);

/** The event switch forwards a subscription: a serialized expression. */
QANDOR_API void producer_receive_subscribe(Producer *self, GArray *array, guint32 local_id);

/** A subscriber asks for a property's state once more. */
QANDOR_API void producer_receive_refresh_property(Producer *self, guint32 subscription_id,
                                                  guint32 local_id);

/** A subscription has gone. */
QANDOR_API void producer_receive_unsubscribe(Producer *self, guint32 subscription_id,
                                             guint32 local_id);

G_END_DECLS
