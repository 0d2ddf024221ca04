// SPDX-License-Identifier: LGPL-2.1-or-later

// Who is behind a name on the bus. The bus is asked at the name's first call, without waiting:
// calls of the name are held meanwhile, in order. The name is forgotten when it leaves.
//
// dbus-daemon drops its own answers while too much waits for the switch, so it is asked again.
#pragma once

#include "platform/owners.hpp"

#include <systemd/sd-bus.h>

#include <glib.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace qandor {

struct Sender {
    guint32 uid;
    guint32 pid; // 0 when the bus does not tell
};

class Senders {
public:
    // Takes a call over, with its user; nobody_known for one whose user the bus does not tell.
    using Take = std::function<void(sd_bus_message *call, guint32 uid)>;

    static constexpr guint32 nobody_known = G_MAXUINT32;
    // Calls held for one name; calls without arguments are held beyond that, because their callers
    // rely on an answer and the bus bounds them.
    static constexpr std::size_t most_held_calls = 128;
    static constexpr std::size_t most_held_bytes = 4 << 20;
    // Of all names together.
    static constexpr std::size_t most_held_bytes_of_all = 32 << 20;

    Senders(sd_bus *bus, Take take) : bus_(bus), take_(std::move(take)) {}
    Senders(const Senders &) = delete;
    Senders &operator=(const Senders &) = delete;

    // Hands the call on as soon as its sender is known. Calls of one name keep their order.
    void receive(sd_bus_message *call);
    // Nothing for a name that has not called, or whose user the bus does not tell.
    std::optional<Sender> find_known(const std::string &name) const;
    void forget(const std::string &name);
    // Every name that has called and has not been forgotten.
    std::vector<std::string> names() const;

    // To be called about once a second while calls are held.
    void look_again();
    bool has_held() const { return held_bytes_ > 0; }

    // How long the bus has to answer before it is asked again.
    static constexpr gint64 patience_usec = 2 * G_USEC_PER_SEC;

private:
    struct Name {
        Name(Senders &owner, const std::string &name) : owner(owner), name(name) {}

        Senders &owner;
        const std::string name;
        bool is_known = false; // the bus has answered
        std::optional<Sender> sender;
        std::deque<BusMessageOwner> held;
        std::size_t held_bytes = 0;
        BusSlotOwner asking;
        gint64 ask_again_at = 0; // monotonic
    };

    static int receive_credentials(sd_bus_message *reply, void *name, sd_bus_error *);

    void ask(Name &name);
    void hold(Name &name, sd_bus_message *call);
    void hand_on(Name &name);

    sd_bus *bus_;
    Take take_;
    std::unordered_map<std::string, Name> names_;
    std::size_t held_bytes_ = 0; // of all names
};

// What an answer to GetConnectionCredentials says; nothing without a user id. The process id is
// missing when the process lives in another namespace.
std::optional<Sender> sender_from(sd_bus_message *credentials);

// What a call takes in memory, about.
std::size_t size_of(sd_bus_message *call);
// Whether the call has no arguments.
bool only_asks(sd_bus_message *call);

} // namespace qandor
