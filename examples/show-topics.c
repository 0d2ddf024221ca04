/* SPDX-License-Identifier: LGPL-2.1-or-later */

/*
 * A query: prints the tree of topics that are declared just now, or, with --types, of those that
 * are installed.
 *
 *     cc show-topics.c -o show-topics $(pkg-config --cflags --libs qandor)
 *     ./show-topics
 *
 * Each topic is followed by its display name, its name space and its tags, and below it stand the
 * events that are declared there, with their open and fixed keys. A property is marked, and so is
 * the key that holds its state.
 */

#include <qandor/qandor.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
    GMainLoop *loop;
    event_query *query;
    gboolean types;
} application;

/* Two spaces for each level; the root, which is not printed, is at depth 1. */
static void indent(guint depth)
{
    printf("%*s", (int)(2 * (depth - 2)), "");
}

static void print_topic(const topic_node_data *info)
{
    printf("%s", info->topic);
    if (info->nice_name)
        printf(" \"%s\"", info->nice_name);
    if (info->name_space)
        printf(" {%s}", info->name_space);
    GHashTableIter iterator;
    gpointer tag;
    g_hash_table_iter_init(&iterator, info->tags);
    while (g_hash_table_iter_next(&iterator, &tag, NULL))
        printf(" #%s", (const char *)tag);
    printf("\n");
}

/* The topics are left out: they are what led here. */
static void print_event(const event *event)
{
    printf("- %s:", event_is_property(event) ? "property" : "event");
    for (guint i = 0; i < event_get_key_count(event); i++) {
        const gchar *key = event_get_key_at(event, i);
        if (g_str_has_prefix(key, "topic") && g_ascii_isdigit(key[5]))
            continue;
        const gchar *nice_name = event_get_key_nice_name(event, key);
        printf(" %s", key);
        if (event_has_tag_at(event, i, "property-state"))
            printf("*");
        if (event_has_value_at(event, i))
            printf("=%s", event_get_value_at(event, i));
        if (nice_name && *nice_name)
            printf(" (%s)", nice_name);
    }
    printf("\n");
}

/* The root, which has no data, is passed over. */
static gboolean print_node(GNode *node, gpointer data)
{
    (void)data;
    const topic_node_data *info = node->data;
    if (!info)
        return FALSE;
    indent(g_node_depth(node));
    print_topic(info);
    for (const GSList *link = info->events; link; link = link->next) {
        indent(g_node_depth(node) + 1);
        print_event(link->data);
    }
    return FALSE;
}

static gboolean quit(gpointer loop)
{
    g_main_loop_quit(loop);
    return G_SOURCE_REMOVE;
}

/* Asking waits for the main loop's thread, and so needs one of its own. */
static gpointer ask(gpointer data)
{
    application *app = data;
    GNode *tree = app->types ? event_query_get_declaration_type_tree(app->query)
                             : event_query_get_topic_tree(app->query);
    g_node_traverse(tree, G_PRE_ORDER, G_TRAVERSE_ALL, -1, print_node, NULL);
    event_query_free_topic_tree(tree);
    /* The query leaves the bus on the loop's thread; the loop is idle when that is done. */
    event_query_free(app->query);
    g_idle_add(quit, app->loop);
    return NULL;
}

int main(int count, char **words)
{
    application app = {.loop = g_main_loop_new(NULL, FALSE),
                       .query = event_query_new(),
                       .types = count > 1 && strcmp(words[1], "--types") == 0};
    GThread *asker = g_thread_new("asker", ask, &app);
    g_main_loop_run(app.loop);
    g_thread_join(asker);
    g_main_loop_unref(app.loop);
    return EXIT_SUCCESS;
}
