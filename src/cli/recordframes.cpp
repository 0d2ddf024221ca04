// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordframes.hpp"

#include <qandor/qandor.h>

namespace qandor::cli {
namespace {

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

} // namespace

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

} // namespace qandor::cli
