/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The event producer: declares event types and sends events.
 *
 * A producer declares a type and gets a local id at once; the event switch's answer comes later.
 * For each event it prepares a copy from the declaration, fills its open keys and sends it: the
 * library delivers it straight to every consumer whose expression it satisfies.
 *
 * All functions may be called from any thread. What returns something does its checks on the
 * caller's thread; everything that talks to the bus is queued, in order, and runs on the thread
 * that iterates the default main context, as do all callbacks. An application that does not run
 * that context declares and sends nothing.
 *
 * A NULL handle, type or declaration or an id of 0 is a critical that names the function, and
 * FALSE, 0 or NULL, where a function does not say otherwise. Errors are of the domain
 * "event-error-quark"; an error argument that is already set is cleared, set to code 10 "Error
 * object already set", and the call fails. Errors handed to a callback belong to it:
 * g_error_free().
 */
#pragma once

#include <qandor/api.h>
#include <qandor/event.h>
#include <qandor/eventdeclaration.h>
#include <qandor/eventutils.h>
#include <qandor/producer.h>

#include <glib.h>

#include <stdarg.h>

G_BEGIN_DECLS

typedef struct event_producer event_producer;

/** Tells how the connection was made; @error is NULL for success and belongs to the callee. */
typedef void (*event_producer_setup_callback)(event_producer *event_producer, gpointer user_data,
                                              GError *error);

/** Tells that a declaration is about to be sent. */
typedef void (*event_producer_declared_callback)(guint32 local_id, gpointer user_data);

/** Tells that a declaration was undeclared; @error is NULL for success and belongs to the callee.
 */
typedef void (*event_producer_undeclared_callback)(guint32 local_id, gpointer user_data,
                                                   GError *error);

/**
 * Tells that an event was sent; @error is NULL for success and belongs to the callee. @event is the
 * pointer that was given to the send function, to know the event by: it may be freed already.
 */
typedef void (*event_producer_sent_callback)(guint32 local_id, event *event, gpointer user_data,
                                             GError *error);

/** Tells that a producer is gone. The pointer is to know it by and must not be used. */
typedef void (*event_producer_freed_callback)(event_producer *event_producer, gpointer user_data);

/** event_producer_new_full() without a callback. */
QANDOR_API event_producer *event_producer_new(const char *name);

/**
 * Returns a new producer at once; it connects later. A connection that fails is logged as a
 * critical, and is tried again after pauses from 0.1 s to 5 s. So is one that ends: everything is
 * declared again then, under the same local ids.
 * @name is UTF-8. A name that is not ends the process with the first call to the switch.
 * @ids_callback (or NULL) is told which declarations have subscribers whenever one gets its first
 * or loses its last. When undeclaring costs a declaration its last one, it is called before the
 * undeclaring returns on the thread that iterates the default main context, and later, on that
 * thread, when another one undeclares. It may free the producer.
 */
QANDOR_API event_producer *
event_producer_new_full(const char *name, producer_ids_callback ids_callback, gpointer user_data);

/**
 * Frees the producer, once all that was queued before has run: events that were sent arrive. The
 * main context has to go on for that, and stands still for at most 2 s while consumers answer the
 * last events. No callback of a declaration or subscription is called from now on. NULL is ignored.
 */
QANDOR_API void event_producer_free(event_producer *event_producer);

/** event_producer_declare_and_notify() without a callback. */
QANDOR_API guint32 event_producer_declare(event_producer *event_producer,
                                          event_declaration *declaration);

/**
 * Declares an event type. Returns its local id, or 0 with a warning, for an external declaration
 * that has no value for "topic0". The declaration stays the caller's. @notify_callback (or NULL) is
 * called once when the event switch has finished with the declaration.
 */
QANDOR_API guint32 event_producer_declare_and_notify(event_producer *event_producer,
                                                     event_declaration *declaration,
                                                     producer_complete_callback notify_callback,
                                                     gpointer user_data);

/**
 * Whether the event switch has given the declaration its global id, which events need; a property's
 * do not.
 */
QANDOR_API gboolean event_producer_declaration_complete(event_producer *event_producer,
                                                        guint32 local_declare_id);

/** event_producer_undeclare_and_notify() without a callback. */
QANDOR_API gboolean event_producer_undeclare(event_producer *event_producer,
                                             guint32 local_declare_id);

/**
 * Takes a declaration back. Returns whether it was known. It is gone for the caller at once, so an
 * event that was queued before and has not been sent yet fails with code 4. @callback (or NULL) is
 * called in any case, with code 4 for an unknown id.
 */
QANDOR_API gboolean event_producer_undeclare_and_notify(event_producer *event_producer,
                                                        guint32 local_declare_id,
                                                        event_producer_undeclared_callback callback,
                                                        gpointer user_data);

/** Returns a new event of the declaration, ready to be filled, or NULL for an unknown id. */
QANDOR_API event *event_producer_prepare_event(event_producer *event_producer,
                                               guint32 local_declare_id);

/** event_producer_send_event() without an error. */
QANDOR_API gboolean event_producer_send_event_async(event_producer *event_producer, event *event);

/**
 * Sends a copy of the event, stamped with the current time unless it has one; the event stays the
 * caller's. FALSE with an error when it cannot be sent: code 4 while the event switch has not given
 * the declaration its global id (a property's state is remembered and sent later), 6 when keys are
 * unset, 0 for a NULL producer or event.
 *
 * There is no global id while there is no connection to the bus or no event switch. When the switch
 * has returned, plain events wait for 1 s at most until it has announced the subscriptions; those
 * that had to be delivered too early or could not be delivered are told in a warning.
 */
QANDOR_API gboolean event_producer_send_event(event_producer *event_producer, event *event,
                                              GError **error);

/**
 * Asks the event switch to install a declaration as a type that can be declared by its name.
 * Returns TRUE at once; @callback (or NULL) tells how it went.
 */
QANDOR_API gboolean event_producer_add_declaration(event_producer *event_producer, const char *type,
                                                   event_declaration *declaration,
                                                   producer_declaration_callback callback,
                                                   gpointer user_data);

/** Asks the event switch to remove an installed type, as event_producer_add_declaration() does. */
QANDOR_API gboolean event_producer_remove_declaration(event_producer *event_producer,
                                                      const char *type,
                                                      producer_declaration_callback callback,
                                                      gpointer user_data);

/**
 * Declares an installed type (see event_declaration_new_from_type()) and fills in values of its
 * open keys: after @type come a key, its value and the value's type for each, and NULL at the end.
 *
 *     gint channel = 5;
 *     event_producer_register(producer, "channel-change", "channel", &channel, VALUE_TYPE_INT,
 *                             "by", "remote control", VALUE_TYPE_STRING, NULL);
 *
 * A value is given in its type, a guint32 (one of value_type, anything else is fatal): a pointer to
 * a gint, gboolean or gdouble, or the string itself. Everything is copied. Keys that are not given
 * stay open and are filled in by each event. The key that the type tags "property-state" is
 * special: it stays open, the value given for it becomes the property's state at once, and then all
 * other open keys have to be given too.
 *
 * Returns the local id, which is used like that of event_producer_declare(), or 0 with a warning
 * that says why: no such type, an unknown key or one that has a value already, keys missing for a
 * property, an external type without the key "topic0". The last of these is a mistake in the
 * installed type that does not end there: it is declared without an id, which is fatal when the
 * main context comes to it.
 */
QANDOR_API guint32 event_producer_register(event_producer *event_producer, const char *type,
                                           ...) G_GNUC_NULL_TERMINATED;

/**
 * event_producer_register() with a callback (or NULL) that is called once when the event switch has
 * finished with the declaration.
 */
QANDOR_API guint32 event_producer_register_and_notify(event_producer *event_producer,
                                                      const char *type,
                                                      producer_complete_callback notify_callback,
                                                      gpointer user_data,
                                                      ...) G_GNUC_NULL_TERMINATED;

/** event_producer_register_and_notify_list() without a callback. */
QANDOR_API guint32 event_producer_register_list(event_producer *event_producer, const char *type,
                                                GList *triples);

/**
 * event_producer_register_and_notify() with the keys, values and types as elements of a list, types
 * as by GUINT_TO_POINTER(). The list stays the caller's. A length that is no multiple of 3 is
 * fatal.
 */
QANDOR_API guint32 event_producer_register_and_notify_list(
    event_producer *event_producer, const char *type, producer_complete_callback notify_callback,
    gpointer user_data, GList *triples);

/** A new handle that is not set up. These operations are what the calls above are made of. */
QANDOR_API event_producer *event_producer_int_new_empty(void);

/** Sets a handle up and queues its connecting. @name is copied. */
QANDOR_API void event_producer_int_setup(event_producer *event_producer, const char *name,
                                         event_producer_setup_callback setup_callback,
                                         producer_ids_callback ids_callback, gpointer user_data);

/** Frees the handle as event_producer_free() does, then calls @callback. NULL is fatal. */
QANDOR_API void event_producer_int_free(event_producer *event_producer,
                                        event_producer_freed_callback callback, gpointer user_data);

/** Returns a local id for the declaration, or 0 with an error. */
QANDOR_API guint32 event_producer_int_get_decl_id(event_producer *event_producer,
                                                  event_declaration *declaration, GError **error);

/** Files a copy of the declaration under the id, prepares its event and queues the declaring. */
QANDOR_API void event_producer_int_declare(event_producer *event_producer,
                                           event_declaration *declaration, guint32 local_decl_id,
                                           event_producer_declared_callback declared_callback,
                                           producer_complete_callback notify_callback,
                                           gpointer user_data);

/** Takes the declaration back at once and queues the undeclaring. */
QANDOR_API gboolean event_producer_int_undeclare(event_producer *event_producer,
                                                 guint32 local_declare_id,
                                                 event_producer_undeclared_callback callback,
                                                 gpointer user_data);

/**
 * Checks the event and queues its sending, also when a check failed: then only the callback runs.
 * @copy is a copy of the event that is taken over.
 */
QANDOR_API gboolean event_producer_int_send_event(event_producer *event_producer, event *event,
                                                  struct event *copy,
                                                  event_producer_sent_callback callback,
                                                  gpointer user_data, GError **error);

/**
 * Reads keys, values and types up to a NULL key as a register list: three elements a key, the key
 * and the value as new texts and the type as by GUINT_TO_POINTER(). A type that is none of
 * value_type is fatal, as is a string that is NULL. Freed by
 * event_producer_int_free_register_list().
 */
QANDOR_API GList *event_producer_int_parse_register_valist(va_list arguments);

/** The same from a list, whose length must be a multiple of 3 (fatal) and which stays as it is. */
QANDOR_API GList *event_producer_int_convert_to_string_list(GList *triples);

/** Frees a register list with its texts; NULL is ignored. */
QANDOR_API void event_producer_int_free_register_list(GList *register_list);

/**
 * Loads the type and fills in a register list, which stays the caller's. *@declaration and *@params
 * have to be NULL (fatal). On success *@declaration is set, and *@params too when the type has a
 * key tagged "property-state": the pair of this key and the value given for it. Both are the
 * caller's.
 *
 * On failure both stay NULL and the error says why: code 12 when there is no such type, 13 when
 * several of its keys are tagged "property-state", 14 for a key that the type does not leave open
 * or that comes twice, 15 for a property whose open keys were not all given.
 */
QANDOR_API void event_producer_int_register_list(const char *type, GList *register_list,
                                                 event_declaration **declaration,
                                                 callback_params **params, GError **error);

G_END_DECLS
