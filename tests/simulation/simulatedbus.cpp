// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/simulatedbus.hpp"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qandor::simulation {
namespace {

constexpr const char *driver = "org.freedesktop.DBus";
constexpr const char *driver_path = "/org/freedesktop/DBus";
constexpr std::size_t most_unanswered = 128;
constexpr int socket_buffer = 1 << 20;

enum OwnName : std::uint32_t { PrimaryOwner = 1, Exists = 3, AlreadyOwner = 4 };
enum ReleasedName : std::uint32_t { Released = 1, NonExistent = 2, NotOwner = 3 };

} // namespace

SimulatedBus::~SimulatedBus()
{
    for (const auto &[name, connection] : connections_)
        close(connection->socket);
}

int SimulatedBus::connect(uid_t user)
{
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sockets) < 0)
        throw std::runtime_error("cannot make a socket pair");
    for (int socket : sockets)
        setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &socket_buffer, sizeof socket_buffer);
    std::string name = ":1." + std::to_string(++last_number_);
    auto made = std::make_unique<Connection>();
    made->client_socket = sockets[0];
    made->socket = sockets[1];
    made->user = user;
    made->name = name;
    connections_.emplace(name, std::move(made));
    return sockets[0];
}

std::string SimulatedBus::name_of(int socket) const
{
    // A socket's number may have come round: the latest connection has it.
    std::string name;
    std::uint64_t latest = 0;
    for (const auto &[its_name, connection] : connections_) {
        std::uint64_t number = std::stoull(its_name.substr(3));
        if (connection->client_socket == socket && number > latest) {
            latest = number;
            name = its_name;
        }
    }
    return name;
}

std::vector<std::string> SimulatedBus::names() const
{
    std::vector<std::string> names;
    for (const auto &[name, connection] : connections_)
        names.push_back(name);
    return names;
}

void SimulatedBus::stall(const std::string &name, Microseconds until)
{
    auto found = connections_.find(name);
    if (found != connections_.end())
        found->second->stalled_until = until;
}

void SimulatedBus::flood(const std::string &name, Microseconds until)
{
    auto found = connections_.find(name);
    if (found != connections_.end())
        found->second->flooded_until = until;
}

// Now and then something gets in, when something else has just been read.
bool SimulatedBus::is_full(const Connection &receiver)
{
    return receiver.flooded_until > virtual_clock::now() && !random_.one_in(4);
}

void SimulatedBus::thaw_all()
{
    for (const auto &[name, connection] : connections_)
        connection->stalled_until = connection->flooded_until = 0;
}

std::optional<Microseconds> SimulatedBus::next_thaw() const
{
    std::optional<Microseconds> next;
    for (const auto &[name, connection] : connections_)
        if (Microseconds thaws = connection->stalled_until; thaws > virtual_clock::now())
            next = std::min(next.value_or(thaws), thaws);
    return next;
}

std::size_t SimulatedBus::unanswered(const std::string &name) const
{
    return static_cast<std::size_t>(
        std::count_if(pending_.begin(), pending_.end(),
                      [&name](const Pending &pending) { return pending.caller == name; }));
}

// Reads all that has been written, so that nobody has to wait for the bus.
void SimulatedBus::receive()
{
    std::vector<pollfd> sockets;
    for (const auto &[name, connection] : connections_)
        sockets.push_back({connection->socket, POLLIN, 0});
    static const timespec no_time = {0, 0};
    if (ppoll(sockets.data(), sockets.size(), &no_time, nullptr) <= 0)
        return;
    std::vector<std::string> left;
    auto socket = sockets.begin();
    for (const auto &[name, connection] : connections_)
        if (socket++->revents != 0 && !read_from(*connection))
            left.push_back(name);
    for (const std::string &name : left)
        cut(name);
}

// False when the other side has closed.
bool SimulatedBus::read_from(Connection &connection)
{
    char buffer[1 << 16];
    ssize_t size;
    while ((size = recv(connection.socket, buffer, sizeof buffer, 0)) > 0)
        connection.input.append(buffer, static_cast<std::size_t>(size));
    bool has_closed = size == 0 || (errno != EAGAIN && errno != EINTR);
    if (!connection.authenticated)
        authenticate(connection);
    while (connection.authenticated) {
        std::size_t whole = BusMessage::size_of(connection.input);
        if (whole == 0)
            break;
        connection.incoming.push_back(BusMessage::read({connection.input.data(), whole}));
        connection.input.erase(0, whole);
    }
    return !has_closed || !connection.incoming.empty();
}

// sd-bus says all its lines at once, and waits for as many answers.
void SimulatedBus::authenticate(Connection &connection)
{
    constexpr std::string_view end = "BEGIN\r\n";
    std::size_t place = connection.input.find(end);
    if (place == std::string::npos)
        return;
    bool wants_files = connection.input.find("NEGOTIATE_UNIX_FD") < place;
    std::string lines = "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n";
    if (wants_files)
        lines += "ERROR\r\n";
    connection.input.erase(0, place + end.size());
    connection.outgoing.push_back(lines);
    connection.authenticated = true;
}

bool SimulatedBus::step()
{
    receive();
    // A connection that has something to be routed, or something to be delivered.
    struct Choice {
        Connection *connection;
        bool routes;
    };
    std::vector<Choice> choices;
    for (const auto &[name, connection] : connections_) {
        if (!connection->incoming.empty())
            choices.push_back({connection.get(), true});
        if (!connection->outgoing.empty() && connection->stalled_until <= virtual_clock::now())
            choices.push_back({connection.get(), false});
    }
    while (!choices.empty()) {
        std::size_t which = random_.below(choices.size());
        auto [connection, routes] = choices[which];
        if (routes) {
            route(*connection);
            return true;
        }
        if (deliver(*connection))
            return true;
        choices.erase(choices.begin() + static_cast<std::ptrdiff_t>(which));
    }
    return false;
}

bool SimulatedBus::deliver(Connection &receiver)
{
    std::string &first = receiver.outgoing.front();
    ssize_t size = ::send(receiver.socket, first.data(), first.size(), MSG_NOSIGNAL);
    if (size < 0)
        return false;
    first.erase(0, static_cast<std::size_t>(size));
    if (first.empty())
        receiver.outgoing.pop_front();
    return true;
}

void SimulatedBus::send(Connection &receiver, BusMessage message)
{
    if (message.sender == driver) {
        if (is_full(receiver))
            return;
        message.serial = ++receiver.last_serial;
    }
    message.destination = receiver.name;
    receiver.outgoing.push_back(message.write());
}

void SimulatedBus::route(Connection &sender)
{
    BusMessage message = std::move(sender.incoming.front());
    sender.incoming.pop_front();
    message.sender = sender.name;
    if (message.destination == driver)
        handle_own(sender, message);
    else if (message.destination.empty())
        send_to_matching(message);
    else
        forward(sender, std::move(message));
}

std::optional<std::string> SimulatedBus::resolve(const std::string &name) const
{
    auto owner = owners_.find(name);
    const std::string &unique = owner == owners_.end() ? name : owner->second;
    return connections_.contains(unique) ? std::optional(unique) : std::nullopt;
}

void SimulatedBus::forward(Connection &sender, BusMessage message)
{
    std::optional<std::string> receiver = resolve(message.destination);
    if (!receiver) {
        if (message.expects_reply())
            refuse(sender.name, message.serial,
                   message.flags & BusMessage::no_auto_start ? "NameHasNoOwner" : "ServiceUnknown");
        return;
    }
    if (message.type == BusMessage::Return || message.type == BusMessage::Error) {
        // Nobody gets an answer who has not asked.
        if (pending_.erase({*receiver, sender.name, message.reply_serial}) == 0)
            return;
        if (is_full(*connections_.at(*receiver)))
            return;
    } else if (message.expects_reply()) {
        if (unanswered(sender.name) >= most_unanswered || is_full(*connections_.at(*receiver))) {
            refuse(sender.name, message.serial, "LimitsExceeded");
            return;
        }
        pending_.insert({sender.name, *receiver, message.serial});
    } else if (is_full(*connections_.at(*receiver))) {
        return;
    }
    send(*connections_.at(*receiver), std::move(message));
}

void SimulatedBus::answer(Connection &caller, const BusMessage &call, const std::string &signature,
                          const std::string &body)
{
    if (!call.expects_reply())
        return;
    BusMessage message;
    message.type = BusMessage::Return;
    message.flags = BusMessage::no_reply_expected;
    message.sender = driver;
    message.reply_serial = call.serial;
    message.signature = signature;
    message.body = body;
    send(caller, std::move(message));
}

void SimulatedBus::refuse(const std::string &caller, std::uint32_t serial, const std::string &error)
{
    auto found = connections_.find(caller);
    if (found == connections_.end())
        return;
    BusMessage message;
    message.type = BusMessage::Error;
    message.flags = BusMessage::no_reply_expected;
    message.sender = driver;
    message.reply_serial = serial;
    message.error_name = std::string("org.freedesktop.DBus.Error.") + error;
    message.signature = "s";
    message.body = BodyWriter().text(error).body();
    send(*found->second, std::move(message));
}

void SimulatedBus::handle_own(Connection &caller, const BusMessage &call)
{
    BodyReader arguments(call.body);
    if (call.member == "Hello") {
        answer(caller, call, "s", BodyWriter().text(caller.name).body());
        owner_changed(caller.name, "", caller.name);
    } else if (call.member == "AddMatch") {
        caller.rules.push_back(parse_rule(arguments.text()));
        answer(caller, call, "", "");
    } else if (call.member == "RemoveMatch") {
        Rule rule = parse_rule(arguments.text());
        auto same = std::find_if(caller.rules.begin(), caller.rules.end(),
                                 [&](const Rule &one) { return one.wanted == rule.wanted; });
        if (same != caller.rules.end())
            caller.rules.erase(same);
        answer(caller, call, "", "");
    } else if (call.member == "RequestName") {
        std::string name = arguments.text();
        auto [owner, is_new] = owners_.try_emplace(name, caller.name);
        std::uint32_t result = is_new                         ? PrimaryOwner
                               : owner->second == caller.name ? AlreadyOwner
                                                              : Exists;
        answer(caller, call, "u", BodyWriter().number(result).body());
        if (is_new)
            owner_changed(name, "", caller.name);
    } else if (call.member == "ReleaseName") {
        std::string name = arguments.text();
        auto owner = owners_.find(name);
        std::uint32_t result = owner == owners_.end()         ? NonExistent
                               : owner->second == caller.name ? Released
                                                              : NotOwner;
        if (result == Released)
            owners_.erase(owner);
        answer(caller, call, "u", BodyWriter().number(result).body());
        if (result == Released)
            owner_changed(name, caller.name, "");
    } else if (call.member == "GetNameOwner") {
        std::optional<std::string> owner = resolve(arguments.text());
        if (owner)
            answer(caller, call, "s", BodyWriter().text(*owner).body());
        else
            refuse(caller.name, call.serial, "NameHasNoOwner");
    } else if (call.member == "GetConnectionCredentials" ||
               call.member == "GetConnectionUnixUser" ||
               call.member == "GetConnectionUnixProcessID") {
        std::optional<std::string> owner = resolve(arguments.text());
        if (!owner) {
            refuse(caller.name, call.serial, "NameHasNoOwner");
            return;
        }
        auto user = static_cast<std::uint32_t>(connections_.at(*owner)->user);
        auto process = static_cast<std::uint32_t>(getpid());
        if (call.member == "GetConnectionCredentials")
            answer(caller, call, "a{sv}",
                   BodyWriter()
                       .numbers_by_name({{"ProcessID", process}, {"UnixUserID", user}})
                       .body());
        else
            answer(caller, call, "u",
                   BodyWriter()
                       .number(call.member == "GetConnectionUnixUser" ? user : process)
                       .body());
    } else if (call.member == "ListNames") {
        std::vector<std::string> all = names();
        for (const auto &[name, owner] : owners_)
            all.push_back(name);
        answer(caller, call, "as", BodyWriter().texts(all).body());
    } else if (call.member == "GetId") {
        answer(caller, call, "s", BodyWriter().text("0123456789abcdef0123456789abcdef").body());
    } else if (call.member == "Ping") {
        answer(caller, call, "", "");
    } else if (call.expects_reply()) {
        refuse(caller.name, call.serial, "UnknownMethod");
    }
}

void SimulatedBus::owner_changed(const std::string &name, const std::string &before,
                                 const std::string &after)
{
    BusMessage signal;
    signal.type = BusMessage::Signal;
    signal.flags = BusMessage::no_reply_expected;
    signal.sender = driver;
    signal.path = driver_path;
    signal.interface = driver;
    signal.signature = "sss";
    signal.member = "NameOwnerChanged";
    signal.body = BodyWriter().text(name).text(before).text(after).body();
    send_to_matching(signal);
}

void SimulatedBus::forge_owner_change(const std::string &victim,
                                      const std::vector<std::string> &body)
{
    BodyWriter writer;
    for (const std::string &text : body)
        writer.text(text);
    BusMessage signal;
    signal.type = BusMessage::Signal;
    signal.flags = BusMessage::no_reply_expected;
    signal.serial = 1;
    signal.sender = ":1.999999";
    signal.path = driver_path;
    signal.interface = driver;
    signal.member = "NameOwnerChanged";
    signal.signature = std::string(body.size(), 's');
    signal.body = writer.body();
    auto found = connections_.find(victim);
    if (found != connections_.end())
        send(*found->second, std::move(signal));
}

SimulatedBus::Rule SimulatedBus::parse_rule(const std::string &text)
{
    Rule rule;
    std::size_t place = 0;
    while (place < text.size()) {
        std::size_t equals = text.find("='", place);
        std::size_t end = text.find('\'', equals + 2);
        if (equals == std::string::npos || end == std::string::npos)
            throw std::runtime_error("cannot read the match rule " + text);
        rule.wanted[text.substr(place, equals - place)] = text.substr(equals + 2, end - equals - 2);
        place = end + 2;
    }
    return rule;
}

bool SimulatedBus::matches(const Rule &rule, const BusMessage &signal) const
{
    std::vector<std::string> arguments;
    if (signal.signature == std::string(signal.signature.size(), 's')) {
        BodyReader reader(signal.body);
        for (std::size_t i = 0; i < signal.signature.size(); ++i)
            arguments.push_back(reader.text());
    }
    for (const auto &[key, value] : rule.wanted) {
        bool holds = true;
        if (key == "type")
            holds = value == "signal";
        else if (key == "sender")
            holds = signal.sender == value || resolve(value) == signal.sender;
        else if (key == "path")
            holds = signal.path == value;
        else if (key == "interface")
            holds = signal.interface == value;
        else if (key == "member")
            holds = signal.member == value;
        else if (key.starts_with("arg")) {
            std::size_t which = std::stoul(key.substr(3));
            holds = which < arguments.size() && arguments[which] == value;
        } else
            throw std::runtime_error("unknown key in a match rule: " + key);
        if (!holds)
            return false;
    }
    return true;
}

// Each connection gets it once, however many of its rules match.
void SimulatedBus::send_to_matching(const BusMessage &signal)
{
    for (const auto &[name, connection] : connections_)
        if (std::any_of(connection->rules.begin(), connection->rules.end(),
                        [&](const Rule &rule) { return matches(rule, signal); }))
            send(*connection, signal);
}

void SimulatedBus::cut(std::string name)
{
    auto found = connections_.find(name);
    if (found == connections_.end())
        return;
    close(found->second->socket);
    connections_.erase(found);
    leave(name);
}

void SimulatedBus::cut_all()
{
    while (!connections_.empty())
        cut(connections_.begin()->first);
}

// Those who wait for its answers are told, and everybody that its names have gone.
void SimulatedBus::leave(const std::string &name)
{
    for (auto pending = pending_.begin(); pending != pending_.end();) {
        if (pending->callee == name)
            refuse(pending->caller, pending->serial, "NoReply");
        bool is_its = pending->callee == name || pending->caller == name;
        pending = is_its ? pending_.erase(pending) : std::next(pending);
    }
    std::vector<std::string> lost;
    for (const auto &[well_known, owner] : owners_)
        if (owner == name)
            lost.push_back(well_known);
    for (const std::string &well_known : lost) {
        owners_.erase(well_known);
        owner_changed(well_known, name, "");
    }
    owner_changed(name, name, "");
}

} // namespace qandor::simulation
