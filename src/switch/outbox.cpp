// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/outbox.hpp"

#include "switch/log.hpp"

#include <algorithm>
#include <cstring>

namespace qandor {
namespace {

// After so many bytes a name is asked whether it has read them.
constexpr guint64 acknowledged_bytes = 64 << 10;
// What a message takes besides its body, about.
constexpr guint64 head_bytes = 256;

} // namespace

struct Outbox::Recipient {
    const std::string name;
    const guint32 uid;
    User &user;
    std::deque<Item> items{};
    std::unordered_map<guint32, std::size_t> causes{}; // of the items
    std::size_t replies = 0;                           // of the items
    guint64 waiting_bytes = 0;
    Unread unread{};
    Unread asked{}; // the part that the acknowledgement under way is about
    // When it has last shown that it reads, or had nothing to read; by the clock.
    gint64 progress = 0;
    bool is_lost = false;
    // In one of its user's lists while something waits for it.
    std::list<Recipient *> *list = nullptr;
    std::list<Recipient *>::iterator place{};
};

struct Outbox::User {
    std::list<Recipient *> ready{};   // in the order of their turns
    std::list<Recipient *> blocked{}; // until something of theirs, or of all, has been read
    Unread unread{};
    std::size_t names = 0;
    std::size_t items = 0;
    guint64 waiting_bytes = 0;
};

Outbox::Outbox(sd_bus *bus, WaitsForAnswer waits_for_answer, Clock clock)
    : bus_(bus), waits_for_answer_(std::move(waits_for_answer)), clock_(clock),
      acknowledgements_(
          bus,
          [this](const std::string &name) {
              if (Recipient *recipient = find(name))
                  recipient->asked = recipient->unread;
          },
          [this](const std::string &name) { acknowledge(name); }, clock),
      taken_(clock())
{
}

Outbox::~Outbox() = default;

Outbox::Recipient *Outbox::find(const std::string &name) const
{
    auto found = recipients_.find(name);
    return found == recipients_.end() ? nullptr : found->second.get();
}

void Outbox::know(const std::string &name, guint32 uid)
{
    if (recipients_.contains(name))
        return;
    User &user = users_[uid];
    ++user.names;
    recipients_.emplace(name, std::make_unique<Recipient>(Recipient{name, uid, user}));
}

void Outbox::forget(const std::string &name)
{
    auto node = recipients_.extract(name);
    if (!node)
        return;
    Recipient &gone = *node.mapped();
    std::deque<Item> items;
    unqueue_all(gone, items);
    windows_.remove(gone.unread);
    gone.user.unread -= gone.unread;
    if (--gone.user.names == 0)
        users_.erase(gone.uid);
    unblock_all();
    acknowledgements_.forget(name);
}

void Outbox::clear(const std::string &name)
{
    std::deque<Item> items;
    if (Recipient *recipient = find(name)) {
        unqueue_all(*recipient, items);
        recipient->is_lost = false;
    }
}

// The items are for the caller to destroy, when all is in order.
void Outbox::unqueue_all(Recipient &recipient, std::deque<Item> &items)
{
    waiting_ -= recipient.items.size();
    recipient.user.items -= recipient.items.size();
    recipient.user.waiting_bytes -= recipient.waiting_bytes;
    recipient.waiting_bytes = 0;
    recipient.causes.clear();
    recipient.replies = 0;
    items.swap(recipient.items);
    if (recipient.list)
        recipient.list->erase(recipient.place);
    recipient.list = nullptr;
}

// What waits of calls keeps records that may have gone from the books. Replies are small, or made
// when they go out.
guint64 Outbox::kept_bytes(const Item &item)
{
    return item.kind == Kind::Call ? item.bytes : 0;
}

// What sd-bus keeps is made already, so it gets one message at a time.
bool Outbox::bus_takes_more()
{
    guint64 queued = 0;
    sd_bus_get_n_queued_write(bus_, &queued);
    if (queued == 0)
        taken_ = clock_();
    return queued == 0;
}

bool Outbox::may_go(Recipient &recipient, Kind kind, guint64 bytes)
{
    bool is_waited_for = kind == Kind::Reply || recipient.replies > 0 ||
                         waits_for_answer_(recipient.name, recipient.uid);
    if (windows_.way_for(bytes, is_waited_for, recipient.unread, recipient.user.unread) !=
        Windows::Way::None)
        return true;
    if (recipient.unread.total() > 0)
        acknowledgements_.ask(recipient.name, recipient.uid);
    return false;
}

void Outbox::add(const std::string &name, Kind kind, guint64 bytes, Send send)
{
    Recipient *recipient = find(name);
    if (!recipient || recipient->is_lost)
        return;
    bytes += head_bytes;
    if (waiting_ == 0 && bus_takes_more() && may_go(*recipient, kind, bytes))
        this->send(*recipient, send);
    else
        queue(*recipient, {std::move(send), kind, bytes, cause_});
}

void Outbox::send(Recipient &recipient, const Send &send)
{
    gint64 sent = send();
    if (sent < 0) {
        lose(recipient, std::strerror(static_cast<int>(-sent)));
        return;
    }
    if (sent == 0)
        return;
    guint64 bytes = static_cast<guint64>(sent) + head_bytes;
    // A message that has become larger than it was announced goes the large way.
    Windows::Way way = windows_.way_for(bytes, true, recipient.unread, recipient.user.unread);
    Unread more = way == Windows::Way::Small ? Unread{bytes, 0} : Unread{0, bytes};
    if (recipient.unread.total() == 0)
        recipient.progress = clock_();
    recipient.unread += more;
    recipient.user.unread += more;
    windows_.add(more);
    if (more.large > 0 || recipient.unread.total() - recipient.asked.total() >= acknowledged_bytes)
        acknowledgements_.ask(recipient.name, recipient.uid);
}

void Outbox::queue(Recipient &recipient, Item item)
{
    ++waiting_;
    ++recipient.user.items;
    recipient.user.waiting_bytes += kept_bytes(item);
    recipient.waiting_bytes += kept_bytes(item);
    ++recipient.causes[item.cause];
    recipient.replies += item.kind == Kind::Reply;
    recipient.items.push_back(std::move(item));
    std::list<Recipient *> &ready = recipient.user.ready;
    if (!recipient.list)
        recipient.place = ready.insert(ready.end(), &recipient);
    recipient.list = recipient.list ? recipient.list : &ready;
    if (recipient.replies == 1)
        note_waiting(recipient.name);
    check_bounds(recipient);
}

// What stands before the answer may go now.
void Outbox::note_waiting(const std::string &name)
{
    Recipient *recipient = find(name);
    if (!recipient || recipient->list != &recipient->user.blocked)
        return;
    recipient->list = &recipient->user.ready;
    recipient->list->splice(recipient->list->end(), recipient->user.blocked, recipient->place);
}

void Outbox::check_bounds(Recipient &recipient)
{
    User &user = recipient.user;
    Recipient *most = &recipient;
    if (user.items > most_of_user || user.waiting_bytes > most_bytes_of_user) {
        for (const auto *list : {&user.ready, &user.blocked})
            for (Recipient *one : *list)
                if (one->waiting_bytes > most->waiting_bytes)
                    most = one;
    } else if (recipient.items.size() <= most_of_name &&
               (recipient.waiting_bytes <= most_bytes_of_name || recipient.items.size() == 1)) {
        return;
    }
    lose(*most, "it does not read what it is told");
}

void Outbox::lose(Recipient &recipient, const char *why)
{
    if (std::exchange(recipient.is_lost, true))
        return;
    log_line(LogLevel::Warning,
             "%s of user %u is dropped with all it has declared and subscribed: %s",
             recipient.name.c_str(), recipient.uid, why);
    lost_.push_back(recipient.name);
}

bool Outbox::is_stalled(const Recipient &recipient, gint64 usec) const
{
    return recipient.unread.total() > 0 && clock_() - recipient.progress > usec;
}

// Users wait for their own names, and long enough for one that reads late. Others wait for a part
// of what they have caused themselves.
bool Outbox::has_room(const std::string &name) const
{
    const Recipient *recipient = find(name);
    if (!recipient || recipient->is_lost || recipient->items.empty())
        return true;
    const User &user = recipient->user;
    bool is_own = recipient->uid == cause_;
    auto of_cause = recipient->causes.find(cause_);
    bool is_full =
        (of_cause != recipient->causes.end() && of_cause->second >= share_of_cause) ||
        (is_own && (recipient->waiting_bytes > most_bytes_of_name / 2 ||
                    user.items > most_of_user / 2 || user.waiting_bytes > most_bytes_of_user / 2));
    return !is_full || is_stalled(*recipient, is_own ? own_reading_usec : reading_usec);
}

bool Outbox::is_read(const std::string &name) const
{
    const Recipient *recipient = find(name);
    return !recipient || recipient->items.size() < most_unread;
}

Outbox::Item Outbox::take_first(Recipient &recipient)
{
    Item item = std::move(recipient.items.front());
    recipient.items.pop_front();
    --waiting_;
    --recipient.user.items;
    recipient.user.waiting_bytes -= kept_bytes(item);
    recipient.waiting_bytes -= kept_bytes(item);
    recipient.replies -= item.kind == Kind::Reply;
    auto of_cause = recipient.causes.find(item.cause);
    if (--of_cause->second == 0)
        recipient.causes.erase(of_cause);
    return item;
}

// The names of a user take turns.
bool Outbox::send_of(User &user)
{
    while (!user.ready.empty()) {
        Recipient &recipient = *user.ready.front();
        const Item &first = recipient.items.front();
        if (recipient.is_lost || !may_go(recipient, first.kind, first.bytes)) {
            user.blocked.splice(user.blocked.end(), user.ready, recipient.place);
            recipient.list = &user.blocked;
            continue;
        }
        Item item = take_first(recipient);
        if (recipient.items.empty()) {
            user.ready.erase(recipient.place);
            recipient.list = nullptr;
        } else {
            user.ready.splice(user.ready.end(), user.ready, recipient.place);
        }
        send(recipient, item.send);
        return true;
    }
    return false;
}

// The users take turns.
bool Outbox::send_next()
{
    if (waiting_ == 0 || !bus_takes_more())
        return false;
    auto at = users_.upper_bound(last_uid_);
    for (std::size_t left = users_.size(); left > 0; --left, ++at) {
        if (at == users_.end())
            at = users_.begin();
        last_uid_ = at->first;
        if (send_of(at->second))
            return true;
    }
    return false;
}

// What one has read may make room for the others.
void Outbox::unblock_all()
{
    for (auto &[uid, user] : users_) {
        for (Recipient *recipient : user.blocked)
            recipient->list = &user.ready;
        user.ready.splice(user.ready.end(), user.blocked);
    }
}

void Outbox::acknowledge(const std::string &name)
{
    Recipient *recipient = find(name);
    if (!recipient)
        return;
    Unread read = std::exchange(recipient->asked, {});
    recipient->progress = clock_();
    recipient->unread -= read;
    recipient->user.unread -= read;
    windows_.remove(read);
    unblock_all();
    if (recipient->unread.large > 0 || recipient->unread.total() >= acknowledged_bytes)
        acknowledgements_.ask(name, recipient->uid);
}

void Outbox::look_again()
{
    acknowledgements_.look_again();
    unblock_all();
    bool is_late = !bus_takes_more() && clock_() - taken_ > stuck_usec;
    // The second time in a row: the loop has had time to give the bus what it takes.
    is_stuck_ = is_late && was_stuck_;
    was_stuck_ = is_late;
}

} // namespace qandor
