// SPDX-License-Identifier: LGPL-2.1-or-later

// What is to be sent, in a queue for each bus name, and how much of what was sent has not been
// read.
//
//     user 1000   :1.5  [#### sent, not read | waits waits waits ]   window of :1.5 full: it waits
//                 :1.7  [## sent, not read   |                   ]   goes out at once
//     user 1001   :1.9  [# sent, not read    | waits             ]   its turn comes after user
//     1000's
//
// A bus keeps what a peer has not read, charges it to the sender, and reads nothing more from a
// sender that has too much there. So the switch itself bounds what is on the way (see windows.hpp),
// and what is beyond waits here. That a peer has read is seen by an acknowledgement.
//
// - Everything to one name goes through its queue, replies too: its order is kept.
// - Users are served in turns, and the names of a user in turns.
// - What waits is small: it is made when it goes out.
// - What waits is bounded for each name and each user. A peer beyond that is lost: see take_lost().
#pragma once

#include "switch/acknowledgements.hpp"
#include "switch/windows.hpp"

#include <systemd/sd-bus.h>

#include <glib.h>

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qandor {

class Outbox {
public:
    // Makes a message and sends it. Returns how many bytes it has, or a negative errno.
    using Send = std::function<gint64()>;

    // Whether a name waits for an answer that is still to be made.
    using WaitsForAnswer = std::function<bool(const std::string &name, guint32 uid)>;

    // Microseconds of a clock that never goes back.
    using Clock = Acknowledgements::Clock;

    Outbox(sd_bus *bus, WaitsForAnswer waits_for_answer, Clock clock = g_get_monotonic_time);
    Outbox(const Outbox &) = delete;
    Outbox &operator=(const Outbox &) = delete;
    ~Outbox();

    // A name that may be sent to, until it leaves the bus.
    void know(const std::string &name, guint32 uid);
    void forget(const std::string &name);
    // Throws away what waits for the name. What it has not read is remembered.
    void clear(const std::string &name);

    enum class Kind { Call, Reply };

    // Sends about so many bytes to the name, at once or in its turn. Nothing for unknown names.
    void add(const std::string &name, Kind kind, guint64 bytes, Send send);
    // The name has begun to wait for an answer.
    void note_waiting(const std::string &name);
    // Whether the present cause may add to what waits for the name. A user who makes the switch say
    // much waits for those who are told, as long as they read.
    bool has_room(const std::string &name) const;
    // Whether little waits for the name: it reads what it is told.
    bool is_read(const std::string &name) const;

    // Sends one message; false when none may go out, or the bus does not take it.
    bool send_next();
    bool is_empty() const { return waiting_ == 0; }
    // Whether something waits for the bus alone. More work would only make more wait.
    bool is_congested() { return waiting_ > 0 && !bus_takes_more(); }

    // The names that read nothing, or cannot be reached. The caller forgets them like names that
    // have left.
    std::vector<std::string> take_lost() { return std::exchange(lost_, {}); }

    // To be called about once a second while something waits.
    void look_again();
    // Whether the bus has taken nothing for long.
    bool is_stuck() const { return is_stuck_; }

    // What is added while this lives is caused by the user.
    class Cause {
    public:
        Cause(Outbox &outbox, guint32 uid)
            : outbox_(outbox), before_(std::exchange(outbox.cause_, uid))
        {
        }
        Cause(const Cause &) = delete;
        Cause &operator=(const Cause &) = delete;
        ~Cause() { outbox_.cause_ = before_; }

    private:
        Outbox &outbox_;
        guint32 before_;
    };
    void set_cause(guint32 uid) { cause_ = uid; }

    // After so long, and two looks, a bus that takes nothing counts as stuck.
    static constexpr gint64 stuck_usec = 30 * G_USEC_PER_SEC;
    // What may wait.
    static constexpr std::size_t most_of_name = 16384;
    static constexpr std::size_t most_of_user = 65536;
    static constexpr guint64 most_bytes_of_name = 16 << 20;
    static constexpr guint64 most_bytes_of_user = 32 << 20;
    // Caused by one user for one name, beyond which the cause waits while the name reads.
    static constexpr std::size_t share_of_cause = 1024;
    // A name that has shown no progress for so long does not read: nobody waits for it.
    static constexpr gint64 reading_usec = 5 * G_USEC_PER_SEC;
    // The same for what its own user causes.
    static constexpr gint64 own_reading_usec = 30 * G_USEC_PER_SEC;
    // A name whose calls may be handled has fewer than this waiting.
    static constexpr std::size_t most_unread = 64;

private:
    struct User;
    struct Recipient;
    struct Item {
        Send send;
        Kind kind;
        guint64 bytes;
        guint32 cause;
    };

    static guint64 kept_bytes(const Item &item);

    Recipient *find(const std::string &name) const;
    User &user_of(guint32 uid);
    bool bus_takes_more();
    bool is_stalled(const Recipient &recipient, gint64 usec) const;
    bool may_go(Recipient &recipient, Kind kind, guint64 bytes);
    Item take_first(Recipient &recipient);
    void send(Recipient &recipient, const Send &send);
    void queue(Recipient &recipient, Item item);
    void check_bounds(Recipient &recipient);
    void lose(Recipient &recipient, const char *why);
    void unqueue_all(Recipient &recipient, std::deque<Item> &items);
    bool send_of(User &user);
    void acknowledge(const std::string &name);
    void unblock_all();

    sd_bus *bus_;
    WaitsForAnswer waits_for_answer_;
    const Clock clock_;
    Windows windows_;
    Acknowledgements acknowledgements_;
    std::unordered_map<std::string, std::unique_ptr<Recipient>> recipients_;
    std::map<guint32, User> users_;
    std::vector<std::string> lost_;
    std::size_t waiting_ = 0;     // items, of all
    guint32 last_uid_ = 0;        // whose turn it was
    guint32 cause_ = G_MAXUINT32; // nobody
    gint64 taken_;                // when the bus took all it was given, by the clock
    bool was_stuck_ = false;
    bool is_stuck_ = false;
};

} // namespace qandor
