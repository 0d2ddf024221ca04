// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordbytes.hpp"

#include "cli/failure.hpp"
#include "cli/owners.hpp"

#include "model/checker.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

// What has to stand around a part of a record to make a whole one of the kind.
struct Frame {
    RecordKind kind;
    std::string before;
    std::string behind{};
};

using namespace std::string_literals;

const std::string no_tags = "\0\0"s;

Frame whole(RecordKind kind)
{
    return {kind, ""};
}

Frame around_inspectable(guint8 type)
{
    switch (type) {
    case IT_EVENT_DECLARATION:
        return {RecordKind::EventDeclaration, "\xf0"s + std::string(21, '\0')};
    case IT_EVENT:
        return {RecordKind::Event, "\xf1"s, std::string(23, '\0')};
    case IT_PROPERTY_STATE:
        return {RecordKind::PropertyState, "\xf9"s};
    default:
        return {RecordKind::SubscribeExpression, "\xf6"s + std::string(13, '\0')};
    }
}

Frame around_and_list()
{
    Frame frame = around_inspectable(IT_SUBSCRIBE_EXPRESSION);
    return {frame.kind, frame.before + "\xf2\x01\0\x02\0"s, no_tags};
}

Frame around_bucket(bool is_wildcard)
{
    Frame frame = around_and_list();
    if (is_wildcard)
        return {frame.kind, frame.before + "\xf3\0\0\x01\0"s, frame.behind};
    return {frame.kind, frame.before + "\xf3\x01\0"s, "\0\0"s + frame.behind};
}

Frame around_key_value(bool is_wildcard)
{
    Frame frame = around_bucket(is_wildcard);
    return {frame.kind, frame.before + "\xf4\x01\0"s, frame.behind};
}

struct Kind {
    serialize_id id;
    const char *name;
};
constexpr Kind kinds[] = {
    {SERIALIZE_ID_EVENT_DECLARATION, "event declaration"},
    {SERIALIZE_ID_EVENT, "event"},
    {SERIALIZE_ID_INSPECTABLE, "inspectable"},
    {SERIALIZE_ID_ANDLIST, "and-list"},
    {SERIALIZE_ID_BUCKET, "bucket"},
    {SERIALIZE_ID_KEYVALUE, "key-value"},
    {SERIALIZE_ID_SUBSCRIBE_EXPRESSION, "subscribe expression"},
    {SERIALIZE_ID_PROPERTY_STATE, "property state"},
    {SERIALIZE_ID_NOTIFICATION, "notification"},
};

// In what frames the bytes may be a record; none for a first byte with which no record begins.
std::vector<Frame> frames_for(const std::string &bytes)
{
    switch (static_cast<guint8>(bytes[0])) {
    case SERIALIZE_ID_EVENT_DECLARATION:
        return {whole(RecordKind::EventDeclaration)};
    case SERIALIZE_ID_EVENT:
        return {whole(RecordKind::Event)};
    case SERIALIZE_ID_INSPECTABLE:
        return {around_inspectable(bytes.size() > 3 ? static_cast<guint8>(bytes[3]) : 0)};
    case SERIALIZE_ID_ANDLIST:
        return {around_and_list()};
    case SERIALIZE_ID_BUCKET:
        return {around_bucket(false), around_bucket(true)};
    case SERIALIZE_ID_KEYVALUE:
        return {around_key_value(false), around_key_value(true)};
    case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
        return {whole(RecordKind::SubscribeExpression)};
    case SERIALIZE_ID_PROPERTY_STATE:
        return {whole(RecordKind::PropertyState)};
    case SERIALIZE_ID_NOTIFICATION:
        return {whole(RecordKind::Notification)};
    default:
        return {};
    }
}

std::string hexadecimal(std::size_t number, const char *format)
{
    char text[32];
    g_snprintf(text, sizeof text, format, static_cast<unsigned>(number));
    return text;
}

std::string row_at(const std::string &bytes, std::size_t begin)
{
    std::string row = hexadecimal(begin, "  %08x "), characters;
    for (std::size_t i = begin; i < begin + 16; ++i) {
        bool is_there = i < bytes.size();
        row += is_there ? hexadecimal(static_cast<guint8>(bytes[i]), " %02x") : "   ";
        if (is_there)
            characters += g_ascii_isprint(bytes[i]) ? bytes[i] : '.';
    }
    return row + "  " + characters + "\n";
}

// The rows around a byte with a mark under it.
std::string dump(const std::string &bytes, std::size_t offset)
{
    std::size_t row = offset / 16 * 16;
    std::string text = row >= 16 ? row_at(bytes, row - 16) : "";
    text += row_at(bytes, row);
    text += std::string(12 + 3 * (offset - row), ' ') + "^^\n";
    return text;
}

[[noreturn]] void fail(const std::string &bytes, const std::string &name, std::size_t offset,
                       const std::string &what)
{
    throw Failure(EX_DATAERR,
                  name + ": byte " + std::to_string(offset) + hexadecimal(offset, " (0x%x): ") +
                      what,
                  dump(bytes, offset));
}

Record read_checked(RecordKind kind, const std::string &bytes)
{
    Bytes array(serialize_create_array());
    serialize_blob(array.get(), bytes.data(), static_cast<guint32>(bytes.size()));
    switch (kind) {
    case RecordKind::Event:
        return Event(event_deserialize(array.get()));
    case RecordKind::EventDeclaration:
        return Declaration(event_declaration_deserialize(array.get()));
    case RecordKind::PropertyState:
        return PropertyState(property_state_deserialize(array.get()));
    case RecordKind::Notification:
        return Notification(notification_deserialize(array.get()));
    case RecordKind::SubscribeExpression:
        break;
    }
    return ExpressionRecord(subscribe_expression_deserialize(array.get()));
}

const char *name_of(char first)
{
    for (const Kind &kind : kinds)
        if (static_cast<guint8>(first) == kind.id)
            return kind.name;
    return "record";
}

} // namespace

Record read_bytes(const std::string &bytes, const std::string &name)
{
    std::size_t place = 0;
    std::string what = "no record begins with this byte, and no XML";
    for (const Frame &frame : frames_for(bytes)) {
        std::string framed = frame.before + bytes + frame.behind;
        auto fault = check_record(frame.kind, reinterpret_cast<const guint8 *>(framed.data()),
                                  framed.size());
        if (!fault)
            return read_checked(frame.kind, framed);
        // Of several the one that goes furthest is meant.
        std::size_t offset = fault->offset - std::min(fault->offset, frame.before.size());
        if (place == 0 || offset > place)
            what = std::string("this is no ") + name_of(bytes[0]) + ": " + fault->what;
        place = std::max(place, std::min(offset, bytes.size()));
    }
    fail(bytes, name, place, what);
}

} // namespace qandor::cli
