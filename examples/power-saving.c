/* SPDX-License-Identifier: LGPL-2.1-or-later */

/*
 * A producer that declares an installed type by its name: whether the device saves power, which is
 * a property. What its keys are called, mean and are shown as stands in the type's file, which
 * other programs share. SIGUSR1 toggles the state.
 *
 *     sudo install -D -m 644 power-saving.xml /etc/event_switch/declarations.d/power-saving.xml
 *     cc power-saving.c -o power-saving $(pkg-config --cflags --libs qandor)
 */

#include <qandor/qandor.h>

#include <glib-unix.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct {
    GMainLoop *loop;
    event_producer *producer;
    guint32 id;
    gboolean saving;
} application;

/*
 * A property is registered with values for all keys that its type leaves open: the state holds from
 * then on, without an event. Why it failed has been logged when there is no id.
 */
static guint32 register_power(event_producer *producer, gboolean saving)
{
    return event_producer_register(producer, "power-saving", "state", &saving, VALUE_TYPE_BOOL,
                                   "reason", "as at the start", VALUE_TYPE_STRING, NULL);
}

/* An event begins with what was registered; only the state itself is left open. */
static gboolean toggle(gpointer data)
{
    application *app = data;
    app->saving = !app->saving;
    event *event = event_producer_prepare_event(app->producer, app->id);
    event_set_value(event, "state", &app->saving);
    event_set_value(event, "reason", "somebody asked for it");
    GError *error = NULL;
    if (!event_producer_send_event(app->producer, event, &error))
        fprintf(stderr, "not sent: %s\n", error->message);
    g_clear_error(&error);
    event_free(event);
    return G_SOURCE_CONTINUE;
}

static void quit(event_producer *producer, gpointer data)
{
    (void)producer;
    g_main_loop_quit(data);
}

/* The loop has to go on until the producer has said farewell. */
static gboolean stop(gpointer data)
{
    application *app = data;
    event_producer_int_free(app->producer, quit, app->loop);
    return G_SOURCE_REMOVE;
}

int main(void)
{
    application app = {.loop = g_main_loop_new(NULL, FALSE),
                       .producer = event_producer_new("power-saving")};
    app.id = register_power(app.producer, app.saving);
    if (app.id == 0)
        g_idle_add(stop, &app);
    g_unix_signal_add(SIGUSR1, toggle, &app);
    g_unix_signal_add(SIGINT, stop, &app);
    g_unix_signal_add(SIGTERM, stop, &app);
    g_main_loop_run(app.loop);
    g_main_loop_unref(app.loop);
    return app.id == 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
