/* SPDX-License-Identifier: LGPL-2.1-or-later */

/*
 * A lamp that is switched every second and a panel that shows it: a producer and a consumer that
 * never wait. Callbacks tell when a step is done.
 *
 *     cc async-light.c -o async-light $(pkg-config --cflags --libs qandor)
 */

#include <qandor/qandor.h>

#include <glib-unix.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct {
    GMainLoop *loop;
    event_producer *lamp;
    event_consumer *panel;
    guint32 light_id;
    guint timer;
    gboolean on;
} application;

/* The error, if there is one, belongs to this function. */
static void light_is_sent(guint32 id, event *event, gpointer data, GError *error)
{
    (void)id, (void)event, (void)data;
    if (error)
        fprintf(stderr, "not sent: %s\n", error->message);
    g_clear_error(&error);
}

/* The event is copied, so that it may be freed before it is sent. */
static gboolean switch_light(gpointer data)
{
    application *app = data;
    app->on = !app->on;
    event *event = async_producer_prepare_event(app->lamp, app->light_id);
    event_set_value(event, "light", &app->on);
    async_producer_send_event(app->lamp, event, light_is_sent, NULL);
    event_free(event);
    return G_SOURCE_CONTINUE;
}

/* From now on events can be prepared. A property's can be sent, too. */
static void light_is_declared(guint32 id, gpointer data)
{
    application *app = data;
    app->light_id = id;
    switch_light(app);
    app->timer = g_timeout_add_seconds(1, switch_light, app);
}

static void declare_light(application *app)
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Light", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "light", VALUE_TYPE_BOOL);
    event_declaration_set_property(declaration, "light", NULL, NULL);
    async_producer_declare(app->lamp, declaration, light_is_declared, NULL, app, NULL);
    event_declaration_free(declaration);
}

static void show_light(event *event, gpointer data)
{
    (void)data;
    gboolean on = FALSE;
    event_get_typed_value(event, "light", &on);
    printf("the light is %s\n", on ? "on" : "off");
    fflush(stdout);
    event_free(event);
}

/* The expression is not copied: it had to live until now. */
static void panel_has_subscribed(guint32 token, gpointer expression)
{
    (void)token;
    subscribe_expression_free(expression);
}

static void quit(event_producer *lamp, gpointer data)
{
    (void)lamp;
    g_main_loop_quit(data);
}

static void panel_is_gone(event_consumer *panel, gpointer data)
{
    (void)panel;
    application *app = data;
    async_producer_free(app->lamp, quit, app->loop);
}

static gboolean stop(gpointer data)
{
    application *app = data;
    g_source_remove(app->timer);
    async_consumer_free(app->panel, panel_is_gone, app);
    return G_SOURCE_REMOVE;
}

int main(void)
{
    application app = {.loop = g_main_loop_new(NULL, FALSE)};
    app.panel = async_consumer_new("panel", NULL, NULL);
    subscribe_expression *expression = subscribe_expression_new();
    subscribe_expression_add_key(expression, "light");
    async_consumer_subscribe(app.panel, expression, panel_has_subscribed, G_CALLBACK(show_light),
                             NULL, expression, SUBSCRIPTION_TYPE_NORMAL, NULL);
    app.lamp = async_producer_new("lamp", NULL, NULL, NULL);
    declare_light(&app);
    g_unix_signal_add(SIGINT, stop, &app);
    g_unix_signal_add(SIGTERM, stop, &app);
    g_main_loop_run(app.loop);
    g_main_loop_unref(app.loop);
    return EXIT_SUCCESS;
}
