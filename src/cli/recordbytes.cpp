// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordbytes.hpp"

#include "cli/failure.hpp"
#include "cli/owners.hpp"
#include "cli/recordframes.hpp"

#include <algorithm>

namespace qandor::cli {
namespace {

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

// The callback that a record names is an address of the process that wrote it. A producer would
// call it.
Declaration without_callback(Declaration declaration)
{
    if (declaration.is_property())
        event_declaration_set_property(declaration.c(), nullptr, nullptr, nullptr);
    return declaration;
}

const char *name_of(char first)
{
    for (const Kind &kind : kinds)
        if (static_cast<guint8>(first) == kind.id)
            return kind.name;
    return "record";
}

} // namespace

std::optional<Malformation> malformation_of(RecordKind kind, const std::string &bytes)
{
    return check_record(kind, reinterpret_cast<const guint8 *>(bytes.data()), bytes.size());
}

Record read_checked(RecordKind kind, const std::string &bytes)
{
    Bytes array(serialize_create_array());
    serialize_blob(array.get(), bytes.data(), static_cast<guint32>(bytes.size()));
    switch (kind) {
    case RecordKind::Event:
        return Event(event_deserialize(array.get()));
    case RecordKind::EventDeclaration:
        return without_callback(Declaration(event_declaration_deserialize(array.get())));
    case RecordKind::PropertyState:
        return PropertyState(property_state_deserialize(array.get()));
    case RecordKind::Notification:
        return Notification(notification_deserialize(array.get()));
    case RecordKind::SubscribeExpression:
        break;
    }
    return ExpressionRecord(subscribe_expression_deserialize(array.get()));
}

Record read_bytes(const std::string &bytes, const std::string &name)
{
    std::size_t place = 0;
    std::string what = "no record begins with this byte, and no XML";
    for (const Frame &frame : frames_for(bytes)) {
        std::string framed = frame.before + bytes + frame.behind;
        auto fault = malformation_of(frame.kind, framed);
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
