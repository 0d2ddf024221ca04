// SPDX-License-Identifier: LGPL-2.1-or-later

// The binary form of the plain records.

#include "unit/model/plainrecords.hpp"

namespace qandor::test {
namespace {

class ByteWriter {
public:
    void u8(unsigned value) { bytes.push_back(static_cast<std::uint8_t>(value)); }
    void u16(std::size_t value)
    {
        u8(static_cast<unsigned>(value & 0xFF));
        u8(static_cast<unsigned>(value >> 8 & 0xFF));
    }
    void u32(std::uint32_t value)
    {
        u16(value & 0xFFFF);
        u16(value >> 16);
    }
    void raw(const std::string &text) { bytes.insert(bytes.end(), text.begin(), text.end()); }
    void raw(const PlainBytes &more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
    void text(const std::string &text)
    {
        u16(text.size());
        raw(text);
    }
    void tags(const std::vector<std::string> &tags)
    {
        u16(tags.size());
        for (const std::string &tag : tags)
            text(tag);
    }

    PlainBytes bytes;
};

class ByteReader {
public:
    explicit ByteReader(const PlainBytes &bytes) : bytes_(bytes) {}

    unsigned u8()
    {
        if (at_ >= bytes_.size())
            throw std::runtime_error("too short");
        return bytes_[at_++];
    }
    unsigned u16()
    {
        unsigned low = u8();
        return low | u8() << 8;
    }
    std::uint32_t u32()
    {
        std::uint32_t low = u16();
        return low | static_cast<std::uint32_t>(u16()) << 16;
    }
    std::int32_t i32() { return static_cast<std::int32_t>(u32()); }
    std::string raw(std::size_t size)
    {
        std::string text;
        while (text.size() < size)
            text += static_cast<char>(u8());
        return text;
    }
    std::string text() { return raw(u16()); }
    std::vector<std::string> tags()
    {
        std::vector<std::string> tags;
        for (unsigned left = u16(); left > 0; --left)
            tags.push_back(text());
        return tags;
    }
    void tag(unsigned expected)
    {
        if (u8() != expected)
            throw std::runtime_error("not record " + std::to_string(expected));
    }
    bool at_end() const { return at_ == bytes_.size(); }

private:
    const PlainBytes &bytes_;
    std::size_t at_ = 0;
};

void write(ByteWriter &out, const PlainKeyValue &record)
{
    out.u8(245);
    out.text(record.key);
    out.u8(static_cast<unsigned>(record.key_wildcard));
    out.text(record.name_space);
    out.text(record.key_nice_name);
    out.text(record.value);
    out.u8(static_cast<unsigned>(record.value_wildcard));
    out.text(record.value_nice_name);
    out.text(record.value_user_string);
    out.text(record.complex_type_name);
    out.u8(static_cast<unsigned>(record.negated));
    out.u8(static_cast<unsigned>(record.value_type));
    out.tags(record.tags);
}

void read(ByteReader &in, PlainKeyValue &record)
{
    in.tag(245);
    record.key = in.text();
    record.key_wildcard = static_cast<int>(in.u8());
    record.name_space = in.text();
    record.key_nice_name = in.text();
    record.value = in.text();
    record.value_wildcard = static_cast<int>(in.u8());
    record.value_nice_name = in.text();
    record.value_user_string = in.text();
    record.complex_type_name = in.text();
    record.negated = static_cast<int>(in.u8());
    record.value_type = static_cast<int>(in.u8());
    record.tags = in.tags();
    record.settable = record.value_wildcard != 0;
}

void write(ByteWriter &out, const PlainBuckets &buckets)
{
    out.u16(buckets.size());
    for (const auto &[name, bucket] : buckets) {
        out.u8(244);
        out.u16(bucket.size());
        for (const PlainKeyValue &record : bucket)
            write(out, record);
    }
}

void read(ByteReader &in, PlainBuckets &buckets, bool wildcards)
{
    for (unsigned left = in.u16(); left > 0; --left) {
        in.tag(244);
        std::vector<PlainKeyValue> bucket(in.u16());
        for (PlainKeyValue &record : bucket)
            read(in, record);
        const PlainKeyValue &first = bucket.at(0);
        buckets[wildcards ? first.value : first.key] = bucket;
    }
}

void write(ByteWriter &out, const PlainInspectable &record)
{
    out.u8(242);
    out.u16(record.and_lists.size());
    out.u8(static_cast<unsigned>(record.type));
    out.u8(static_cast<unsigned>(record.internal));
    for (const PlainAndList &list : record.and_lists) {
        out.u8(243);
        write(out, list.keyed);
        write(out, list.wildcards);
    }
    out.tags(record.tags);
}

void read(ByteReader &in, PlainInspectable &record)
{
    in.tag(242);
    record.and_lists.assign(in.u16(), {});
    record.type = static_cast<int>(in.u8());
    record.internal = static_cast<int>(in.u8());
    for (PlainAndList &list : record.and_lists) {
        in.tag(243);
        read(in, list.keyed, false);
        read(in, list.wildcards, true);
    }
    record.tags = in.tags();
    constexpr int event_declaration = 0;
    record.has_positions = record.type != event_declaration;
}

void write(ByteWriter &out, const PlainEvent &record)
{
    out.u8(241);
    write(out, record.content);
    out.u16(record.user_data.size());
    out.raw(record.user_data);
    out.u32(static_cast<std::uint32_t>(record.seconds));
    out.u32(static_cast<std::uint32_t>(record.microseconds));
    out.u32(record.global_id);
    out.u32(record.local_id);
    out.u32(record.producer_id);
    out.u8(static_cast<unsigned>(record.property));
}

void read(ByteReader &in, PlainEvent &record)
{
    in.tag(241);
    read(in, record.content);
    record.user_data = in.raw(in.u16());
    record.seconds = in.i32();
    record.microseconds = in.i32();
    record.global_id = in.u32();
    record.local_id = in.u32();
    record.producer_id = in.u32();
    record.property = static_cast<int>(in.u8());
}

void write(ByteWriter &out, const PlainDeclaration &record)
{
    out.u8(240);
    out.u32(record.producer_id);
    out.u32(record.local_id);
    out.u32(record.global_id);
    out.u8(static_cast<unsigned>(record.property));
    out.u32(record.callback);
    out.u32(record.callback_data);
    write(out, record.content);
}

void read(ByteReader &in, PlainDeclaration &record)
{
    in.tag(240);
    record.producer_id = in.u32();
    record.local_id = in.u32();
    record.global_id = in.u32();
    record.property = static_cast<int>(in.u8());
    record.callback = in.u32();
    record.callback_data = in.u32();
    read(in, record.content);
}

void write(ByteWriter &out, const PlainExpression &record)
{
    out.u8(246);
    out.u32(record.id);
    out.text(record.dbus_service);
    out.text(record.dbus_object);
    out.u32(record.consumer_token);
    out.u8(static_cast<unsigned>(record.clandestine));
    write(out, record.content);
}

void read(ByteReader &in, PlainExpression &record)
{
    in.tag(246);
    record.id = in.u32();
    record.dbus_service = in.text();
    record.dbus_object = in.text();
    record.consumer_token = in.u32();
    record.clandestine = static_cast<int>(in.u8());
    read(in, record.content);
}

void write(ByteWriter &out, const PlainState &record)
{
    out.u8(249);
    write(out, record.content);
}

void read(ByteReader &in, PlainState &record)
{
    in.tag(249);
    read(in, record.content);
}

void write(ByteWriter &out, const PlainNotification &record)
{
    out.u8(250);
    out.u16(record.user_data.size());
    out.raw(record.user_data);
    out.u32(static_cast<std::uint32_t>(record.seconds));
    out.u32(static_cast<std::uint32_t>(record.microseconds));
    out.u32(record.subscription_id);
    out.u32(record.declaration_id);
    out.u8(static_cast<unsigned>(record.removed));
    PlainBytes expression = to_bytes(record.expression);
    out.u32(static_cast<std::uint32_t>(expression.size()));
    out.raw(expression);
    PlainBytes declaration = to_bytes(record.declaration);
    out.u32(static_cast<std::uint32_t>(declaration.size()));
    out.raw(declaration);
}

template <class Record> Record read_nested(ByteReader &in)
{
    std::string inner = in.raw(in.u32());
    return from_bytes<Record>(PlainBytes(inner.begin(), inner.end()));
}

void read(ByteReader &in, PlainNotification &record)
{
    in.tag(250);
    record.user_data = in.raw(in.u16());
    record.seconds = in.i32();
    record.microseconds = in.i32();
    record.subscription_id = in.u32();
    record.declaration_id = in.u32();
    record.removed = static_cast<int>(in.u8());
    record.expression = read_nested<PlainExpression>(in);
    record.declaration = read_nested<PlainDeclaration>(in);
}

template <class Record> PlainBytes written(const Record &record)
{
    ByteWriter out;
    write(out, record);
    return out.bytes;
}

} // namespace

PlainBytes to_bytes(const PlainKeyValue &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainInspectable &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainEvent &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainDeclaration &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainExpression &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainState &record)
{
    return written(record);
}
PlainBytes to_bytes(const PlainNotification &record)
{
    return written(record);
}

template <class Record> Record from_bytes(const PlainBytes &bytes)
{
    ByteReader in(bytes);
    Record record;
    read(in, record);
    if (!in.at_end())
        throw std::runtime_error("bytes are left over");
    return record;
}

template PlainKeyValue from_bytes(const PlainBytes &);
template PlainInspectable from_bytes(const PlainBytes &);
template PlainEvent from_bytes(const PlainBytes &);
template PlainDeclaration from_bytes(const PlainBytes &);
template PlainExpression from_bytes(const PlainBytes &);
template PlainState from_bytes(const PlainBytes &);
template PlainNotification from_bytes(const PlainBytes &);

} // namespace qandor::test
