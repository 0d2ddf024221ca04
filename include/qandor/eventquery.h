/* SPDX-License-Identifier: LGPL-2.1-or-later */

/**
 * The event query: tells what events there are, as a list of declarations or as a tree of topics.
 *
 * All functions may be called from any thread, but those that ask wait, for at most about 60 s, for
 * the thread that iterates the default main context: another thread than the caller's has to
 * iterate it. Within an iteration of that context, as in any callback, they are a critical, and
 * what they return is as if nothing were declared. Between two iterations of a hand-written loop
 * they wait for ever unless another thread iterates the context, which cannot be known here. What
 * they return belongs to the caller, and nothing else refers to it.
 *
 * Asking for what is declared wants an event switch on the bus: without one it ends the process.
 * Asking for the types does not.
 */
#pragma once

#include <qandor/api.h>
#include <qandor/eventdeclaration.h>

#include <glib.h>

G_BEGIN_DECLS

typedef struct event_query event_query;

/**
 * What a node of a tree of topics has as its data, the root aside: the root has none. It belongs to
 * the tree and is meant to be read.
 *
 * A node stands for one value of a key "topic0", "topic1" and so on, at the depth that the key
 * says. One topic may have several nodes side by side, with different name spaces.
 */
typedef struct topic_node_data {
    /** The name space of the key that made the node, or NULL for none. */
    gchar *name_space;
    /** The topic, never NULL. */
    gchar *topic;
    /** The display name of the first key that had one, or NULL. */
    gchar *nice_name;
    /** An event for each declaration that ends here, with open values; the last declared first. */
    GSList *events;
    /** The tags of all keys that led here, each with the value "true"; never NULL. */
    GHashTable *tags;
} topic_node_data;

/**
 * Returns a new handle at once; it connects later. A connection that fails is logged as a warning.
 * While there is none nothing is known; each question tries to connect again, also after the bus
 * has hung up.
 */
QANDOR_API event_query *event_query_new(void);

/**
 * Frees the handle when all that was asked before has been answered. The main context has to go on
 * for that; the caller does not wait. NULL is ignored.
 */
QANDOR_API void event_query_free(event_query *event_query);

/**
 * Returns everything that producers have declared just now, as a new GList of new
 * event_declarations, which the caller frees with
 * g_list_free_full(list, (GDestroyNotify)event_declaration_free). NULL when nothing is declared,
 * with a warning without a bus, and with a critical for a NULL handle.
 *
 * Waits. An event switch that is not there, or that answers with an error, ends the process.
 */
QANDOR_API GList *event_query_get_declarations(event_query *event_query);

/**
 * Returns the declarations of all types that are installed on the device, as a new GList of new
 * event_declarations, which the caller frees with
 * g_list_free_full(list, (GDestroyNotify)event_declaration_free). NULL when nothing is installed,
 * with a warning when the event switch cannot be asked, and with a critical for a NULL handle.
 *
 * Waits.
 */
QANDOR_API GList *event_query_get_declaration_types(event_query *event_query);

/**
 * Returns what event_query_get_declarations() does, as a new tree: a root without data, with a
 * topic_node_data in every other node. Children stand in the order in which their topics first
 * came. Internal declarations are left out, as are, with a warning, external ones without a
 * "topic0". When nothing is known there is a bare root.
 *
 * Waits, and fails, as event_query_get_declarations() does. The caller frees the tree with
 * event_query_free_topic_tree().
 */
QANDOR_API GNode *event_query_get_topic_tree(event_query *event_query);

/**
 * Returns what event_query_get_declaration_types() does, as a tree such as that of
 * event_query_get_topic_tree().
 *
 * Waits, and fails, as event_query_get_declaration_types() does. The caller frees the tree with
 * event_query_free_declaration_tree().
 */
QANDOR_API GNode *event_query_get_declaration_type_tree(event_query *event_query);

/** Frees a tree of topics with its records and events. Any thread may. NULL is fatal. */
QANDOR_API void event_query_free_topic_tree(GNode *head);

/** Frees a tree of declaration types with its records and events. Any thread may. NULL is fatal. */
QANDOR_API void event_query_free_declaration_tree(GNode *head);

G_END_DECLS
