// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/monitor.hpp"

namespace qandor::cli {
namespace {

// Calls the method and reads each row of its answer, whose members have the types.
template <class Row, class Read>
std::vector<Row> read_rows(const SwitchBus &bus, const char *member, const char *types, Read read)
{
    Message reply = bus.call(monitor_interface, member);
    std::string row_types = std::string("(") + types + ")";
    std::vector<Row> rows;
    int r = sd_bus_message_enter_container(reply.get(), 'a', row_types.c_str());
    while (r > 0 && (r = sd_bus_message_enter_container(reply.get(), 'r', types)) > 0) {
        Row &row = rows.emplace_back();
        r = read(reply.get(), row);
        if (r >= 0)
            r = sd_bus_message_exit_container(reply.get());
    }
    if (r < 0)
        throw Failure(EX_UNAVAILABLE,
                      std::string("The switch answers ") + member + " in another form",
                      "The switch is another version than this tool.");
    return rows;
}

int read_ids(sd_bus_message *reply, std::vector<guint32> &ids)
{
    int r = sd_bus_message_enter_container(reply, 'a', "u");
    guint32 id = 0;
    while (r >= 0 && (r = sd_bus_message_read(reply, "u", &id)) > 0)
        ids.push_back(id);
    return r < 0 ? r : sd_bus_message_exit_container(reply);
}

int read_peer(sd_bus_message *reply, MonitoredPeer &peer)
{
    const char *bus_name = "", *object = "", *name = "";
    int r = sd_bus_message_read(reply, "sssuu", &bus_name, &object, &name, &peer.pid, &peer.uid);
    peer.bus_name = bus_name;
    peer.object = object;
    peer.name = name;
    return r;
}

int read_subscription(sd_bus_message *reply, MonitoredSubscription &row)
{
    const char *bus_name = "", *object = "", *expression = "";
    int clandestine = 0;
    int r = sd_bus_message_read(reply, "ussubs", &row.id, &bus_name, &object, &row.token,
                                &clandestine, &expression);
    row.bus_name = bus_name;
    row.object = object;
    row.clandestine = clandestine != 0;
    row.expression = expression;
    return r < 0 ? r : read_ids(reply, row.declarations);
}

} // namespace

std::vector<MonitoredPeer> list_producers(const SwitchBus &bus)
{
    return read_rows<MonitoredPeer>(bus, "ListProducers", "sssuuuau",
                                    [](sd_bus_message *reply, MonitoredPeer &peer) {
                                        int r = read_peer(reply, peer);
                                        if (r >= 0)
                                            r = sd_bus_message_read(reply, "u", &peer.producer_id);
                                        return r < 0 ? r : read_ids(reply, peer.ids);
                                    });
}

std::vector<MonitoredPeer> list_consumers(const SwitchBus &bus)
{
    return read_rows<MonitoredPeer>(bus, "ListConsumers", "sssuuau",
                                    [](sd_bus_message *reply, MonitoredPeer &peer) {
                                        int r = read_peer(reply, peer);
                                        return r < 0 ? r : read_ids(reply, peer.ids);
                                    });
}

std::vector<MonitoredSubscription> list_subscriptions(const SwitchBus &bus)
{
    return read_rows<MonitoredSubscription>(bus, "ListSubscriptions", "ussubsau",
                                            read_subscription);
}

std::vector<MonitoredLimit> list_limits(const SwitchBus &bus)
{
    return read_rows<MonitoredLimit>(
        bus, "ListLimits", "ustt", [](sd_bus_message *reply, MonitoredLimit &row) {
            const char *name = "";
            int r = sd_bus_message_read(reply, "ustt", &row.uid, &name, &row.used, &row.limit);
            row.name = name;
            return r;
        });
}

} // namespace qandor::cli
