// SPDX-License-Identifier: LGPL-2.1-or-later

// A message of the bus as it travels: read from bytes, and written again with another sender. The
// simulated bus looks into headers alone; it reads and writes the bodies of its own methods only.
//
// The form is the D-Bus message format, little-endian.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qandor::simulation {

struct BusMessage {
    enum Type : std::uint8_t { Call = 1, Return = 2, Error = 3, Signal = 4 };
    static constexpr std::uint8_t no_reply_expected = 1;
    static constexpr std::uint8_t no_auto_start = 2;

    std::uint8_t type = Call;
    std::uint8_t flags = 0;
    std::uint32_t serial = 0;
    std::uint32_t reply_serial = 0;
    std::string path, interface, member, error_name, destination, sender, signature;
    std::string body;

    bool expects_reply() const { return type == Call && !(flags & no_reply_expected); }

    // How many bytes the message that begins here has; 0 when the bytes do not tell yet.
    static std::size_t size_of(std::string_view bytes);
    static BusMessage read(std::string_view bytes);
    std::string write() const;
};

// The arguments of a body, one after another.
class BodyReader {
public:
    explicit BodyReader(const std::string &body) : body_(body) {}
    std::uint32_t number();
    std::string text();
    bool at_end() const { return place_ >= body_.size(); }

private:
    std::string_view body_;
    std::size_t place_ = 0;
};

class BodyWriter {
public:
    BodyWriter &number(std::uint32_t number);
    BodyWriter &text(std::string_view text);
    // An array of dictionary entries from texts to variants that hold numbers.
    BodyWriter &numbers_by_name(const std::map<std::string, std::uint32_t> &entries);
    BodyWriter &texts(const std::vector<std::string> &texts);

    const std::string &body() const { return body_; }

private:
    void align(std::size_t boundary);

    std::string body_;
};

} // namespace qandor::simulation
