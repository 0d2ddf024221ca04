/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The Query object: asks the event switch what there is, over a connection of its own.
 *
 * Applications use event_query, which asks on the right thread.
 *
 * One recursive lock guards an instance and is held through every operation. All of them run on the
 * thread that iterates the default main context.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/eventdeclaration.h>

#include <glib-object.h>

G_BEGIN_DECLS

typedef struct _Query Query;
typedef struct _QueryClass QueryClass;

#define QANDOR_TYPE_QUERY (query_get_type())

QANDOR_API GType query_get_type(void) G_GNUC_CONST;

/** Returns a new instance without a bus; the last g_object_unref() disconnects it. */
QANDOR_API Query *query_new(void);

/**
 * Connects. A connection that fails is logged as a warning. From now on a question connects again
 * when there is no connection or the bus has hung up.
 */
QANDOR_API void query_init_dbus(Query *self);

/**
 * Asks the event switch for everything that is declared and waits for the answer, for at most 60 s.
 *
 * Returns a new GList of new event_declarations, which the caller frees with
 * g_list_free_full(list, (GDestroyNotify)event_declaration_free). NULL when nothing is declared,
 * and with a warning for an instance without a bus. A call that fails, because there is no event
 * switch or because it says no, ends the process.
 */
QANDOR_API GList *query_send_get_declarations(Query *self);

/**
 * Asks the event switch for the declarations of all installed types and waits for the answer, for
 * at most 60 s.
 *
 * Returns a new GList of new event_declarations, which the caller frees with
 * g_list_free_full(list, (GDestroyNotify)event_declaration_free). NULL when nothing is installed,
 * and with a warning when the call fails.
 */
QANDOR_API GList *query_send_get_declaration_types(Query *self);

G_END_DECLS
