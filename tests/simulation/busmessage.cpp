// SPDX-License-Identifier: LGPL-2.1-or-later

#include "simulation/busmessage.hpp"

#include <cstring>
#include <stdexcept>

namespace qandor::simulation {
namespace {

enum Field : std::uint8_t {
    Path = 1,
    Interface,
    Member,
    ErrorName,
    ReplySerial,
    Destination,
    Sender,
    Signature,
    UnixFds
};

constexpr std::size_t fixed_header = 16; // up to the fields, their size included

std::size_t aligned(std::size_t place, std::size_t boundary)
{
    return (place + boundary - 1) / boundary * boundary;
}

std::uint32_t number_at(std::string_view bytes, std::size_t place)
{
    std::uint32_t number = 0;
    if (place + sizeof number > bytes.size())
        throw std::runtime_error("a message ends too early");
    std::memcpy(&number, bytes.data() + place, sizeof number);
    return number;
}

void append_number(std::string &bytes, std::uint32_t number)
{
    bytes.append(reinterpret_cast<const char *>(&number), sizeof number);
}

struct TextField {
    Field field;
    char type;
    std::string BusMessage::*text;
};
constexpr TextField text_fields[] = {
    {Path, 'o', &BusMessage::path},
    {Interface, 's', &BusMessage::interface},
    {Member, 's', &BusMessage::member},
    {ErrorName, 's', &BusMessage::error_name},
    {Destination, 's', &BusMessage::destination},
    {Sender, 's', &BusMessage::sender},
    {Signature, 'g', &BusMessage::signature},
};

// Reads the header field that begins at the place, and returns where the next one begins.
std::size_t read_field(BusMessage &message, std::string_view bytes, std::size_t place)
{
    auto field = static_cast<std::uint8_t>(bytes[place]);
    char type = bytes[place + 2]; // behind the length of the signature, which is 1
    std::size_t at = place + 4;
    if (type == 'u') {
        std::uint32_t number = number_at(bytes, at);
        if (field == ReplySerial)
            message.reply_serial = number;
        return at + 4;
    }
    std::size_t length_size = type == 'g' ? 1 : 4;
    std::size_t length = type == 'g' ? static_cast<std::uint8_t>(bytes[at]) : number_at(bytes, at);
    for (const TextField &one : text_fields)
        if (one.field == field)
            message.*one.text = std::string(bytes.substr(at + length_size, length));
    return at + length_size + length + 1;
}

void begin_field(std::string &bytes, Field field, char type)
{
    bytes.resize(aligned(bytes.size(), 8));
    bytes += static_cast<char>(field);
    bytes += '\1';
    bytes += type;
    bytes += '\0';
}

} // namespace

std::size_t BusMessage::size_of(std::string_view bytes)
{
    if (bytes.size() < fixed_header)
        return 0;
    std::size_t size = aligned(fixed_header + number_at(bytes, 12), 8) + number_at(bytes, 4);
    return bytes.size() < size ? 0 : size;
}

BusMessage BusMessage::read(std::string_view bytes)
{
    if (bytes[0] != 'l')
        throw std::runtime_error("a message is not little-endian");
    BusMessage message;
    message.type = static_cast<std::uint8_t>(bytes[1]);
    message.flags = static_cast<std::uint8_t>(bytes[2]);
    message.serial = number_at(bytes, 8);
    std::size_t end = fixed_header + number_at(bytes, 12);
    for (std::size_t place = fixed_header; place < end; place = aligned(place, 8))
        place = read_field(message, bytes, place);
    message.body = std::string(bytes.substr(aligned(end, 8), number_at(bytes, 4)));
    return message;
}

std::string BusMessage::write() const
{
    std::string bytes = {'l', static_cast<char>(type), static_cast<char>(flags), '\1'};
    append_number(bytes, static_cast<std::uint32_t>(body.size()));
    append_number(bytes, serial);
    append_number(bytes, 0); // the size of the fields, which is filled in below
    for (const TextField &one : text_fields) {
        const std::string &text = this->*one.text;
        if (text.empty())
            continue;
        begin_field(bytes, one.field, one.type);
        if (one.type == 'g')
            bytes += static_cast<char>(text.size());
        else
            append_number(bytes, static_cast<std::uint32_t>(text.size()));
        bytes.append(text.c_str(), text.size() + 1);
    }
    if (reply_serial != 0) {
        begin_field(bytes, ReplySerial, 'u');
        append_number(bytes, reply_serial);
    }
    auto fields = static_cast<std::uint32_t>(bytes.size() - fixed_header);
    std::memcpy(bytes.data() + 12, &fields, sizeof fields);
    bytes.resize(aligned(bytes.size(), 8));
    return bytes + body;
}

std::uint32_t BodyReader::number()
{
    place_ = aligned(place_, 4);
    std::uint32_t number = number_at(body_, place_);
    place_ += 4;
    return number;
}

std::string BodyReader::text()
{
    std::size_t length = number();
    std::string text(body_.substr(place_, length));
    place_ += length + 1;
    return text;
}

void BodyWriter::align(std::size_t boundary)
{
    body_.resize(aligned(body_.size(), boundary));
}

BodyWriter &BodyWriter::number(std::uint32_t number)
{
    align(4);
    append_number(body_, number);
    return *this;
}

BodyWriter &BodyWriter::text(std::string_view text)
{
    number(static_cast<std::uint32_t>(text.size()));
    body_.append(text);
    body_ += '\0';
    return *this;
}

BodyWriter &BodyWriter::numbers_by_name(const std::map<std::string, std::uint32_t> &entries)
{
    number(0);
    std::size_t size_at = body_.size() - 4;
    align(8);
    std::size_t begin = body_.size();
    for (const auto &[name, value] : entries) {
        align(8);
        text(name);
        body_.append("\1u", 3);
        number(value);
    }
    auto size = static_cast<std::uint32_t>(body_.size() - begin);
    std::memcpy(body_.data() + size_at, &size, sizeof size);
    return *this;
}

BodyWriter &BodyWriter::texts(const std::vector<std::string> &texts)
{
    number(0);
    std::size_t size_at = body_.size() - 4;
    std::size_t begin = body_.size();
    for (const std::string &one : texts)
        text(one);
    auto size = static_cast<std::uint32_t>(body_.size() - begin);
    std::memcpy(body_.data() + size_at, &size, sizeof size);
    return *this;
}

} // namespace qandor::simulation
