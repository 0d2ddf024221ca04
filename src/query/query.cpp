// SPDX-License-Identifier: LGPL-2.1-or-later

// The Query type: a connection, and the two questions that are asked over it.

#include "bus/servercall.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <qandor/busconnection.h>
#include <qandor/query.h>
#include <qandor/serialize.h>
#include <qandor/switchbusclient.h>

#include <mutex>

using namespace qandor;

namespace {

struct QueryState {
    RecursiveMutex mutex;
    sd_bus *bus = nullptr;
    GSource *source = nullptr;
};

} // namespace

struct _Query {
    GObject parent_instance;
    QueryState *state;
};

struct _QueryClass {
    GObjectClass parent_class;
};

G_DEFINE_TYPE(Query, query, G_TYPE_OBJECT)

static void query_init(Query *self)
{
    self->state = new QueryState();
}

static void query_finalize(GObject *object)
{
    QueryState *state = reinterpret_cast<Query *>(object)->state;
    {
        std::lock_guard lock(state->mutex);
        if (state->bus)
            disconnect_from_bus_and_detach_events(state->source, state->bus);
    }
    delete state;
    G_OBJECT_CLASS(query_parent_class)->finalize(object);
}

static void query_class_init(QueryClass *query_class)
{
    G_OBJECT_CLASS(query_class)->finalize = query_finalize;
}

Query *query_new(void)
{
    return static_cast<Query *>(g_object_new(QANDOR_TYPE_QUERY, nullptr));
}

void query_init_dbus(Query *self)
{
    RETURN_IF_FAIL(self != NULL);
    QueryState &state = *self->state;
    std::lock_guard lock(state.mutex);
    GError *error = nullptr;
    if (connect_to_bus_and_attach_events(&state.source, &state.bus, &error) >= 0)
        return;
    ErrorOwner owner(error);
    state.bus = nullptr; // it may have been there for a moment
    log_warning("Failed to connect to the bus for Query object");
}

namespace {

// What the bus says of a failure, which is nothing when there was no bus to ask.
const char *reason(const BusError &error)
{
    return error.message() ? error.message() : "";
}

GList *read_declarations(GArray &bytes)
{
    guint index = 0;
    return deserialize_glist(&bytes, &index, [](GArray *array, guint *index) -> gpointer {
        return event_declaration_deserialize_internal(array, index);
    });
}

} // namespace

GList *query_send_get_declarations(Query *self)
{
    RETURN_VALUE_IF_FAIL(self != NULL, nullptr);
    std::lock_guard lock(self->state->mutex);
    BusError error;
    guint8 *data = nullptr;
    gsize length = 0;
    int r = com_vemo_Event_Switch_Query_get_all_declarations(self->state->bus, error.get(), &data,
                                                             &length);
    if (r < 0) {
        log_warning("Could not get event declarations: %s", reason(error));
        return nullptr;
    }
    BytesOwner owner(data);
    GArray bytes = {reinterpret_cast<gchar *>(data), static_cast<guint>(length)};
    return read_declarations(bytes);
}

GList *query_send_get_declaration_types(Query *self)
{
    RETURN_VALUE_IF_FAIL(self != NULL, nullptr);
    std::lock_guard lock(self->state->mutex);
    BusError error;
    sd_bus_message *reply = nullptr;
    int r =
        com_vemo_Event_Switch_Query_get_declaration_types(self->state->bus, error.get(), &reply);
    if (r < 0) {
        log_warning("Could not get event declaration types: %s", reason(error));
        return nullptr;
    }
    BusMessageOwner owner(reply);
    GArray bytes = read_bytes(reply);
    return read_declarations(bytes);
}
