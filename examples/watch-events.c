/* SPDX-License-Identifier: LGPL-2.1-or-later */

/*
 * A consumer: prints the events that satisfy an expression, and the declarations whose events can.
 *
 *     cc watch-events.c -o watch-events $(pkg-config --cflags --libs qandor)
 *     ./watch-events topic0=Device 'load!=0.000000' or '*=on'
 *
 * Conditions: key=value, key!=value, key (it is there), !key (it is not), *=value and *!=value (any
 * key, no key with this value). All keys have to agree; several values for one key are
 * alternatives, and "or" begins another group.
 */

#include <qandor/qandor.h>

#include <glib-unix.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
    GMainLoop *loop;
    event_consumer *consumer;
} application;

static gboolean add_value(subscribe_expression *expression, const char *key, const char *value,
                          gboolean negated)
{
    if (strcmp(key, "*") == 0)
        return negated ? subscribe_expression_add_not_value(expression, value)
                       : subscribe_expression_add_value(expression, value);
    return negated ? subscribe_expression_add_key_not_value(expression, key, value)
                   : subscribe_expression_add_key_value(expression, key, value);
}

static gboolean add_condition(subscribe_expression *expression, const char *condition)
{
    const char *sign = strchr(condition, '=');
    if (!sign && condition[0] == '!')
        return subscribe_expression_add_not_key(expression, condition + 1);
    if (!sign)
        return subscribe_expression_add_key(expression, condition);

    gboolean negated = sign > condition && sign[-1] == '!';
    gchar *key = g_strndup(condition, (gsize)(sign - condition) - (negated ? 1 : 0));
    gboolean added = add_value(expression, key, sign + 1, negated);
    g_free(key);
    return added;
}

static subscribe_expression *parse_expression(int count, char **words)
{
    subscribe_expression *expression = subscribe_expression_new();
    for (int i = 0; i < count; i++) {
        if (strcmp(words[i], "or") == 0)
            subscribe_expression_or(expression);
        else
            add_condition(expression, words[i]);
    }
    return expression;
}

/* The event belongs to this function. */
static void print_event(event *event, gpointer data)
{
    (void)data;
    printf("%s", event_is_property(event) ? "state" : "event");
    for (guint i = 0; i < event_get_key_count(event); i++)
        printf(" %s=%s", event_get_key_at(event, i), event_get_value_at(event, i));
    printf("\n");
    fflush(stdout);
    event_free(event);
}

/* So does the notification. */
static void print_notification(notification *notification, gpointer data)
{
    (void)data;
    const gchar *topic = notification_get_value(notification, "topic1");
    printf("%s %s\n", notification_is_type_deleted(notification) ? "gone" : "here",
           topic ? topic : "(no topic)");
    fflush(stdout);
    notification_free(notification);
}

static void quit(event_consumer *consumer, gpointer data)
{
    (void)consumer;
    g_main_loop_quit(data);
}

/* The loop has to go on until the consumer has said farewell. */
static gboolean stop(gpointer data)
{
    application *app = data;
    event_consumer_int_free(app->consumer, quit, app->loop);
    return G_SOURCE_REMOVE;
}

int main(int count, char **words)
{
    if (count < 2) {
        fprintf(stderr, "usage: watch-events CONDITION... [or CONDITION...]...\n");
        return EXIT_FAILURE;
    }
    application app = {.loop = g_main_loop_new(NULL, FALSE),
                       .consumer = event_consumer_new("watch-events")};
    subscribe_expression *expression = parse_expression(count - 1, words + 1);
    event_consumer_subscribe_full(app.consumer, expression, print_event, print_notification, NULL);
    subscribe_expression_free(expression);

    g_unix_signal_add(SIGINT, stop, &app);
    g_unix_signal_add(SIGTERM, stop, &app);
    g_main_loop_run(app.loop);
    g_main_loop_unref(app.loop);
    return EXIT_SUCCESS;
}
