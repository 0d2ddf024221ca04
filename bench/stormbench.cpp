// SPDX-License-Identifier: LGPL-2.1-or-later

// Everybody at once, as after a restart of the switch: many peers declare and subscribe again, each
// subscription to one declaration of the next peer. Says "ready" when it is connected, and, each
// time when the switch has come and everybody knows again what concerns them, "done" with the
// seconds that took.
//
//   stormbench PEERS DECLARATIONS SUBSCRIPTIONS [PEERS_OF_CONNECTION]     (of each peer)

#include <qandor/qandor.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A stock bus lets a user have 256 connections.
constexpr unsigned default_peers_of_connection = 5;

// What the switch has told the peers since it came.
struct Told {
    unsigned long complete = 0;
    unsigned long forwarded = 0;
    unsigned long notified = 0;
    bool operator==(const Told &) const = default;
};

std::string topic_of(unsigned peer, unsigned number)
{
    // Several users may run this program at once.
    static const std::string user = std::to_string(getuid());
    return user + "." + std::to_string(peer) + "." + std::to_string(number);
}

std::string take(GArray *bytes)
{
    std::string text(bytes->data, bytes->len);
    g_array_unref(bytes);
    return text;
}

std::string new_declaration(unsigned peer, unsigned number)
{
    event_declaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "topic1", topic_of(peer, number).c_str(),
                                    VALUE_TYPE_STRING);
    for (const char *key : {"state", "unit", "load", "count"})
        event_declaration_add_key(declaration, key, VALUE_TYPE_STRING);
    event_declaration_set_local_id(declaration, number + 1);
    std::string bytes = take(event_declaration_serialize(declaration));
    event_declaration_free(declaration);
    return bytes;
}

std::string new_expression(unsigned peer, unsigned number)
{
    subscribe_expression *expression = subscribe_expression_new();
    subscribe_expression_add_key_value(expression, "topic0", "Device");
    subscribe_expression_add_key_value(expression, "topic1", topic_of(peer, number).c_str());
    subscribe_expression_add_key_not_value(expression, "state", "off");
    std::string bytes = take(subscribe_expression_serialize(expression));
    subscribe_expression_free(expression);
    return bytes;
}

struct Peer {
    sd_bus *bus;
    std::string object;
    std::vector<std::string> declarations;
    std::vector<std::string> expressions;

    void speak() const
    {
        for (const std::string &bytes : declarations)
            com_vemo_Event_Switch_Producer_declare_async(bus, object.c_str(), "storm", data(bytes),
                                                         bytes.size(), heed, nullptr);
        guint32 token = 0;
        for (const std::string &bytes : expressions)
            com_vemo_Event_Switch_Consumer_subscribe_async(
                bus, object.c_str(), "storm", ++token, data(bytes), bytes.size(), heed, nullptr);
    }

private:
    static const guint8 *data(const std::string &bytes)
    {
        return reinterpret_cast<const guint8 *>(bytes.data());
    }
    static int heed(sd_bus_message *answer, void *, sd_bus_error *)
    {
        if (sd_bus_message_is_method_error(answer, nullptr)) {
            std::fprintf(stderr, "stormbench: %s\n", sd_bus_message_get_error(answer)->message);
            std::exit(EXIT_FAILURE);
        }
        return 0;
    }
};

class Storm {
public:
    Storm(unsigned peers, unsigned declarations, unsigned subscriptions,
          unsigned peers_of_connection)
        : expected_{static_cast<unsigned long>(peers) * declarations,
                    static_cast<unsigned long>(peers) * subscriptions,
                    static_cast<unsigned long>(peers) * subscriptions}
    {
        for (unsigned peer = 0; peer < peers; ++peer) {
            if (peer % peers_of_connection == 0)
                connect();
            peers_.push_back({connection_, "/storm/" + std::to_string(peer), {}, {}});
            for (unsigned i = 0; i < declarations; ++i)
                peers_.back().declarations.push_back(new_declaration(peer, i));
            for (unsigned i = 0; i < subscriptions; ++i)
                peers_.back().expressions.push_back(
                    new_expression((peer + 1) % peers, i % declarations));
        }
        watch_bus_driver(connection_, &watcher_);
    }

private:
    void connect()
    {
        GSource *source = nullptr;
        GError *error = nullptr;
        if (connect_to_bus_and_attach_events(&source, &connection_, &error) < 0) {
            std::fprintf(stderr, "stormbench: %s\n", error->message);
            std::exit(EXIT_FAILURE);
        }
        // A bus lets few connections be half made at a time.
        const char *name = nullptr;
        if (sd_bus_get_unique_name(connection_, &name) < 0)
            std::exit(EXIT_FAILURE);
        sd_bus_add_filter(connection_, nullptr, hear, this);
    }

    static void begin(gpointer self)
    {
        auto *storm = static_cast<Storm *>(self);
        storm->told_ = {};
        storm->began_at_ = Clock::now();
        for (const Peer &peer : storm->peers_)
            peer.speak();
    }

    static int hear(sd_bus_message *message, void *self, sd_bus_error *)
    {
        const char *member = sd_bus_message_get_member(message);
        if (!member || !sd_bus_message_is_method_call(message, nullptr, nullptr))
            return 0;
        auto *storm = static_cast<Storm *>(self);
        storm->count(member);
        return 1;
    }

    void count(const char *member)
    {
        told_.complete += std::strcmp(member, "DeclarationComplete") == 0 ? 1 : 0;
        told_.forwarded += std::strcmp(member, "Subscribe") == 0 ? 1 : 0;
        told_.notified += std::strcmp(member, "Notification") == 0 ? 1 : 0;
        if (told_ != expected_)
            return;
        std::chrono::duration<double> taken = Clock::now() - began_at_;
        std::printf("done %.3f\n", taken.count());
        std::fflush(stdout);
    }

    const Told expected_;
    Told told_;
    Clock::time_point began_at_;
    sd_bus *connection_ = nullptr;
    std::vector<Peer> peers_;
    bus_driver_watcher watcher_{begin, nullptr, this};
};

} // namespace

int main(int count, char **arguments)
{
    if (count < 4 || count > 5)
        return EXIT_FAILURE;
    auto number = [&](int i) { return static_cast<unsigned>(std::atoi(arguments[i])); };
    Storm storm(number(1), number(2), number(3),
                count > 4 ? number(4) : default_peers_of_connection);
    std::puts("ready");
    std::fflush(stdout);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
