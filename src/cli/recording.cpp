// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recording.hpp"

#include <array>

namespace qandor::cli {
namespace {

constexpr std::array<guint32, 256> checksum_table = [] {
    std::array<guint32, 256> table{};
    for (guint32 byte = 0; byte < table.size(); ++byte) {
        guint32 rest = byte;
        for (int bit = 0; bit < 8; ++bit)
            rest = (rest >> 1) ^ (rest & 1 ? 0xedb88320u : 0);
        table[byte] = rest;
    }
    return table;
}();

} // namespace

void put_number(std::string &bytes, guint64 number, int size)
{
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(number >> (8 * i) & 0xff);
}

guint64 number_at(std::string_view bytes, std::size_t place, int size)
{
    guint64 number = 0;
    for (int i = size - 1; i >= 0; --i)
        number = number << 8 | static_cast<guint8>(bytes[place + static_cast<std::size_t>(i)]);
    return number;
}

std::string recording_header(gint64 started)
{
    std::string bytes(recording_magic);
    put_number(bytes, recording_version, 4);
    put_number(bytes, static_cast<guint64>(started), 8);
    return bytes;
}

std::string bytes_of(const RecordingEntry &entry)
{
    std::string bytes;
    bytes.reserve(entry_head_size + entry.record.size() + checksum_size);
    put_number(bytes, static_cast<guint8>(entry.kind), 1);
    put_number(bytes, entry.time, 8);
    put_number(bytes, entry.user.value_or(G_MAXUINT32), 4);
    put_number(bytes, entry.record.size(), 4);
    bytes += entry.record;
    put_number(bytes, checksum_of(bytes), 4);
    return bytes;
}

guint32 checksum_of(std::string_view bytes)
{
    guint32 rest = G_MAXUINT32;
    for (char byte : bytes)
        rest = (rest >> 8) ^ checksum_table[(rest ^ static_cast<guint8>(byte)) & 0xff];
    return ~rest;
}

} // namespace qandor::cli
