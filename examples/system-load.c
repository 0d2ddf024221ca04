/* SPDX-License-Identifier: LGPL-2.1-or-later */

/*
 * A producer: publishes what this machine does, once a second, and whether it saves power, which is
 * a property: a state that late subscribers are told at once. SIGUSR1 toggles it.
 *
 *     cc system-load.c -o system-load $(pkg-config --cflags --libs qandor)
 */

#include <qandor/qandor.h>

#include <glib-unix.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct {
    GMainLoop *loop;
    event_producer *producer;
    guint32 load_id;
    guint32 power_id;
    gboolean saving;
} application;

static gdouble read_load(void)
{
    gdouble load = 0;
    FILE *file = fopen("/proc/loadavg", "r");
    if (file) {
        if (fscanf(file, "%lf", &load) != 1)
            load = 0;
        fclose(file);
    }
    return load;
}

static gint read_available_megabytes(void)
{
    char line[128];
    long kilobytes = 0;
    FILE *file = fopen("/proc/meminfo", "r");
    while (file && fgets(line, sizeof line, file))
        if (sscanf(line, "MemAvailable: %ld", &kilobytes) == 1)
            break;
    if (file)
        fclose(file);
    return (gint)(kilobytes / 1024);
}

/* An event type: what is always the same has a value here, what changes is filled in by events. */
static guint32 declare_load(event_producer *producer)
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "topic1", "Load", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "load", VALUE_TYPE_DOUBLE);
    event_declaration_add_key(declaration, "available", VALUE_TYPE_INT);
    event_declaration_set_nice_names(declaration, "available", "Available memory in MiB", NULL);
    guint32 id = event_producer_declare(producer, declaration);
    event_declaration_free(declaration);
    return id;
}

/* A property: the key that is named here holds its state. */
static guint32 declare_power(event_producer *producer)
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "topic1", "Power", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "topic2", "Saving", VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "state", VALUE_TYPE_STRING);
    event_declaration_set_property(declaration, "state", NULL, NULL);
    guint32 id = event_producer_declare(producer, declaration);
    event_declaration_free(declaration);
    return id;
}

static void send_power(application *app)
{
    event *event = event_producer_prepare_event(app->producer, app->power_id);
    event_set_value(event, "state", app->saving ? "on" : "off");
    event_producer_send_event(app->producer, event, NULL);
    event_free(event);
    printf("power saving is %s\n", app->saving ? "on" : "off");
    fflush(stdout);
}

/* Events need an event switch that knows the declaration: until there is one, try again later. */
static gboolean send_load(gpointer data)
{
    application *app = data;
    if (!event_producer_declaration_complete(app->producer, app->load_id))
        return G_SOURCE_CONTINUE;
    gdouble load = read_load();
    gint available = read_available_megabytes();
    event *event = event_producer_prepare_event(app->producer, app->load_id);
    event_set_value(event, "load", &load);
    event_set_value(event, "available", &available);
    GError *error = NULL;
    if (!event_producer_send_event(app->producer, event, &error))
        fprintf(stderr, "not sent: %s\n", error->message);
    g_clear_error(&error);
    event_free(event);
    return G_SOURCE_CONTINUE;
}

static gboolean toggle_power(gpointer data)
{
    application *app = data;
    app->saving = !app->saving;
    send_power(app);
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
                       .producer = event_producer_new("system-load")};
    app.load_id = declare_load(app.producer);
    app.power_id = declare_power(app.producer);
    send_power(&app);

    guint timer = g_timeout_add_seconds(1, send_load, &app);
    g_unix_signal_add(SIGUSR1, toggle_power, &app);
    g_unix_signal_add(SIGINT, stop, &app);
    g_unix_signal_add(SIGTERM, stop, &app);
    g_main_loop_run(app.loop);
    g_source_remove(timer);
    g_main_loop_unref(app.loop);
    return EXIT_SUCCESS;
}
