// SPDX-License-Identifier: LGPL-2.1-or-later

// The Query type: a connection, and the two questions that are asked over it.

#include "bus/askingbus.hpp"
#include "bus/servercall.hpp"
#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <qandor/busconnection.h>
#include <qandor/query.h>
#include <qandor/serialize.h>
#include <qandor/switchbusclient.h>

#include <mutex>
#include <poll.h>

using namespace qandor;

namespace {

class QueryState {
public:
    QueryState() = default;
    QueryState(const QueryState &) = delete;
    QueryState &operator=(const QueryState &) = delete;

    // Connects for the first time.
    bool set_up();
    // The connection to ask over, a new one when the former has ended; NULL when there is none.
    sd_bus *working_bus();
    void disconnect();

    RecursiveMutex mutex;

private:
    bool connect();
    bool has_ended() const;
    void read_what_came();

    sd_bus *bus_ = nullptr;
    MainSourceOwner source_; // GLib drops its own reference when the event loop ends
    bool is_set_up_ = false;
};

bool QueryState::set_up()
{
    is_set_up_ = true;
    return connect();
}

bool QueryState::connect()
{
    GError *error = nullptr;
    GSource *attached = nullptr;
    if (connect_to_bus_and_attach_events(&attached, &bus_, &error) >= 0) {
        source_.reset(g_source_ref(attached));
        return true;
    }
    ErrorOwner owner(error);
    bus_ = nullptr; // it may have been there for a moment
    return false;
}

void QueryState::disconnect()
{
    if (bus_)
        disconnect_from_bus_and_detach_events(source_.get(), bus_);
    bus_ = nullptr;
    source_.reset();
}

// The bus may have hung up a moment ago, which sd-bus finds out when it reads.
bool QueryState::has_ended() const
{
    pollfd descriptor = {sd_bus_get_fd(bus_), 0, 0};
    return sd_bus_is_open(bus_) <= 0 || descriptor.fd < 0 ||
           (poll(&descriptor, 1, 0) > 0 && descriptor.revents != 0);
}

// Where the main context runs on another thread, that thread does it.
void QueryState::read_what_came()
{
    if (!g_main_context_acquire(nullptr))
        return;
    handle_queued(bus_);
    g_main_context_release(nullptr);
}

sd_bus *QueryState::working_bus()
{
    if (bus_)
        read_what_came();
    if (bus_ && has_ended())
        disconnect();
    if (!bus_ && is_set_up_)
        connect();
    return bus_;
}

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
        state->disconnect();
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
    if (!state.set_up())
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
    int r = com_vemo_Event_Switch_Query_get_all_declarations(self->state->working_bus(),
                                                             error.get(), &data, &length);
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
    int r = com_vemo_Event_Switch_Query_get_declaration_types(self->state->working_bus(),
                                                              error.get(), &reply);
    if (r < 0) {
        log_warning("Could not get event declaration types: %s", reason(error));
        return nullptr;
    }
    BusMessageOwner owner(reply);
    GArray bytes = read_bytes(reply);
    return read_declarations(bytes);
}
